// Property list to record. Whatever bytes the preferences file holds,
//  - the record can be read, and nothing crashes or throws, libplist included;
//  - a flush leaves a property list with what was recorded;
//  - the other keys have the values they had; or the file was no list, or could not be printed, and
//    was moved aside, unchanged;
//  - the same flush again leaves the same bytes, a wipe leaves no key, and what follows a wipe is
//    recorded as before;
//  - no temporary file stays.

#include <plist/plist.h>

#include <memory>

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

// Judged by libplist alone ------------------------------------------------------------------------

using Values = std::map<std::string, std::string>;

struct FreeList {
  void operator()(void* list) const { plist_free(list); }
};
using List = std::unique_ptr<void, FreeList>;

/// Not plist_from_memory(), whose parameters differ from release to release.
List Parse(const std::string& bytes) {
  plist_t list = nullptr;
  (bytes.rfind("bplist", 0) == 0 ? plist_from_bin : plist_from_xml)(
      bytes.data(), static_cast<std::uint32_t>(bytes.size()), &list);
  return List(list);
}

std::string Rendered(plist_t value);

/// The rendered values of a dictionary by their keys.
Values ItemsOf(plist_t dictionary) {
  Values values;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  const std::unique_ptr<void, void (*)(void*)> owner(iterator, std::free);
  plist_t value = nullptr;
  for (char* key = nullptr;; std::free(key)) {
    plist_dict_next_item(dictionary, iterator, &key, &value);
    if (key == nullptr) {
      return values;
    }
    Require(values.emplace(key, Rendered(value)).second, "the key is there once");
  }
}

/// An integer as XML, whose binary form may be longer than it need be.
std::string RenderedScalar(plist_t value) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  const bool isInteger = plist_get_node_type(value) == PLIST_UINT;
  (isInteger ? plist_to_xml : plist_to_bin)(value, &bytes, &size);
  const std::unique_ptr<char, void (*)(void*)> owner(bytes, std::free);
  return std::string(bytes, size);
}

/// The value with its type, as bytes. Not containers in libplist's binary form: which equal values
/// share one object there differs from time to time.
std::string Rendered(plist_t value) {
  const plist_type type = plist_get_node_type(value);
  if (type != PLIST_ARRAY && type != PLIST_DICT) {
    return RenderedScalar(value);
  }
  std::string all(1, type == PLIST_ARRAY ? '[' : '{');
  if (type == PLIST_ARRAY) {
    for (std::uint32_t i = 0; i < plist_array_get_size(value); ++i) {
      all += Rendered(plist_array_get_item(value, i)) + ',';
    }
  } else {
    for (const auto& [key, item] : ItemsOf(value)) {
      all += key + ':' + item + ',';
    }
  }
  return all + ']';
}

Values ValuesOf(const std::string& bytes) {
  const List list = Parse(bytes);
  Require(plist_get_node_type(list.get()) == PLIST_DICT, "the file is a dictionary");
  return ItemsOf(list.get());
}

/// Read from a file: how a negative number is made differs from release to release.
Values Recorded() {
  return ValuesOf(std::string("<plist><dict><key>") + kTextKey + "</key><string>" + kText +
                  "</string><key>" + kNumberKey + "</key><integer>" + std::to_string(kNumber) +
                  "</integer></dict></plist>");
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
    Require(ValuesOf(recorded) == Expected(), "the other keys are kept");
    RequireRecorded(root_);
    Require(Record(domain_) && File() == recorded, "the same again is the same");
    Require(Wipe(domain_) && ValuesOf(File()).empty(), "a wipe leaves no key");
    Require(Record(domain_) && ValuesOf(File()) == Recorded(), "recorded after a wipe");
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

  Values Expected() const {
    Values values = Recorded();
    if (!IsAside()) {
      values.merge(ValuesOf(bytes_));
    }
    return values;
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
