#include "bundle/BundleFiles.h"

#include <unistd.h>

#include "InstallerConstants.h"
#include "support/Error.h"
#include "support/Files.h"

namespace webresources {

BundleFiles FindBundleFiles(std::string path) {
  while (path.length() > 1 && path.back() == '/') {
    path.pop_back();
  }
  if (!S_ISDIR(StatusOf(path).st_mode)) {
    throw Error("read", path, "it is not a directory");
  }
  for (const char* inside : {"/Contents/Resources", "/Resources"}) {
    if (IsDirectory(path + inside)) {
      path += inside;
      break;
    }
  }
  if (access(path.c_str(), R_OK | X_OK) != 0) {
    throw Error::FromErrno("read", path);
  }
  return {path, path + "/" + kPackageFileName, path + "/" + kMetadataFileName};
}

}  // namespace webresources
