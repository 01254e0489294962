// Reads every entry of an archive in pieces of 8 KiB and writes nothing: what no extraction of the
// same archive through the same library can be faster than.
//
//     ReadFloor ARCHIVE

#include <unzip.h>

#include <cstdlib>

int main(int argc, char** argv) {
  const unzFile archive = argc == 2 ? unzOpen(argv[1]) : nullptr;
  if (archive == nullptr) {
    return EXIT_FAILURE;
  }
  int result = UNZ_OK;
  for (; result == UNZ_OK; result = unzGoToNextFile(archive)) {
    if (unzOpenCurrentFile(archive) != UNZ_OK) {
      return EXIT_FAILURE;
    }
    char copy[8192];
    while (unzReadCurrentFile(archive, copy, sizeof copy) > 0) {
    }
    unzCloseCurrentFile(archive);
  }
  unzClose(archive);
  return result == UNZ_END_OF_LIST_OF_FILE ? EXIT_SUCCESS : EXIT_FAILURE;
}
