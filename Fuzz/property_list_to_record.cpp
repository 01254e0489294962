// Property list to record. For every content of the preferences file,
//  - the record can be read, and no code crashes or throws, the XML library included;
//  - a flush writes a property list with each recorded value once;
//  - the values of other keys keep their bytes, or the file was no property list and was moved
//    aside unchanged;
//  - a second identical flush writes the same bytes, clearing leaves no key, and values can be
//    recorded after clearing;
//  - no temporary file stays.

#include <algorithm>
#include <functional>
#include <pugixml.hpp>
#include <utility>
#include <vector>

#include "Fuzz.h"
#include "InstallRecord.h"
#include "InstallerConstants.h"
#include "PreferencesDomain.h"
#include "TestFiles.h"

namespace {

const char kTextKey[] = "tWebResourceInstallPath";
const char kNumberKey[] = "iUpdateId";
const char kText[] = "Resource0";
constexpr int kNumber = -7;

// Comparison by the bytes of the items ------------------------------------------------------------

/// The keys and the bytes of their values.
using Items = std::vector<std::pair<std::string, std::string>>;

struct Printer : pugi::xml_writer {
  void write(const void* data, std::size_t size) override {
    bytes.append(static_cast<const char*>(data), size);
  }
  std::string bytes;
};

std::string BytesOf(pugi::xml_node node) {
  Printer printer;
  node.print(printer, "", pugi::format_raw | pugi::format_no_escapes);
  return printer.bytes;
}

std::string TextOf(pugi::xml_node node) {
  std::string text;
  for (const pugi::xml_node child : node.children()) {
    text += child.value();
  }
  return text;
}

/// Returns the elements of the root dictionary, read with `flags`.
std::vector<pugi::xml_node> ElementsOf(pugi::xml_document& document, const std::string& bytes,
                                       unsigned flags) {
  document.load_buffer(bytes.data(), bytes.size(), flags, pugi::encoding_utf8);
  std::vector<pugi::xml_node> elements;
  for (const pugi::xml_node child : document.child("plist").child("dict").children()) {
    if (child.type() == pugi::node_element) {
      elements.push_back(child);
    }
  }
  return elements;
}

Items ItemsOf(const std::string& bytes) {
  constexpr unsigned kTexts = pugi::parse_default | pugi::parse_ws_pcdata;
  constexpr unsigned kBytes = (pugi::parse_full | pugi::parse_ws_pcdata) & ~pugi::parse_escapes &
                              ~pugi::parse_eol & ~pugi::parse_wconv_attribute;
  pugi::xml_document texts;
  pugi::xml_document wholes;
  const auto keys = ElementsOf(texts, bytes, kTexts);
  const auto values = ElementsOf(wholes, bytes, kBytes);
  Require(keys.size() == values.size() && keys.size() % 2 == 0, "keys and values alternate");
  Items items;
  for (std::size_t i = 0; i < keys.size(); i += 2) {
    Require(keys[i].name() == std::string("key"), "a key is a key");
    items.emplace_back(TextOf(keys[i]), BytesOf(values[i + 1]));
  }
  return items;
}

bool IsRecorded(const Items::value_type& item) {
  return item.first == kTextKey || item.first == kNumberKey;
}

/// Returns the items of other programs.
Items OthersIn(const std::string& bytes) {
  Items items = ItemsOf(bytes);
  items.erase(std::remove_if(items.begin(), items.end(), IsRecorded), items.end());
  return items;
}

Items Recorded() {
  return {{kNumberKey, "<integer>" + std::to_string(kNumber) + "</integer>"},
          {kTextKey, "<string>" + std::string(kText) + "</string>"}};
}

/// Returns the recorded items, ordered by key.
Items RecordedIn(const std::string& bytes) {
  Items items = ItemsOf(bytes);
  items.erase(std::remove_if(items.begin(), items.end(), std::not_fn(IsRecorded)), items.end());
  std::sort(items.begin(), items.end());
  return items;
}

// The record --------------------------------------------------------------------------------------

bool Record(PreferencesDomain& domain) {
  domain.SetText(kTextKey, kText);
  domain.SetNumber(kNumberKey, kNumber);
  return domain.Flush();
}

bool Clear(PreferencesDomain& domain) {
  Require(domain.RemoveAll(), "there are keys");
  return domain.Flush();
}

void RequireRecorded(const std::string& root) {
  const auto record = ReadRecord(root);
  Require(record.has_value(), "the record can be read");
  Require(record->values.installPath == kText && record->values.updateId == kNumber,
          "the record is read back");
}

class Examination {
 public:
  /// Works below `root`, which is the same for all inputs because a domain keeps each of its roots.
  Examination(const std::string& root, const std::string& bytes) : root_(root), bytes_(bytes) {
    std::filesystem::create_directories(preferences_);
    WriteFile(file_, bytes);
    Require(ReadRecord(root_).has_value(), "the file can be read");
    Require(ReadFile(file_) == bytes, "reading changes nothing");
  }

  /// Deletes every file and the domain's pending changes.
  ~Examination() {
    std::filesystem::remove(file_);
    domain_.Flush();
    std::filesystem::remove_all(root_ + "/Library");
  }

  Examination(const Examination&) = delete;
  Examination& operator=(const Examination&) = delete;

  void Run() {
    Require(Record(domain_), "the record can be written");
    const std::string recorded = File();
    Require(RecordedIn(recorded) == Recorded(), "the values are recorded once");
    Require(OthersIn(recorded) == (IsAside() ? Items() : OthersIn(bytes_)), "the others are kept");
    RequireRecorded(root_);
    Require(Record(domain_) && File() == recorded, "the same again is the same");
    Require(Clear(domain_) && ItemsOf(File()).empty(), "clearing leaves no key");
    Require(Record(domain_) && ItemsOf(File()) == Recorded(), "recorded after clearing");
  }

 private:
  bool IsAside() const { return IsThere(file_ + ".corrupt"); }

  /// Returns the content of the file. Requires that the directory has no other file, except a file
  /// that was moved aside.
  std::string File() const {
    Tree tree = TreeOf(preferences_);
    Require(!IsAside() || tree[kName + ".corrupt"] == bytes_, "what is put aside is whole");
    Require(tree.size() == (IsAside() ? 2 : 1), "nothing else is there");
    return tree[kName];
  }

  static inline const std::string kName = PLIST_SECTION_KEY + ".plist";

  const std::string root_;
  const std::string bytes_;
  const std::string preferences_ = root_ + "/Library/Preferences";
  const std::string file_ = preferences_ + "/" + kName;
  PreferencesDomain domain_{PLIST_SECTION_KEY, root_};
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  static const ScopedDirectory directory;
  Examination(directory / "", bytes).Run();
  return 0;
}
