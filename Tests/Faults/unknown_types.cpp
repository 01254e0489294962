// Preloaded into the installer. Directory listings then have no entry types, as on some file
// systems.
#include <dirent.h>
#include <dlfcn.h>

extern "C" dirent* readdir(DIR* stream) {
  static auto* const real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
  dirent* const entry = real(stream);
  if (entry != nullptr) {
    entry->d_type = DT_UNKNOWN;
  }
  return entry;
}
