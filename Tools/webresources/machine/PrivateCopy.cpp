#include "machine/PrivateCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "Descriptor.h"
#include "InstallerConstants.h"
#include "OSUtils.h"
#include "Uninterrupted.h"
#include "machine/Installation.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr char kProgramDirectory[] = "/Contents/" BUNDLE_EXECUTABLES;
constexpr char kInfo[] = "/Contents/Info.plist";
constexpr char kResources[] = "/Contents/Resources";

/// Copies a regular file of at most `most` bytes. A block of zeros becomes a hole.
void CopyFile(const std::string& from, const std::string& to, mode_t mode, std::uint64_t most) {
  const InputFile input(from, Links::Follow);
  const Descriptor output(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!output) {
    throw Error::FromErrno("write", to);
  }
  Progress progress("copying " + LastOf(from), static_cast<std::uint64_t>(input.status().st_size));
  std::uint64_t size = 0;
  ForEachChunk(input.descriptor(), from, [&](const char* bytes, std::size_t count) {
    size += count;
    if (size > most) {
      throw Error("copy", from, "it has more than " + std::to_string(most) + " bytes",
                  "raise --max-size if it is meant to be so large");
    }
    if (std::all_of(bytes, bytes + count, [](char byte) { return byte == 0; })) {
      lseek(*output, static_cast<off_t>(count), SEEK_CUR);
    } else if (!WriteAll(*output, bytes, count)) {
      throw Error::FromErrno("write", to);
    }
    progress.Step(count);
  });
  if (Uninterrupted([&] { return ftruncate(*output, static_cast<off_t>(size)); }) != 0) {
    throw Error::FromErrno("write", to);
  }
}

/// Copies the file `name` if the file exists. The inspection of the copy reports a missing file.
void CopyIfThere(const std::string& from, const std::string& to, const std::string& name,
                 mode_t mode, std::uint64_t most) {
  if (Exists(from + name)) {
    CopyFile(from + name, to + name, mode, most);
  }
}

void CopyBundle(const std::string& from, const std::string& to, const Limits& limits) {
  constexpr std::uint64_t kMostOther = std::uint64_t{1} << 30U;
  for (const char* directory : {"/Contents", kProgramDirectory, kResources}) {
    if (mkdir((to + directory).c_str(), 0700) != 0) {
      throw Error::FromErrno("make", to + directory);
    }
  }
  CopyIfThere(from, to, std::string(kProgramDirectory) + "/" BUNDLE_EXECUTABLE, 0700, kMostOther);
  CopyIfThere(from, to, kInfo, 0600, kMostOther);
  CopyIfThere(from, to, std::string(kResources) + "/" + kPackageFileName, 0600, limits.maxSize);
  CopyIfThere(from, to, std::string(kResources) + "/" + kMetadataFileName, 0600, kMostOther);
}

}  // namespace

PrivateCopy::PrivateCopy(const std::string& hostRoot, const std::string& bundle,
                         const Limits& limits)
    : path_(BesideInstallRoot(hostRoot, ".WebResources.run-XXXXXX")) {
  if (mkdtemp(path_.data()) == nullptr) {
    throw Error::FromErrno("make a directory like", path_);
  }
  try {
    CopyBundle(bundle, path_, limits);
  } catch (...) {
    OSUtils::DeleteDir(path_);
    throw;
  }
}

PrivateCopy::~PrivateCopy() {
  OSUtils::DeleteDir(path_);
}

void RemoveLeftovers(const std::string& hostRoot) {
  for (const std::string& path : TemporaryEntries(hostRoot)) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
}

}  // namespace webresources
