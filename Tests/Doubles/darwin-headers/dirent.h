#ifndef TESTS_DOUBLES_DARWIN_HEADERS_DIRENT_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_DIRENT_H_

// The parts of a Mac's <dirent.h> that the product and its tests use, from its manual pages.

#include <sys/types.h>

#define DT_DIR 4

typedef struct DarwinDirectory DIR;

struct dirent {
  ino_t d_ino;
  unsigned short d_namlen;
  unsigned char d_type;
  char d_name[1024];
};

extern "C" {

int closedir(DIR* directory);
DIR* fdopendir(int file) __attribute__((availability(macos, introduced = 10.10)));
DIR* opendir(const char* path);
struct dirent* readdir(DIR* directory);

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_DIRENT_H_
