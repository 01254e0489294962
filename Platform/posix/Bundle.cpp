#include "Bundle.h"

#include <sys/auxv.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct Free {
  void operator()(char* memory) const { std::free(memory); }
};

/// The path the process was executed by, resolved; empty when it leads nowhere, as none at all
/// does. It comes from the kernel's auxiliary vector, so it is there without /proc.
std::string ExecutablePath() {
  const auto* const executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const std::unique_ptr<char, Free> resolved(realpath(executed, nullptr));
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
