#include "machine/Receipt.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>

#include "InstallerConstants.h"
#include "report/Report.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr char kFileName[] = "WebResources.receipt.json";
constexpr int kFormat = 1;
constexpr std::uint64_t kReceiptLimit = std::uint64_t{64} << 20U;
constexpr char kBegun[] = "begun";
constexpr char kInstalled[] = "installed";

// Writing -----------------------------------------------------------------------------------------

/// Returns `item` as one line. A document with all items would take much memory and time.
std::string LineOf(const FileItem& item) {
  Json path = Json::object();
  PutName(path, "path", item.path);
  std::string line = path.dump(-1, ' ', true);
  line.pop_back();  // the brace
  if (item.type == FileItem::Type::File) {
    line += R"(,"type":"file","size":)" + std::to_string(item.size) + R"(,"sha256":")" +
            DigestText(*item.sha256);
  } else {
    line += R"(,"type":"directory)";
  }
  line += R"(","mode":")" + Octal(*item.mode) + "\"}";
  return line;
}

constexpr char kEnd[] = "\n  ]\n}\n";

std::string TextOf(const Receipt& receipt) {
  Json head = {{"tool", "webresources"},
               {"version", WEBRESOURCES_VERSION},
               {"format", kFormat},
               {"state", receipt.isBegun ? kBegun : kInstalled},
               {"time", TimeText(std::time(nullptr))},
               {"product", PLIST_SECTION_KEY},
               {"updateId", receipt.updateId}};
  if (receipt.isBegun) {
    return Text(head);
  }
  head["packageSha256"] = receipt.packageSha256.value();
  const std::string withoutTree = Text(head);
  std::string text = withoutTree;
  text.resize(text.rfind("\n}"));
  const char* separator = ",\n  \"tree\": [\n    ";
  for (const FileItem& item : receipt.tree) {
    text += separator;
    text += LineOf(item);
    separator = ",\n    ";
    if (text.length() + sizeof kEnd > kReceiptLimit) {
      return withoutTree;
    }
  }
  return text + kEnd;
}

// Reading. Each function throws std::exception if the file is not a receipt. ----------------------

void Require(bool isSo, const char* defect) {
  if (!isSo) {
    throw std::invalid_argument(defect);
  }
}

/// Returns the integer `name` of `json`. Throws if the member is no integer from `least` to `most`.
std::int64_t NumberIn(const Json& json, const char* name, std::int64_t least, std::int64_t most) {
  const Json& member = json.at(name);
  Require(member.is_number_integer(), "a number is not an integer");
  const auto isTooLarge = [&] {
    return member.is_number_unsigned() &&
           member.get<std::uint64_t>() > static_cast<std::uint64_t>(most);
  };
  Require(
      !isTooLarge() && member.get<std::int64_t>() >= least && member.get<std::int64_t>() <= most,
      "a number is out of range");
  return member.get<std::int64_t>();
}

std::uint16_t ModeOf(const std::string& text) {
  Require(text.length() == 4 && text.find_first_not_of("01234567") == std::string::npos,
          "a mode is not four octal digits");
  return static_cast<std::uint16_t>(std::stoul(text, nullptr, 8));
}

FileItem ItemOf(const Json& json) {
  FileItem item;
  item.path = NameOf(json, "path");
  Require(!item.path.empty() && item.path.find('\0') == std::string::npos, "a path is no path");
  item.mode = ModeOf(json.at("mode").get<std::string>());
  const auto type = json.at("type").get<std::string>();
  Require(type == "file" || type == "directory", "a type is unknown");
  if (type == "file") {
    item.type = FileItem::Type::File;
    item.size = static_cast<std::uint64_t>(
        NumberIn(json, "size", 0, std::numeric_limits<std::int64_t>::max()));
    item.sha256 = DigestFrom(json.at("sha256").get<std::string>());
  }
  return item;
}

template <typename Names>
bool IsOneOf(const Names& names, std::string_view name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

/// Returns the sorted tree. Throws if the tree is empty or a path occurs twice.
FileTree Sorted(FileTree tree) {
  std::sort(tree.begin(), tree.end(),
            [](const FileItem& a, const FileItem& b) { return a.path < b.path; });
  const auto same =
      std::adjacent_find(tree.begin(), tree.end(),
                         [](const FileItem& a, const FileItem& b) { return a.path == b.path; });
  Require(same == tree.end() && !tree.empty(), "the tree is empty or has a path twice");
  return tree;
}

/// Parses a receipt. Converts each complete item of the tree and drops the JSON of the item, so
/// that only the tree takes memory. Refuses deeper nesting.
class Parser {
 public:
  /// Stops before the tree if all other members have been read, and `update` is another update.
  Parser(std::FILE* stream, const std::string& path, const std::optional<int>& update)
      : path_(path), update_(update) {
    try {
      const Json rest =
          Json::parse(stream, [this](int depth, Json::parse_event_t event, const Json& parsed) {
            return Take(depth, event, parsed);
          });
      Require(rest.is_object(), "it is not an object");
    } catch (const IsEnough&) {
      // without the tree
    }
    Require(head_.at("version").is_string(), "the version is not a text");
  }

  Receipt Result() {
    Require(head_.at("tool") == "webresources" && head_.at("product") == PLIST_SECTION_KEY,
            "it is of another product");
    const std::string state = head_.value("state", kInstalled);
    Require(state == kInstalled || state == kBegun, "its state is unknown");
    Receipt receipt;
    receipt.isBegun = state == kBegun;
    receipt.updateId =
        static_cast<int>(NumberIn(head_, "updateId", std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max()));
    receipt.time = head_.at("time").get<std::string>();
    if (!receipt.isBegun) {
      receipt.packageSha256 = DigestText(DigestFrom(head_.at("packageSha256").get<std::string>()));
      receipt.tree = hasTree_ ? Sorted(std::move(tree_)) : FileTree();
    }
    return receipt;
  }

 private:
  struct IsEnough {};

  static constexpr int kItemDepth = 2;  // below the document and its array

  bool Take(int depth, Json::parse_event_t event, const Json& parsed) {
    using Event = Json::parse_event_t;
    if (event == Event::object_start) {
      Require(depth == 0 || depth == kItemDepth, "it nests too deep");
      members_[depth].clear();
    } else if (event == Event::array_start) {
      Require(depth == 1 && name_ == kTree, "it nests too deep");
      StopIfEnough();
      hasTree_ = true;
    } else if (event == Event::key) {
      name_ = parsed.get<std::string>();
      Require(depth == 1 ? IsOneOf(kMembers, name_) : IsOneOf(kItemMembers, name_),
              "a member is unknown");
      Require(members_[depth - 1].insert(name_).second, "a member is there twice");
    } else if (event == Event::value && (depth == 1 || depth == kItemDepth)) {
      Require(depth == 1 && name_ != kTree, "a value is in a wrong place");
      head_[name_] = parsed;
      RequireFormat();  // before other members, because a newer format can have more members
    } else if (event == Event::object_end && depth == kItemDepth) {
      ThrowIfInterrupted("read", path_);
      tree_.push_back(ItemOf(parsed));
      return false;
    }
    return true;
  }

  void RequireFormat() const {
    if (name_ == "format" && head_["format"] != kFormat) {
      throw Error("read", path_, "it was written by a newer webresources", "use that version");
    }
  }

  void StopIfEnough() const {
    if (update_ && members_[0].size() == std::size(kMembers) && head_.at("updateId") != *update_) {
      throw IsEnough();
    }
  }

  static constexpr std::string_view kTree = "tree";
  static constexpr std::string_view kMembers[] = {
      "tool", "version", "format", "state", "time", "product", "updateId", "packageSha256", kTree};
  static constexpr std::string_view kItemMembers[] = {"type", "path",   "pathHex",
                                                      "size", "sha256", "mode"};

  const std::string& path_;
  const std::optional<int>& update_;
  Json head_;  ///< The members of the document, without the tree.
  FileTree tree_;
  bool hasTree_ = false;  ///< Whether the tree has been read.
  std::string name_;      ///< The latest name of a member.
  /// The names in the open object at each depth.
  std::set<std::string> members_[kItemDepth + 1];
};

constexpr char kRemedy[] = "remove it, then run webresources install";

InputFile OpenReceipt(const std::string& path) {
  try {
    return InputFile(path, Links::Refuse);
  } catch (const Error& error) {
    throw Error("read", path, error.reason(), error.remedy().value_or(kRemedy));
  }
}

}  // namespace

std::string ReceiptPath(const std::string& hostRoot) {
  return BesideInstallRoot(hostRoot, kFileName);
}

std::optional<Receipt> ReadReceipt(const std::string& hostRoot, const std::optional<int>& update,
                                   Findings& findings) {
  const std::string path = ReceiptPath(hostRoot);
  if (!Exists(path)) {
    return std::nullopt;
  }
  InputFile file = OpenReceipt(path);
  if (static_cast<std::uint64_t>(file.status().st_size) > kReceiptLimit) {
    throw Error("read", path, "it has more than " + std::to_string(kReceiptLimit) + " bytes",
                kRemedy);
  }
  const auto stream = file.TakeStream();
  try {
    Receipt receipt = Parser(stream.get(), path, update).Result();
    receipt.isOwnersOwn = file.status().st_uid == StatusOf(hostRoot + "/").st_uid;
    return receipt;
  } catch (const Error&) {
    throw;
  } catch (const Json::parse_error& error) {
    if (std::ferror(stream.get()) != 0) {
      errno = EIO;
      throw Error::FromErrno("read", path);
    }
    Add(findings, kReceiptDamaged, path,
        "it is not JSON: byte " + std::to_string(error.byte) + " is wrong");
  } catch (const Json::exception&) {
    Add(findings, kReceiptDamaged, path, "a member is missing or of another type");
  } catch (const std::exception& error) {
    Add(findings, kReceiptDamaged, path, error.what());
  }
  return std::nullopt;
}

void WriteReceipt(AtomicFile& file, const Receipt& receipt) {
  file.Write(TextOf(receipt));
  file.CommitDurably();
}

bool FindInReceipt(const Receipt& receipt, const Installation& installation, Findings& findings) {
  const std::string path = ReceiptPath(installation.hostRoot);
  const auto recorded = UpdateIdOf(installation.record);
  if (receipt.isBegun) {
    Add(findings, kInstallUnfinished, path,
        "an installation of update " + std::to_string(receipt.updateId) + " began at " +
            receipt.time + " and was not completed");
  } else if (receipt.updateId != recorded) {
    const std::string found = recorded ? "update " + std::to_string(*recorded) : "no update";
    Add(findings, kReceiptDiffers, path,
        "it is of update " + std::to_string(receipt.updateId) + ", and " + found + " is recorded");
  }
  return !receipt.isBegun && receipt.updateId == recorded;
}

}  // namespace webresources
