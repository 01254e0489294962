#ifndef PLATFORM_SHA256_H_
#define PLATFORM_SHA256_H_

#include <array>
#include <cstddef>
#include <memory>

/// Computes the SHA-256 digest of bytes that arrive in chunks.
///
///     Sha256 hash;
///     hash.Update(data, length);
///     const Sha256::Digest digest = hash.Finish();
///
/// One back end is compiled in: `apple/` on macOS (CommonCrypto), `posix/` elsewhere (nettle). Only
/// the command `webresources` uses this class.
class Sha256 {
 public:
  using Digest = std::array<unsigned char, 32>;

  Sha256();
  ~Sha256();

  /// Adds `length` bytes at `data`. Requires: `length` is less than 4 GiB.
  void Update(const void* data, std::size_t length);

  /// Returns the digest of all added bytes, and resets the object to the initial state.
  Digest Finish();

 private:
  struct Context;

  const std::unique_ptr<Context> context_;
};

#endif  // PLATFORM_SHA256_H_
