// Prints the Resources directory of this program's bundle. Exits with 1 if there is none. The
// argument is the size of the buffer.

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Bundle.h"

int main(int argc, char** argv) {
  std::vector<char> buffer(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1024);
  if (!Bundle::GetResourcesDirectory(buffer.data(), buffer.size())) {
    return 1;
  }
  std::fputs(buffer.data(), stdout);
  return 0;
}
