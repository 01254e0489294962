#ifndef TOOLS_WEBRESOURCES_PACKAGE_H_
#define TOOLS_WEBRESOURCES_PACKAGE_H_

#include <unzip.h>

#include <cstdint>
#include <memory>
#include <string>

/// One entry as the package's directory gives it to the installer.
struct PackageEntry {
  bool isReadable = false;       ///< False: nothing else is known of it.
  std::string name;              ///< Up to its first zero byte, and to 511 bytes.
  unsigned long nameLength = 0;  ///< As stored.
  unsigned long flags = 0;
  unsigned long method = 0;
  unsigned long madeBy = 0;
  unsigned long externalAttributes = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;

  bool IsEncrypted() const { return (flags & 1U) != 0; }
  bool HasUtf8Flag() const { return (flags & 0x800U) != 0; }
  bool IsLink() const;
};

/// The package, read in the way the installer reads it: with the same library, the same calls and
/// the same portions, so that it fails where the installer fails.
class Package {
 public:
  /// Throws Error when there may be a package at `path` but the rights to read it are missing.
  explicit Package(const std::string& path);

  /// False: the installer takes the package for missing.
  bool IsOpen() const { return archive_ != nullptr; }

  /// How many entries the package says it has.
  std::uint64_t EntryCount() const { return count_; }

  // The current entry: the first one at the beginning.

  PackageEntry Entry() const;
  bool GoToNext() { return unzGoToNextFile(archive_.get()) == UNZ_OK; }

  using Position = unz64_file_pos;
  Position Tell() const;
  bool Seek(const Position& position);

  // The current entry's data. Read() returns how many bytes were read, 0 at the end, less on an
  // error; Close() returns whether the checksum was right, as far as it was compared.

  static constexpr unsigned int kPortion = 8192;

  bool Open() { return unzOpenCurrentFile(archive_.get()) == UNZ_OK; }
  int Read(char (&portion)[kPortion]) {
    return unzReadCurrentFile(archive_.get(), portion, kPortion);
  }
  bool Close() { return unzCloseCurrentFile(archive_.get()) == UNZ_OK; }

 private:
  struct Closer {
    void operator()(void* archive) const { unzClose(archive); }
  };

  std::unique_ptr<void, Closer> archive_;
  std::uint64_t count_ = 0;
};

#endif  // TOOLS_WEBRESOURCES_PACKAGE_H_
