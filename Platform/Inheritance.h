#ifndef PLATFORM_INHERITANCE_H_
#define PLATFORM_INHERITANCE_H_

#include <spawn.h>

/// The descriptors that a new program inherits.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class Inheritance {
 public:
  Inheritance() = delete;

  /// Restricts the descriptors of a program that posix_spawn() starts with `attributes` and
  /// `actions`. The program inherits only the three standard streams and `descriptor`, perhaps with
  /// another number. Returns false if memory is exhausted. Requires: `descriptor` is above 2, and
  /// `actions` has the actions for the standard streams.
  static bool Restrict(posix_spawnattr_t* attributes, posix_spawn_file_actions_t* actions,
                       int descriptor);
};

#endif  // PLATFORM_INHERITANCE_H_
