#include "Bundle.h"

#include "ScopedCFTypeRef.h"

bool Bundle::GetResourcesDirectory(char* buffer, std::size_t size) {
  if (size < 2) {  // for the terminating zero alone: the conversion would write beyond it
    return false;
  }
  const CFBundleRef bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) {
    return false;
  }
  const ScopedCFTypeRef<CFURLRef> url(CFBundleCopyResourcesDirectoryURL(bundle));
  // The URL is relative to the bundle's: unresolved, its path would be so to the working directory.
  constexpr Boolean kResolveAgainstBase = true;
  return url != nullptr && CFURLGetFileSystemRepresentation(url.get(), kResolveAgainstBase,
                                                            reinterpret_cast<UInt8*>(buffer),
                                                            static_cast<CFIndex>(size));
}
