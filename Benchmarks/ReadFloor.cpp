// Reads every entry of an archive in pieces of 8 KiB and writes nothing: what no extraction of the
// same archive through the same library can be faster than. With FILE, it also writes the pieces
// there, as they come.
//
//     ReadFloor ARCHIVE [FILE]

#include <fcntl.h>
#include <unistd.h>
#include <unzip.h>

#include <cstdlib>

namespace {

bool ReadEntry(unzFile archive, int output) {
  char copy[8192];
  int count = 0;
  while ((count = unzReadCurrentFile(archive, copy, sizeof copy)) > 0) {
    if (output >= 0 && write(output, copy, static_cast<unsigned int>(count)) != count) {
      return false;
    }
  }
  return count == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const unzFile archive = argc >= 2 ? unzOpen(argv[1]) : nullptr;
  if (archive == nullptr) {
    return EXIT_FAILURE;
  }
  const int output = argc >= 3 ? open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0666) : -1;
  int result = UNZ_OK;
  for (; result == UNZ_OK; result = unzGoToNextFile(archive)) {
    if (unzOpenCurrentFile(archive) != UNZ_OK || !ReadEntry(archive, output)) {
      return EXIT_FAILURE;
    }
    unzCloseCurrentFile(archive);
  }
  unzClose(archive);
  return result == UNZ_END_OF_LIST_OF_FILE ? EXIT_SUCCESS : EXIT_FAILURE;
}
