// Preloaded into the installer. Makes allocation number FAIL_ALLOCATION fail, and every later
// allocation if the number ends in "+". Then makes the file FAIL_ALLOCATION_REPORT.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the C library's names
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

long g_made = 0;
long g_first = 0;  // the first failing allocation; 0 before the environment is read
long g_last = 0;

__attribute__((constructor)) void ReadEnvironment() {
  const char* number = std::getenv("FAIL_ALLOCATION");
  g_first = number != nullptr ? std::strtol(number, nullptr, 10) : 0;
  g_last = number != nullptr && std::strchr(number, '+') != nullptr ? -1 : g_first;
  g_made = 0;
}

bool Fails() {
  ++g_made;
  if (g_first == 0 || g_made < g_first || (g_last >= 0 && g_made > g_last)) {
    return false;
  }
  if (g_made == g_first) {
    close(open(std::getenv("FAIL_ALLOCATION_REPORT"), O_WRONLY | O_CREAT, 0600));
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return Fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return Fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return Fails() ? nullptr : __libc_realloc(block, size);
}

}  // extern "C"
