#ifndef TOOLS_WEBRESOURCES_SUPPORT_JSONFILE_H_
#define TOOLS_WEBRESOURCES_SUPPORT_JSONFILE_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace webresources {

/// How much of a JSON file is read, if another program may have written the file.
struct JsonLimits {
  std::uint64_t bytes;  ///< The largest size of the file.
  std::size_t depth;    ///< The largest number of arrays and objects inside each other.
  std::size_t values;   ///< The largest number of values and keys.
};

/// Returns the document in the regular file at `path`; a link there is not followed. Memory grows
/// with the number of values, not with the size of the file. Throws Error if the file cannot be
/// read or exceeds `limits.bytes`; std::invalid_argument or Json::exception if the content is not
/// JSON, exceeds the other limits, or has a key twice in one object.
nlohmann::ordered_json ReadJson(const std::string& path, const JsonLimits& limits);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_JSONFILE_H_
