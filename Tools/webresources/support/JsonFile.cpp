#include "support/JsonFile.h"

#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

#include "support/Error.h"
#include "support/Files.h"

namespace webresources {

namespace {

using Json = nlohmann::ordered_json;

/// Ends the parser as soon as a document exceeds its limits.
class Guard {
 public:
  explicit Guard(const JsonLimits& limits) : limits_(limits) {}

  /// Is called by the parser for each part of the document; `depth` counts what is open.
  bool operator()(int depth, Json::parse_event_t event, const Json& part) {
    const auto level = static_cast<std::size_t>(depth);
    if (event == Json::parse_event_t::object_end || event == Json::parse_event_t::array_end) {
      return true;
    }
    Require(++values_ <= limits_.values, "it has too many values");
    if (event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start) {
      Require(level < limits_.depth, "it is nested too deeply");
      keys_.resize(level + 2);
      keys_[level + 1].clear();
    } else if (event == Json::parse_event_t::key) {
      const auto& key = part.get_ref<const std::string&>();
      Require(keys_.at(level).insert(key).second, "it has a key twice");
    }
    return true;
  }

 private:
  static void Require(bool condition, const char* reason) {
    if (!condition) {
      throw std::invalid_argument(reason);
    }
  }

  const JsonLimits limits_;
  std::size_t values_ = 0;
  std::vector<std::set<std::string>> keys_;  ///< Of the open objects, by their depth.
};

}  // namespace

nlohmann::ordered_json ReadJson(const std::string& path, const JsonLimits& limits) {
  Descriptor file = OpenRegular(path);
  if (const std::uint64_t size = SizeOf(*file, path); size > limits.bytes) {
    throw Error("read", path,
                "it has " + std::to_string(size) + " bytes, and " + std::to_string(limits.bytes) +
                    " are allowed");
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(fdopen(*file, "rb"), std::fclose);
  if (!stream) {
    throw Error::FromErrno("read", path);
  }
  file.Release();
  errno = 0;
  try {
    return Json::parse(stream.get(), Guard(limits));
  } catch (const std::exception&) {
    if (std::ferror(stream.get()) != 0) {
      throw Error::FromErrno("read", path);  // what looks like a truncated document
    }
    throw;
  }
}

}  // namespace webresources
