#include "PreferencesDomain.h"

#include <cstring>
#include <utility>

#include "PropertyListFile.h"

namespace {

/// The changes of this process that are not flushed, for each file. Never destroyed: a domain may
/// be used until the process ends.
PropertyList::Changes& Pending(const std::string& path) {
  static auto& pending = *new std::map<std::string, PropertyList::Changes>;
  return pending[path];
}

void Change(const std::string& path, const std::string& key,
            PropertyList::Changes::mapped_type value) {
  if (PropertyList::IsText(key)) {
    Pending(path)[key] = std::move(value);
  }
}

/// The values of `list`, with the changes of this process to the file.
PropertyList::Contents WithPending(PropertyList list, const std::string& path) {
  list.Apply(Pending(path));
  return list.Values();
}

PropertyList::Contents Current(const std::string& path) {
  return WithPending(ReadPropertyList(path).value_or(PropertyList()), path);
}

template <typename T>
std::optional<T> Find(const std::string& path, const std::string& key) {
  PropertyList::Contents contents = Current(path);
  const auto found = contents.find(key);
  if (found == contents.end() || !std::holds_alternative<T>(found->second)) {
    return {};
  }
  return std::get<T>(std::move(found->second));
}

}  // namespace

// The identifier is not examined for the suffix: one that ends in ".plist" gets it a second time.
PreferencesDomain::PreferencesDomain(const std::string& applicationIdentifier,
                                     const std::string& root)
    : name_(root + "/Library/Preferences/" + applicationIdentifier + ".plist") {}

void PreferencesDomain::SetText(const std::string& key, const std::string& value) {
  if (PropertyList::IsText(value)) {
    Change(name_, key, value);
  }
}

void PreferencesDomain::SetNumber(const std::string& key, int value) {
  Change(name_, key, value);
}

void PreferencesDomain::Remove(const std::string& key) {
  Change(name_, key, std::nullopt);
}

bool PreferencesDomain::RemoveAll() {
  const PropertyList::Contents contents = Current(name_);
  for (const auto& [key, value] : contents) {
    Remove(key);
  }
  return !contents.empty();
}

bool PreferencesDomain::Has(const std::string& key) const {
  return Current(name_).count(key) != 0;
}

bool PreferencesDomain::GetText(const std::string& key, char* buffer, std::size_t size) const {
  const auto text = Find<std::string>(name_, key);
  if (!text || text->length() >= size) {
    return false;
  }
  std::memcpy(buffer, text->c_str(), text->length() + 1);
  return true;
}

std::optional<int> PreferencesDomain::GetNumber(const std::string& key) const {
  return Find<int>(name_, key);
}

bool PreferencesDomain::Flush() {
  PropertyList::Changes& pending = Pending(name_);
  const bool isFlushed =
      pending.empty() ? ReadPropertyList(name_).has_value() : ChangePropertyList(name_, pending);
  if (isFlushed) {
    pending.clear();
  }
  return isFlushed;
}

std::optional<std::vector<PreferencesDomain::Value>> PreferencesDomain::Read(
    const std::vector<std::string>& keys) const {
  auto list = ReadPropertyList(name_);
  if (!list) {
    return std::nullopt;
  }
  PropertyList::Contents contents = WithPending(*std::move(list), name_);
  std::vector<Value> values(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto found = contents.find(keys[i]);
    if (found != contents.end()) {
      values[i].isPresent = true;
      if (const int* number = std::get_if<int>(&found->second)) {
        values[i].number = *number;
      } else if (std::string* text = std::get_if<std::string>(&found->second)) {
        values[i].text = std::move(*text);
      }
    }
  }
  return values;
}

bool PreferencesDomain::Erase(const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    Pending(name_).erase(key);
  }
  return RemoveFromPropertyList(name_, keys);
}
