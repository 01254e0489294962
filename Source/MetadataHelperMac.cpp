#include <cctype>
#include <cstdio>
#include <memory>
#include <utility>

#include "InstallerConstants.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "QDOJSONParser.h"

std::string MetadataHelper::LastWord(const std::string& path) {
  // Not a C++ stream: one would repeat an interrupted read for ever.
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(path.c_str(), "r"), std::fclose);
  if (stream == nullptr) {
    return {};
  }
  std::string word;
  bool isInWord = false;
  for (int byte = 0; (byte = std::getc(stream.get())) != EOF;) {
    const bool wasInWord = std::exchange(isInWord, std::isspace(byte) == 0);
    if (isInWord && !wasInWord) {
      word.clear();
    }
    if (isInWord) {
      word += static_cast<char>(byte);
    }
  }
  if (std::ferror(stream.get()) != 0) {
    return {};  // opened but unreadable, as a directory is
  }
  return word.substr(0, word.find('\0'));
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
