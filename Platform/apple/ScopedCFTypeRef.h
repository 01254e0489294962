#ifndef PLATFORM_APPLE_SCOPEDCFTYPEREF_H_
#define PLATFORM_APPLE_SCOPEDCFTYPEREF_H_

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <type_traits>

struct CFReleaser {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// Owns what a CoreFoundation function with "Create" or "Copy" in its name returned, which may be
/// null, and releases it once. What a "Get" function returned is not owned and must not be put
/// here.
template <typename Ref>
using ScopedCFTypeRef = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

#endif  // PLATFORM_APPLE_SCOPEDCFTYPEREF_H_
