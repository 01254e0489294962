#include "bundle/Metadata.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "InstallerConstants.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "QDOException.h"
#include "QDOJSONParser.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"

namespace webresources {

namespace {

/// The scanner is recursive and has no limit for the nesting. This limit bounds the stack.
constexpr int kContainersRead = 1000;

/// The installer has no limit for the size either, and a sparse file can be larger than the memory.
constexpr off_t kMetadataLimit = off_t{1} << 20U;

Metadata::RunOutcome OutcomeOf(const Metadata& metadata) {
  if (!metadata.clear) {
    return Metadata::RunOutcome::Nothing;
  }
  if (!metadata.updateId) {
    return Metadata::RunOutcome::Extracted;
  }
  return metadata.regenerate ? Metadata::RunOutcome::Complete : Metadata::RunOutcome::AllButRandom;
}

/// The result of a standard JSON parser, for a comparison with the installer's result.
struct StandardReading {
  explicit StandardReading(const std::string& text) {
    std::set<std::string> seen;
    const auto collect = [&](int depth, nlohmann::json::parse_event_t event,
                             const nlohmann::json& parsed) {
      if (event == nlohmann::json::parse_event_t::key && depth == 1 &&
          !seen.insert(parsed.get<std::string>()).second) {
        repeated.insert(parsed.get<std::string>());
      }
      return true;
    };
    json = nlohmann::json::parse(text, collect, false);
    if (json.is_discarded()) {
      repeated.clear();
    }
  }

  /// Returns the number of the member `name`. Returns nothing if the member is no number.
  std::optional<double> Number(const char* name) const {
    const auto member = json.find(name);
    // The installer has read the member as a number.
    if (member == json.end() || !member->is_number()) {  // GCOVR_EXCL_BR_LINE
      return std::nullopt;
    }
    return member->get<double>();
  }

  nlohmann::json json;             ///< Discarded if the text is not standard JSON.
  std::set<std::string> repeated;  ///< The members that the object has more than once.
};

class MetadataFinder {
 public:
  explicit MetadataFinder(const std::string& path) : path_(path) {}

  Metadata Find() {
    if (!IsPresent(path_)) {
      AddHere(kMetadataMissing, "it is missing: the run ends before anything is written");
    } else {
      FindInFile();
    }
    metadata_.outcome = OutcomeOf(metadata_);
    return std::move(metadata_);
  }

 private:
  void FindInFile() {
    if (StatusOf(path_).st_size > kMetadataLimit) {
      throw Error("read", path_, "it has more than 1 MiB", "write metadata.txt, as pack does");
    }
    const MetadataHelper::Words words = MetadataHelper::ReadWords(path_);
    if (words.isUnreadable && !IsDirectory(path_)) {
      throw Error("read", path_, "its content is unknown");
    }
    const std::string word = words.Text();
    if (std::count(word.begin(), word.end(), '[') + std::count(word.begin(), word.end(), '{') >
        kContainersRead) {
      throw Error("read", path_,
                  "it has more than " + std::to_string(kContainersRead) + " arrays and objects");
    }
    const QDOObject object = QDOJSONParser::fromJSON(word, true);
    if (object.getType() != QDOObject::Map) {
      AddHere(words.count > 1 ? kMetadataBlank : kMetadataNotObject,
              IsDirectory(path_) ? "it is a directory"
              : word.empty()     ? "it holds no word"
                             : "the installer reads its last word, which is no object: " + word);
      return;
    }
    if (words.count > 1) {
      AddHere(kMetadataIgnoredText, "the installer reads only its last word");
    }
    if (words.last != word) {
      AddHere(kMetadataIgnoredText, "the installer reads its last word up to a zero byte");
    }
    const StandardReading standard(word);
    if (standard.json.is_discarded()) {
      AddHere(kMetadataSyntax,
              "it is not standard JSON; the installer reads what it can of it: " + word);
    }
    for (const std::string& member : standard.repeated) {
      AddTo(kMetadataRepeatedMember, member,
            "it is there more than once; the installer reads the first one");
    }
    Query(object);
    if (metadata_.updateId && standard.repeated.count("updateid") == 0) {
      FindMisreading(standard, *metadata_.updateId);
    }
  }

  void Query(const QDOObject& object) {
    Ask(object, "clear", &MetadataHelper::shouldClearRegistry, metadata_.clear);
    Ask(object, "updateid", &MetadataHelper::getUpdateId, metadata_.updateId);
    Ask(object, "regenerate", &MetadataHelper::shouldRegenerateRandom, metadata_.regenerate);
    if (metadata_.updateId) {
      AddUpdateIdFindings(metadata_.findings, *metadata_.updateId);
    }
  }

  /// Stores the answer of one query; adds a finding if the query aborts the run.
  template <typename Value>
  void Ask(const QDOObject& object, const std::string& name, Value (MetadataHelper::*query)(),
           std::optional<Value>& answer) {
    try {
      answer = (MetadataHelper(object).*query)();
    } catch (const QDOException&) {
      FindInMember(object.getMap(), name);
    }
  }

  void FindInMember(const std::map<std::string, QDOObject>& members, const std::string& name) {
    const auto member = members.find(name);
    if (member == members.end()) {
      AddTo(kMetadataMemberMissing, name, "it is missing");
    } else if (name == "updateid" && member->second.getType() == QDOObject::Int64) {
      AddTo(kMetadataUpdateidRange, name, "it does not fit 32 bits");
    } else {
      AddTo(kMetadataMemberType, name, "its value has another type");
    }
  }

  /// Large integers wrap around in the scanner, and the result may fit 32 bits.
  void FindMisreading(const StandardReading& standard, int updateId) {
    const std::optional<double> written = standard.Number("updateid");
    if (written && *written != updateId) {
      AddTo(kMetadataUpdateidMisread, "updateid",
            "it is too large: the installer reads it as " + std::to_string(updateId));
    }
  }

  void AddHere(const Rule& rule, const std::string& reason) {
    AddTo(rule, kMetadataFileName, reason);
  }

  void AddTo(const Rule& rule, const std::string& subject, const std::string& reason) {
    Add(metadata_.findings, rule, subject, reason);
  }

  const std::string& path_;
  Metadata metadata_;
};

}  // namespace

Metadata ReadMetadata(const std::string& path) {
  return MetadataFinder(path).Find();
}

void AddUpdateIdFindings(Findings& findings, int updateId) {
  const std::string version = OSUtils::CompleteVersion(updateId);
  if (updateId == WebRegInfo().updateId) {
    Add(findings, kMetadataUpdateidAbsent, "updateid",
        "-1 means that no number is recorded: the next run with \"clear\" loses it");
  } else if (version.substr(version.rfind('.') + 1) != std::to_string(updateId)) {
    Add(findings, kMetadataUpdateidCut, "updateid", "the full version will be " + version);
  }
}

namespace {

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace

Json ToJson(const Metadata& metadata) {
  return {{"clear", OrNull(metadata.clear)},
          {"updateid", OrNull(metadata.updateId)},
          {"regenerate", OrNull(metadata.regenerate)}};
}

std::string ValueText(const Json& value) {
  return value.is_null() ? "missing" : value.dump();
}

std::string Describe(Metadata::RunOutcome outcome) {
  constexpr const char* kDescriptions[] = {
      // in the order of the enumerators
      "aborts before anything is written",
      ("aborts after the package is extracted and its directory recorded: the update number is not "
       "recorded, nothing is deleted"),
      "aborts at the end: everything is done except the random identifier",
      "exits with 0 when all is done"};
  return kDescriptions[static_cast<int>(outcome)];
}

}  // namespace webresources
