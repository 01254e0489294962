#ifndef PLATFORM_APPLE_SCOPEDCFTYPEREF_H_
#define PLATFORM_APPLE_SCOPEDCFTYPEREF_H_

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <type_traits>

struct CFReleaser {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// Owns a CoreFoundation object and releases the object once. The pointer may be null. Requires:
/// the object is the result of a "Create" or "Copy" function. The caller does not own the result of
/// a "Get" function.
template <typename Ref>
using ScopedCFTypeRef = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

#endif  // PLATFORM_APPLE_SCOPEDCFTYPEREF_H_
