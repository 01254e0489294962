#ifndef TOOLS_WEBRESOURCES_SUPPORT_DIGEST_H_
#define TOOLS_WEBRESOURCES_SUPPORT_DIGEST_H_

#include <string>

#include "Sha256.h"

/// SHA-256 digests of files, and as text.
namespace digests {

/// The digest of the regular file at `path`; a link there is not followed. Throws Error if it
/// cannot be read, or if it is not a regular file.
Sha256::Digest OfFile(const std::string& path);

/// `digest` in hexadecimal.
std::string ToText(const Sha256::Digest& digest);

/// The digest that ToText() has made `text` of. Throws std::invalid_argument if there is none.
Sha256::Digest FromText(const std::string& text);

}  // namespace digests

#endif  // TOOLS_WEBRESOURCES_SUPPORT_DIGEST_H_
