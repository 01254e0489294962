// Prints the Resources directory of this program's bundle; exit status 1 when there is none. An
// argument is the size of the buffer offered.

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
