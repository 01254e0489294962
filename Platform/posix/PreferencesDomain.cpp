#include "PreferencesDomain.h"

#include <cerrno>
#include <utility>

#include "PropertyListFile.h"

namespace {

/// Returns the pending changes of this process for the file at `path`. The changes are never
/// destroyed, because a domain can be used until the process ends.
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

/// Returns the values of `list`, the content of the file at `path`, with the pending changes.
PropertyList::Contents WithPending(std::optional<PropertyList> list, const std::string& path) {
  PropertyList current = std::move(list).value_or(PropertyList());
  current.Apply(Pending(path));
  return current.Values();
}

}  // namespace

// An identifier that ends in ".plist" gets the suffix a second time.
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
  const PropertyList::Contents contents = WithPending(ReadPropertyList(name_), name_);
  for (const auto& [key, value] : contents) {
    Remove(key);
  }
  return !contents.empty();
}

bool PreferencesDomain::Read(const std::vector<std::string>& keys,
                             std::vector<Value>* values) const {
  auto list = ReadPropertyList(name_);
  const bool isRead = list.has_value();
  const int reason = errno;
  PropertyList::Contents contents = WithPending(std::move(list), name_);
  values->clear();
  for (const std::string& key : keys) {
    values->push_back(contents[key]);
  }
  errno = reason;
  return isRead;
}

bool PreferencesDomain::Flush() {
  PropertyList::Changes& pending = Pending(name_);
  const bool isFlushed = pending.empty() ? ReadPropertyList(name_).has_value()
                                         : ChangePropertyList(name_, pending, Emptied::Keep);
  if (isFlushed) {
    pending.clear();
  }
  return isFlushed;
}

bool PreferencesDomain::Erase(const std::vector<std::string>& keys) {
  const auto list = ReadPropertyList(name_);
  const auto contents = list ? list->Values() : PropertyList::Contents();
  PropertyList::Changes changes;
  for (const std::string& key : keys) {
    Pending(name_).erase(key);
    if (contents.count(key) != 0) {
      changes[key] = std::nullopt;
    }
  }
  return list && (changes.empty() || ChangePropertyList(name_, changes, Emptied::Remove));
}
