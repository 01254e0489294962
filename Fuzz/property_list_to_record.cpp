// Property list to record. Whatever bytes the preferences file holds,
//  - the record can be read, and nothing crashes or throws, the XML library included;
//  - a flush leaves a property list with the recorded values, each once;
//  - the values of the other keys have the bytes that they had; or the file was no list, and was
//    moved aside, unchanged;
//  - the same flush again leaves the same bytes, a clearing leaves no key, and values are recorded
//    after a clearing as before;
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

// Judged by the items' bytes ----------------------------------------------------------------------

/// The texts of the keys, and the bytes of the values.
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

/// The elements of the root dictionary, read with those flags.
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

/// The items of other programs.
Items OthersIn(const std::string& bytes) {
  Items items = ItemsOf(bytes);
  items.erase(std::remove_if(items.begin(), items.end(), IsRecorded), items.end());
  return items;
}

Items Recorded() {
  return {{kNumberKey, "<integer>" + std::to_string(kNumber) + "</integer>"},
          {kTextKey, "<string>" + std::string(kText) + "</string>"}};
}

/// The recorded items, in the order of the keys.
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

bool Wipe(PreferencesDomain& domain) {
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
  /// Below `root`, the same for all inputs: the domain keeps every root that it was used with.
  Examination(const std::string& root, const std::string& bytes) : root_(root), bytes_(bytes) {
    std::filesystem::create_directories(preferences_);
    WriteFile(file_, bytes);
    Require(ReadRecord(root_).has_value(), "the file can be read");
    Require(ReadFile(file_) == bytes, "reading changes nothing");
  }

  /// Leaves no file, and nothing pending in the domain.
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
    Require(Wipe(domain_) && ItemsOf(File()).empty(), "a wipe leaves no key");
    Require(Record(domain_) && ItemsOf(File()) == Recorded(), "recorded after a wipe");
  }

 private:
  bool IsAside() const { return IsThere(file_ + ".corrupt"); }

  /// The file. Nothing else is in its directory, except a file that was moved aside.
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
