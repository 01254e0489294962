#include <fstream>

#include "InstallerConstants.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "QDOJSONParser.h"

std::string MetadataHelper::LastWord(const std::string& path) {
  std::ifstream stream(path);
  std::string word;
  while (stream.is_open() && !stream.eof()) {
    stream >> word;  // a word that is not there leaves the last one in place
    if (stream.bad()) {
      return {};  // opened but unreadable, as a directory is: it would never end
    }
  }
  return std::string(word.c_str());
}

MetadataHelper& MetadataHelper::getInstance() {
  static MetadataHelper instance;
  return instance;
}

MetadataHelper::MetadataHelper() : MetadataHelper(OSUtils::GetMetadataResourcePath()) {}

MetadataHelper::MetadataHelper(const std::string& path)
    : members_(QDOJSONParser::fromJSON(LastWord(path), true).getMap()) {}

bool MetadataHelper::shouldClearRegistry() {
  return members_["clear"].getBool();
}

int MetadataHelper::getUpdateId() {
  return members_["updateid"].getQDOInt32();
}

bool MetadataHelper::shouldRegenerateRandom() {
  return members_["regenerate"].getBool();
}
