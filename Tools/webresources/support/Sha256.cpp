#include "Sha256.h"

#include <algorithm>
#include <stdexcept>

#include "Files.h"
#include "Names.h"

Sha256::Sha256() : context_() {
  sha256_init(&context_);
}

void Sha256::Update(const void* data, std::size_t length) {
  sha256_update(&context_, length, static_cast<const unsigned char*>(data));
}

Sha256::Digest Sha256::Finish() {
  Digest digest = {};
  sha256_digest(&context_, digest.size(), digest.data());
  return digest;
}

Sha256::Digest Sha256::OfFile(const std::string& path) {
  Sha256 hash;
  ForEachPortion(path,
                 [&hash](const char* bytes, std::size_t length) { hash.Update(bytes, length); });
  return hash.Finish();
}

std::string Sha256::ToText(const Digest& digest) {
  return names::Hexadecimal(std::string(digest.begin(), digest.end()));
}

Sha256::Digest Sha256::FromText(const std::string& text) {
  const std::string bytes = names::FromHexadecimal(text);
  Digest digest = {};
  if (bytes.size() != digest.size()) {
    throw std::invalid_argument("it is not a SHA-256 digest: " + text);
  }
  std::copy(bytes.begin(), bytes.end(), digest.begin());
  return digest;
}
