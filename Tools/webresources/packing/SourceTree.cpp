#include "SourceTree.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "Error.h"
#include "Files.h"
#include "NameFindings.h"
#include "PackageReader.h"

namespace {

/// What the fields of 32 bits can say. The installer's library does not everywhere read the sizes
/// and places of entries that stand in 64 bits.
constexpr std::uint64_t kLargestPackage = 0xfffffffe;
constexpr std::uint64_t kHeaders = 30 + 46;  ///< Of an entry, without its name.

class Collector {
 public:
  explicit Collector(const Selection& selection) : selection_(selection) {}

  SourceTree Collect(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
      throw Error::FromErrno("read", path);
    }
    CollectDirectory(path, "", status);
    std::sort(tree_.items.begin(), tree_.items.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    RefuseCollisions();
    return std::move(tree_);
  }

 private:
  void CollectDirectory(const std::string& path, const std::string& prefix,
                        const struct stat& status) {
    const std::pair<dev_t, ino_t> identity(status.st_dev, status.st_ino);
    if (!above_.insert(identity).second) {
      Refuse("link-broken", prefix, "it leads back to a directory that it is in");
      return;
    }
    for (const std::string& name : NamesIn(path)) {
      CollectEntry(path + "/" + name, prefix + name);
    }
    above_.erase(identity);
  }

  void CollectEntry(const std::string& path, const std::string& name) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
      throw Error::FromErrno("read", path);
    }
    if (IsLeftOut(name)) {
      return;
    }
    if (S_ISLNK(status.st_mode)) {
      if (!selection_.followLinks) {
        Refuse("link-entry", name, "it is a symbolic link, which the installer does not make");
        return;
      }
      if (stat(path.c_str(), &status) != 0) {
        Refuse("link-broken", name, "it leads nowhere");
        return;
      }
    }
    if (S_ISDIR(status.st_mode)) {
      AddItem(name + "/", path, true, 0);
      CollectDirectory(path, name + "/", status);
    } else if (S_ISREG(status.st_mode)) {
      AddItem(name, path, false, static_cast<std::uint64_t>(status.st_size));
    } else {
      Refuse("special-file", name, "it is neither a file nor a directory");
    }
  }

  bool IsLeftOut(const std::string& name) {
    const names::Junk junk = names::JunkKind(names::Last(name));
    if (junk != names::Junk::None && selection_.kept.count(junk) == 0) {
      tree_.leftOut.push_back({name, "junk"});
      return true;
    }
    for (const std::string& glob : selection_.excluded) {
      const bool isPath = glob.find('/') != std::string::npos;
      if (fnmatch(glob.c_str(), name.c_str(), 0) == 0 ||
          (!isPath && fnmatch(glob.c_str(), names::Last(name).c_str(), 0) == 0)) {
        tree_.leftOut.push_back({name, "excluded by " + glob});
        return true;
      }
    }
    return false;
  }

  void AddItem(const std::string& name, const std::string& path, bool isDirectory,
               std::uint64_t size) {
    if (PackageReader::KindOf(name.c_str(), name.length()) == PackageEntry::Kind::NameTooLong) {
      Refuse("name-too-long", name, "its name has " + std::to_string(name.length()) + " bytes");
    } else if (!names::IsUtf8(name)) {
      Refuse("name-not-utf8", name, "its name is not UTF-8, which a volume may refuse");
    }
    size_ += kHeaders + 2 * name.length() + size;
    if (size_ > kLargestPackage && size > 0) {
      Refuse("package-too-large", name, "with it, the package could have 4 GiB or more");
    }
    tree_.items.push_back({name, path, isDirectory});
  }

  void RefuseCollisions() {
    std::vector<std::string> paths;
    for (const SourceTree::Item& item : tree_.items) {
      paths.push_back(item.name.substr(0, item.name.length() - (item.isDirectory ? 1 : 0)));
    }
    AddCollisions(tree_.refused, paths);
  }

  void Refuse(const char* id, const std::string& name, const std::string& reason) {
    Add(tree_.refused, id, name, reason);
  }

  const Selection& selection_;
  SourceTree tree_;
  std::uint64_t size_ = 0;                   ///< Of the package, if nothing shrank.
  std::set<std::pair<dev_t, ino_t>> above_;  ///< The directories that are being looked through.
};

}  // namespace

SourceTree CollectSource(const std::string& path, const Selection& selection) {
  return Collector(selection).Collect(path);
}
