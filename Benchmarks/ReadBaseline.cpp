// The baseline of an extraction: reads and inflates every entry of an archive as the installer
// does. Writes nothing, so that no extraction by the same library can be faster. With FILE, appends
// the content of every entry to FILE.
//
//     ReadBaseline ARCHIVE [FILE]

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "Descriptor.h"
#include "PackageReader.h"

namespace {

bool ReadEntry(PackageReader& package, const Descriptor& output) {
  int count = 0;
  while ((count = package.Read()) > 0) {
    if (output && write(*output, package.chunk(), static_cast<unsigned int>(count)) != count) {
      return false;
    }
  }
  return count == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    return EXIT_FAILURE;
  }
  PackageReader package(argv[1]);
  const Descriptor output(argc >= 3 ? open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0666) : -1);
  std::uint64_t count = 0;
  for (; package.Next(); ++count) {
    if (!package.Open() || !ReadEntry(package, output)) {
      return EXIT_FAILURE;
    }
    package.Close();
  }
  return package.IsOpen() && count == package.EntryCount() ? EXIT_SUCCESS : EXIT_FAILURE;
}
