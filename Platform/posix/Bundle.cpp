#include "Bundle.h"

#include <sys/auxv.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "MallocPointer.h"

namespace {

/// Returns `path` without the last component and the "/" before; empty for an empty path.
std::string Parent(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

bool Bundle::GetResourcesDirectory(char* buffer, std::size_t size) {
  // The kernel's auxiliary vector holds the path of the execution, so /proc is not needed.
  const auto* const executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const MallocPointer<char> executable(realpath(executed, nullptr));
  if (!executable) {
    return false;
  }
  // An executable in …/Contents/<any one directory>/ is in a bundle. Every other executable has the
  // resources in the same directory.
  const std::string directory = Parent(executable.get());
  const std::string above = Parent(directory);
  const bool isInBundle = above.substr(above.rfind('/') + 1) == "Contents";
  const std::string resources = (isInBundle ? above : directory) + "/Resources";
  if (resources.length() >= size) {
    return false;
  }
  std::memcpy(buffer, resources.c_str(), resources.length() + 1);
  return true;
}
