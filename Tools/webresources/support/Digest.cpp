#include "Digest.h"

#include <algorithm>
#include <stdexcept>

#include "Files.h"
#include "Names.h"

namespace digests {

Sha256::Digest OfFile(const std::string& path) {
  Sha256 hash;
  ForEachPortion(path,
                 [&hash](const char* bytes, std::size_t length) { hash.Update(bytes, length); });
  return hash.Finish();
}

std::string ToText(const Sha256::Digest& digest) {
  return names::Hexadecimal(std::string(digest.begin(), digest.end()));
}

Sha256::Digest FromText(const std::string& text) {
  const std::string bytes = names::FromHexadecimal(text);
  Sha256::Digest digest = {};
  if (bytes.size() != digest.size()) {
    throw std::invalid_argument("it is not a SHA-256 digest: " + text);
  }
  std::copy(bytes.begin(), bytes.end(), digest.begin());
  return digest;
}

}  // namespace digests
