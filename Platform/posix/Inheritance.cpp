#include "Inheritance.h"

bool Inheritance::Restrict(posix_spawnattr_t*, posix_spawn_file_actions_t* actions,
                           int descriptor) {
  constexpr int kFirst = 3;  // after the standard streams
  return posix_spawn_file_actions_adddup2(actions, descriptor, kFirst) == 0 &&
         posix_spawn_file_actions_addclosefrom_np(actions, kFirst + 1) == 0;
}
