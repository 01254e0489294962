#ifndef PLATFORM_BUNDLE_H_
#define PLATFORM_BUNDLE_H_

#include <cstddef>

/// Where the running program's application bundle keeps its resources.
///
/// One back end is compiled in: `apple/` asks CoreFoundation for the main bundle, `posix/` works
/// from the path by which the program was executed.
class Bundle {
 public:
  Bundle() = delete;

  /// Writes the absolute path of the main bundle's Resources directory, zero-terminated and without
  /// a trailing "/", into `buffer` of `size` bytes.
  ///
  /// Returns false, with the contents of `buffer` unspecified, when there is no such path or when
  /// it does not fit together with its terminating zero. A path is never cut. Whether the directory
  /// exists is not examined.
  static bool GetResourcesDirectory(char* buffer, std::size_t size);
};

#endif  // PLATFORM_BUNDLE_H_
