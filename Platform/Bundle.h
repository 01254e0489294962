#ifndef PLATFORM_BUNDLE_H_
#define PLATFORM_BUNDLE_H_

#include <cstddef>

/// The location of the resources in the application bundle of the running program.
///
/// One back end is compiled in: `apple/` asks CoreFoundation for the main bundle, `posix/` works
/// from the path by which the program was executed.
class Bundle {
 public:
  Bundle() = delete;

  /// Writes the absolute path of the main bundle's Resources directory, zero-terminated and without
  /// a trailing "/", into `buffer` of `size` bytes.
  ///
  /// Returns false, with the contents of `buffer` unspecified, if there is no such path, or if path
  /// and terminating zero do not fit. A path is never truncated. The directory need not exist.
  static bool GetResourcesDirectory(char* buffer, std::size_t size);
};

#endif  // PLATFORM_BUNDLE_H_
