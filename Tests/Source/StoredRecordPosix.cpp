#include <filesystem>
#include <map>
#include <pugixml.hpp>

#include "InstallerConstants.h"
#include "StoredRecord.h"
#include "Support.h"

namespace {

const char kDirectory[] = "/Library/Preferences";

std::string Described(pugi::xml_node value) {
  const std::string type = value.name();
  return type == "string"    ? std::string("'") + value.child_value() + "'"
         : type == "integer" ? value.child_value()
                             : "other";
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
  pugi::xml_document document;
  document.load_file(File()->c_str());
  std::map<std::string, std::string> members;
  for (const auto& key : document.child("plist").child("dict").children("key")) {
    members[key.child_value()] = Described(key.next_sibling());
  }
  std::string described;
  for (const auto& [name, text] : members) {
    described.append(name).append("=").append(text).append(" ");
  }
  return described;
}
