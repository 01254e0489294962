#include <fstream>

#include "InstallerConstants.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "QDOJSONParser.h"

MetadataHelper::Words MetadataHelper::ReadWords(const std::string& path) {
  std::ifstream stream(path);
  Words words;
  // The loop ends at every failure. For example, a stream on a directory never reaches its end.
  while (stream >> words.last) {
    ++words.count;
  }
  return stream.bad() || !stream.is_open() ? Words{0, {}, true} : words;
}

MetadataHelper& MetadataHelper::getInstance() {
  static MetadataHelper instance;
  return instance;
}

MetadataHelper::MetadataHelper()
    : MetadataHelper(
          QDOJSONParser::fromJSON(ReadWords(OSUtils::GetMetadataResourcePath()).Text(), true)) {}

MetadataHelper::MetadataHelper(const QDOObject& object) : members_(object.getMap()) {}

bool MetadataHelper::shouldClearRegistry() {
  return members_["clear"].getBool();
}

int MetadataHelper::getUpdateId() {
  return members_["updateid"].getQDOInt32();
}

bool MetadataHelper::shouldRegenerateRandom() {
  return members_["regenerate"].getBool();
}
