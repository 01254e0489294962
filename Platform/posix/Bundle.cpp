#include "Bundle.h"

#include <sys/auxv.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "MallocPointer.h"

namespace {

/// The path by which the process was executed, with all links resolved. Returns an empty string if
/// the path does not exist. The kernel's auxiliary vector holds it, so /proc is not needed.
std::string ExecutablePath() {
  const auto* const executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const MallocPointer<char> resolved(realpath(executed, nullptr));
  if (!resolved) {
    return {};
  }
  return resolved.get();
}

/// `path` without its last component and the "/" before it; empty for an empty one.
std::string Parent(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

bool EndsWith(const std::string& path, const std::string& end) {
  return path.length() >= end.length() &&
         path.compare(path.length() - end.length(), end.length(), end) == 0;
}

}  // namespace

bool Bundle::GetResourcesDirectory(char* buffer, std::size_t size) {
  const std::string executable = ExecutablePath();
  if (executable.empty()) {
    return false;
  }
  // An executable in …/Contents/<any one directory>/ is in a bundle; another has its resources
  // beside it.
  const std::string directory = Parent(executable);
  const std::string above = Parent(directory);
  const std::string resources = (EndsWith(above, "/Contents") ? above : directory) + "/Resources";
  if (resources.length() >= size) {
    return false;
  }
  std::memcpy(buffer, resources.c_str(), resources.length() + 1);
  return true;
}
