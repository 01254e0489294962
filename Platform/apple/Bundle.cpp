#include "Bundle.h"

#include "ScopedCFTypeRef.h"

bool Bundle::GetResourcesDirectory(char* buffer, std::size_t size) {
  if (size < 2) {  // the conversion writes beyond a buffer for the terminating zero alone
    return false;
  }
  const CFBundleRef bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) {
    return false;
  }
  const ScopedCFTypeRef<CFURLRef> url(CFBundleCopyResourcesDirectoryURL(bundle));
  // The URL is relative to the URL of the bundle. Its path alone is no absolute path.
  constexpr Boolean kResolveAgainstBase = true;
  return url != nullptr && CFURLGetFileSystemRepresentation(url.get(), kResolveAgainstBase,
                                                            reinterpret_cast<UInt8*>(buffer),
                                                            static_cast<CFIndex>(size));
}
