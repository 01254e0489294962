#include "machine/Access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

#include "AccessControlList.h"
#include "Descriptor.h"
#include "InstallerConstants.h"
#include "MallocPointer.h"
#include "OSUtils.h"
#include "machine/Receipt.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::size_t kHostDirectories = 3;  // the root, "Library" and "Application Support"
constexpr mode_t kForOthers = S_IRWXG | S_IRWXO;
constexpr mode_t kWriting = S_IWGRP | S_IWOTH;

/// A file or directory whose access is examined.
struct Place {
  std::string path;
  mode_t mode;  ///< Other users need these permissions; a repair sets the mode.
  bool isOfHost = false;

  bool IsDirectory() const { return (mode & S_IXUSR) != 0; }
};

/// Returns the product's places or the host's places, the outermost directory first.
std::vector<Place> PlacesOf(const std::string& hostRoot, Places which) {
  const bool isOfHost = which == Places::Host;
  constexpr mode_t kEntered = 0711;  // other users need not read the names
  const std::string preferences = hostRoot + "/Library/Preferences";
  const std::string root = OSUtils::GetPellamResourceDirectory();  // ends in "/"
  std::vector<Place> places;
  std::size_t depth = 0;
  for (std::size_t end = 0; end != std::string::npos; end = root.find('/', end + 1)) {
    if ((depth++ < kHostDirectories) == isOfHost) {
      const std::string path = hostRoot + (end == 0 ? "/" : root.substr(0, end));
      places.push_back({path, isOfHost ? kEntered : mode_t{kDirectoryMode}, isOfHost});
    }
  }
  if (isOfHost) {
    places.push_back({preferences, kEntered, isOfHost});
  } else {
    places.push_back({preferences + "/" + PLIST_SECTION_KEY + ".plist", kFileMode});
    places.push_back({ReceiptPath(hostRoot), kFileMode});
  }
  return places;
}

bool IsAsExpected(const Place& place, const struct stat& status) {
  return place.IsDirectory() ? S_ISDIR(status.st_mode) : S_ISREG(status.st_mode);
}

/// Returns the status of `place`; nothing if there is no such file or directory.
std::optional<struct stat> StatusAt(const Place& place) {
  struct stat status = {};
  if (stat(place.path.c_str(), &status) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      throw Error::FromErrno("read", place.path);
    }
    return std::nullopt;
  }
  return IsAsExpected(place, status) ? std::optional(status) : std::nullopt;
}

/// Returns whether `mode` lets other users change `place`. In a directory of the host with the
/// sticky bit, other users cannot replace an entry of a trusted owner.
bool IsWritable(const Place& place, mode_t mode) {
  return (mode & kWriting) != 0 && !(place.isOfHost && (mode & S_ISVTX) != 0);
}

bool IsUnreadable(const Place& place, mode_t mode) {
  return (place.mode & kForOthers & ~mode) != 0;
}

void FindInPlace(const Place& place, uid_t owner, Findings& findings) {
  const auto status = StatusAt(place);
  if (!status) {
    return;
  }
  const auto add = [&](const Rule& rule, const std::string& reason, const std::string& command) {
    Add(findings, place.isOfHost ? kDirectoryAccess : rule, place.path,
        place.isOfHost ? reason + ": " + command + " " + ShellQuoted(place.path) : reason);
  };
  if (!IsTrustedOwner(status->st_uid, owner)) {
    add(kOwnerDiffers, "its owner is user " + std::to_string(status->st_uid),
        "chown " + (owner == 0 ? "root" : std::to_string(owner)));
  }
  if (IsWritable(place, status->st_mode)) {
    add(kModeDiffers, "other users can write to it", "chmod go-w");
  }
  if (IsUnreadable(place, status->st_mode)) {
    add(kModeDiffers, "other users cannot read it", "chmod go+rx");
  }
  if (LetsOthersWrite(place.path)) {
    add(kModeDiffers, kListReason, AccessControlList::kRemovalCommand);
  }
}

void RepairPlace(const Place& place, uid_t owner) {
  constexpr auto kKeptGroup = static_cast<gid_t>(-1);
  const Descriptor file(open(place.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)) {
    return;
  }
  struct stat status = {};
  if (!file || fstat(*file, &status) != 0) {
    throw Error::FromErrno("repair the access to", place.path);
  }
  if (!IsAsExpected(place, status) || (!place.IsDirectory() && status.st_nlink != 1)) {
    return;
  }
  const bool isOwned =
      IsTrustedOwner(status.st_uid, owner) || fchown(*file, owner, kKeptGroup) == 0;
  const bool isRight = !IsWritable(place, status.st_mode) && !IsUnreadable(place, status.st_mode);
  if (!isOwned || !AccessControlList::Restrict(*file) ||
      (!isRight && fchmod(*file, place.mode) != 0)) {
    throw Error::FromErrno("repair the access to", place.path);
  }
}

}  // namespace

Findings FindInAccess(const std::string& hostRoot, Places places) {
  const uid_t owner = OwnerOf(hostRoot);
  Findings findings;
  for (const Place& place : PlacesOf(hostRoot, places)) {
    FindInPlace(place, owner, findings);
  }
  return findings;
}

void RepairAccess(const std::string& hostRoot) {
  const uid_t owner = OwnerOf(hostRoot);
  for (const Place& place : PlacesOf(hostRoot, Places::Product)) {
    RepairPlace(place, owner);
  }
}

void RequireHost(const std::string& hostRoot) {
  if (hostRoot.empty()) {
    return;
  }
  if (!S_ISDIR(StatusOf(hostRoot).st_mode)) {
    throw Error("read", hostRoot, "it is not a directory");
  }
  const std::filesystem::path root = RealPath(hostRoot);
  for (const Places places : {Places::Host, Places::Product}) {
    for (const Place& place : PlacesOf(hostRoot, places)) {
      const MallocPointer<char> real(realpath(place.path.c_str(), nullptr));
      const std::string inside =
          std::filesystem::path(real ? real.get() : root).lexically_relative(root);
      if (inside.rfind("..", 0) == 0) {
        throw Error("read", place.path,
                    std::string("a link leads out of the root, to ") + real.get());
      }
    }
  }
}

unsigned int OwnerOf(const std::string& hostRoot) {
  return StatusOf(hostRoot + "/").st_uid;
}

bool IsTrustedOwner(unsigned int user, unsigned int owner) {
  return user == 0 || user == owner;
}

bool LetsOthersWrite(const std::string& path) {
  const auto letsWrite = AccessControlList::LetsWrite(path);
  if (!letsWrite) {
    throw Error::FromErrno("read", path);
  }
  return *letsWrite;
}

}  // namespace webresources
