#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "InstallerConstants.h"
#include "StoredRecord.h"
#include "Support.h"

namespace {

const char kDirectory[] = "/Library/Preferences";

std::string Described(plist_t value) {
  if (plist_get_node_type(value) == PLIST_STRING) {
    return "'" + std::string(plist_get_string_ptr(value, nullptr)) + "'";
  }
  if (plist_get_node_type(value) != PLIST_UINT) {
    return "other";
  }
  std::uint64_t number = 0;
  plist_get_uint_val(value, &number);
  return std::to_string(static_cast<std::int64_t>(number));
}

}  // namespace

std::optional<std::string> StoredRecord::File() {
  return std::string(kDirectory) + "/" + PLIST_SECTION_KEY + ".plist";
}

void StoredRecord::Remove() {
  std::filesystem::remove_all("/Library");
  std::filesystem::create_directories(kDirectory);
}

void StoredRecord::Write(const std::string& members) {
  WriteFile(*File(), PropertyList(members));
}

std::string StoredRecord::Read() {
  const std::string bytes = ReadFile(*File());
  plist_t list = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.length()), &list);
  std::map<std::string, std::string> members;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(list, &iterator);
  char* key = nullptr;
  plist_t value = nullptr;
  while (plist_dict_next_item(list, iterator, &key, &value), key != nullptr) {
    members[key] = Described(value);
    std::free(key);
    key = nullptr;
  }
  std::free(iterator);
  plist_free(list);
  std::string described;
  for (const auto& [name, text] : members) {
    described.append(name).append("=").append(text).append(" ");
  }
  return described;
}
