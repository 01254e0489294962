#include "Bundle.h"

#include <sys/auxv.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "MallocPointer.h"

bool Bundle::GetResourcesDirectory(char* buffer, std::size_t size) {
  // The kernel's auxiliary vector holds the path of the execution, so /proc is not needed.
  const auto* const executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const MallocPointer<char> executable(realpath(executed, nullptr));
  if (!executable) {
    return false;
  }
  // An executable in …/Contents/<any one directory>/ is in a bundle. Every other executable has the
  // resources in the same directory.
  const std::filesystem::path directory = std::filesystem::path(executable.get()).parent_path();
  const bool isInBundle = directory.parent_path().filename() == "Contents";
  const std::string resources = (isInBundle ? directory.parent_path() : directory) / "Resources";
  if (resources.length() >= size) {
    return false;
  }
  std::memcpy(buffer, resources.c_str(), resources.length() + 1);
  return true;
}
