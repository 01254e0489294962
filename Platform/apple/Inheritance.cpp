#include "Inheritance.h"

bool Inheritance::Restrict(posix_spawnattr_t* attributes, posix_spawn_file_actions_t* actions,
                           int descriptor) {
  short flags = 0;
  return posix_spawnattr_getflags(attributes, &flags) == 0 &&
         posix_spawnattr_setflags(attributes,
                                  static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT)) == 0 &&
         posix_spawn_file_actions_addinherit_np(actions, descriptor) == 0;
}
