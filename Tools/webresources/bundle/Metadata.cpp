#include "bundle/Metadata.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
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

/// The scanner is recursive and does not limit the nesting, so this does: each level takes stack.
constexpr int kContainersRead = 1000;

/// The answer of one query; nothing if it aborts the run.
template <typename Query>
auto Ask(Query query) -> std::optional<decltype(query())> {
  try {
    return query();
  } catch (const QDOException&) {
    return std::nullopt;
  }
}

Metadata::RunOutcome OutcomeOf(const Metadata& metadata) {
  if (!metadata.clear) {
    return Metadata::RunOutcome::Nothing;
  }
  if (!metadata.updateId) {
    return Metadata::RunOutcome::Extracted;
  }
  return metadata.regenerate ? Metadata::RunOutcome::Complete : Metadata::RunOutcome::AllButRandom;
}

/// The words of the file, counted as they are read.
struct Words {
  explicit Words(const std::string& path) {
    std::ifstream stream(path);
    for (std::string word; stream >> word; last = word) {
      ++count;
    }
  }

  int count = 0;
  std::string last;  ///< With any zero byte in it.
};

/// The members that the JSON object `text` has more than once; none if it is not standard JSON.
std::set<std::string> RepeatedMembers(const std::string& text) {
  std::set<std::string> seen;
  std::set<std::string> repeated;
  const auto collect = [&](int depth, nlohmann::json::parse_event_t event,
                           const nlohmann::json& parsed) {
    if (event == nlohmann::json::parse_event_t::key && depth == 1 &&
        !seen.insert(parsed.get<std::string>()).second) {
      repeated.insert(parsed.get<std::string>());
    }
    return true;
  };
  const bool isJson = !nlohmann::json::parse(text, collect, false).is_discarded();
  return isJson ? repeated : std::set<std::string>();
}

/// The number that the JSON object `text` has for the member `name`; nothing if that is no number,
/// or if the text is not standard JSON.
std::optional<double> NumberIn(const std::string& text, const char* name) {
  const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  const auto member = json.find(name);
  // The installer has read a number there.
  if (member == json.end() || !member->is_number()) {  // GCOVR_EXCL_BR_LINE
    return std::nullopt;
  }
  return member->get<double>();
}

class MetadataFinder {
 public:
  explicit MetadataFinder(const std::string& path) : path_(path) {}

  Metadata Find() {
    if (StateOf(path_) == FileState::Missing) {
      AddHere(kMetadataMissing, "the run ends before anything is written");
    } else {
      FindInFile();
    }
    metadata_.outcome = OutcomeOf(metadata_);
    return std::move(metadata_);
  }

 private:
  void FindInFile() {
    const Words words(path_);
    word_ = MetadataHelper::LastWord(path_);
    if (std::count(word_.begin(), word_.end(), '[') + std::count(word_.begin(), word_.end(), '{') >
        kContainersRead) {
      throw Error("read", path_,
                  "it has more than " + std::to_string(kContainersRead) + " arrays and objects");
    }
    QDOObject object = QDOJSONParser::fromJSON(word_, true);
    if (object.getType() != QDOObject::Map) {
      AddHere(words.count > 1 ? kMetadataBlank : kMetadataNotObject,
              word_.empty() ? "it holds no word"
                            : "the installer reads its last word, which is no object: " + word_);
      return;
    }
    if (words.count > 1) {
      AddHere(kMetadataIgnoredText, "the installer reads only its last word");
    }
    if (words.last != word_) {
      AddHere(kMetadataIgnoredText, "the installer reads its last word up to a zero byte");
    }
    if (!nlohmann::json::accept(word_)) {
      AddHere(kMetadataSyntax,
              "it is not standard JSON; the installer reads what it can of it: " + word_);
    }
    const std::set<std::string> repeated = RepeatedMembers(word_);
    for (const std::string& member : repeated) {
      AddTo(kMetadataRepeatedMember, member,
            "it is there more than once; the installer reads the first one");
    }
    Query(object.getMap());
    if (metadata_.updateId && repeated.count("updateid") == 0) {
      FindMisreading(*metadata_.updateId);
    }
  }

  void Query(std::map<std::string, QDOObject>& members) {
    MetadataHelper helper(path_);
    metadata_.clear = Ask([&helper] { return helper.shouldClearRegistry(); });
    metadata_.updateId = Ask([&helper] { return helper.getUpdateId(); });
    metadata_.regenerate = Ask([&helper] { return helper.shouldRegenerateRandom(); });
    FindInMember(members, "clear", metadata_.clear.has_value());
    FindInMember(members, "updateid", metadata_.updateId.has_value());
    FindInMember(members, "regenerate", metadata_.regenerate.has_value());
    if (metadata_.updateId) {
      FindInUpdateId(*metadata_.updateId);
    }
  }

  void FindInMember(std::map<std::string, QDOObject>& members, const std::string& name,
                    bool isAccepted) {
    if (isAccepted) {
      return;
    }
    const auto member = members.find(name);
    if (member == members.end()) {
      AddTo(kMetadataMemberMissing, name, "it is missing");
    } else if (name == "updateid" && member->second.getType() == QDOObject::Int64) {
      AddTo(kMetadataUpdateidRange, name, "it does not fit 32 bits");
    } else {
      AddTo(kMetadataMemberType, name, "its value has another type");
    }
  }

  void FindInUpdateId(int updateId) {
    const std::string version = OSUtils::CompleteVersion(updateId);
    if (updateId == WebRegInfo().updateId) {
      AddTo(kMetadataUpdateidAbsent, "updateid",
            "-1 means that no number is recorded: the next run with \"clear\" loses it");
    } else if (version.substr(version.rfind('.') + 1) != std::to_string(updateId)) {
      AddTo(kMetadataUpdateidCut, "updateid", "the full version will be " + version);
    }
  }

  /// The scanner lets large integers wrap around, and the result may fit 32 bits.
  void FindMisreading(int updateId) {
    const std::optional<double> written = NumberIn(word_, "updateid");
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
  std::string word_;
  Metadata metadata_;
};

}  // namespace

Metadata ReadMetadata(const std::string& path) {
  return MetadataFinder(path).Find();
}

std::string Describe(Metadata::RunOutcome outcome) {
  switch (outcome) {
    case Metadata::RunOutcome::Nothing:
      return "aborts before anything is written";
    case Metadata::RunOutcome::Extracted:
      return "aborts after the package is extracted and its directory recorded: the update number "
             "is not recorded, nothing is deleted";
    case Metadata::RunOutcome::AllButRandom:
      return "aborts at the end: everything is done except the random identifier";
    default:
      return "exits with 0 when all is done";
  }
}

}  // namespace webresources
