#ifndef TOOLS_WEBRESOURCES_SUPPORT_SHA256_H_
#define TOOLS_WEBRESOURCES_SUPPORT_SHA256_H_

#include <nettle/sha2.h>

#include <array>
#include <cstddef>
#include <string>

/// Computes a SHA-256 digest of bytes that arrive in portions.
///
///     Sha256 hash;
///     hash.Update(data, length);
///     const Sha256::Digest digest = hash.Finish();
class Sha256 {
 public:
  using Digest = std::array<unsigned char, SHA256_DIGEST_SIZE>;

  Sha256();

  /// Adds `length` bytes at `data`.
  void Update(const void* data, std::size_t length);

  /// The digest of all bytes added so far. Afterwards the object is as if newly made.
  Digest Finish();

  /// The digest of the regular file at `path`; a link there is not followed. Throws Error if it
  /// cannot be read, or if it is not a regular file.
  static Digest OfFile(const std::string& path);

  /// `digest` in hexadecimal, and back. FromText() throws std::invalid_argument if `text` is not a
  /// digest.
  static std::string ToText(const Digest& digest);
  static Digest FromText(const std::string& text);

 private:
  sha256_ctx context_;
};

#endif  // TOOLS_WEBRESOURCES_SUPPORT_SHA256_H_
