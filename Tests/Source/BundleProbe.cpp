// Answers questions about the bundle whose executable this program is. Prints a line for each
// argument: the answer, or the code of the exception. "put=FILE" moves FILE to the bundle's
// metadata file.

#include <cstdio>
#include <iostream>
#include <string>

#include "MetadataHelper.h"
#include "OSUtils.h"
#include "QDOException.h"

namespace {

std::string Text(bool value) {
  return value ? "true" : "false";
}

std::string Answer(const std::string& query) {
  if (query.rfind("put=", 0) == 0) {
    const std::string file = query.substr(4);
    return Text(std::rename(file.c_str(), OSUtils::GetMetadataResourcePath().c_str()) == 0);
  }
  if (query == "zip") {
    return OSUtils::GetZipResourcePath();
  }
  if (query == "metadata") {
    return OSUtils::GetMetadataResourcePath();
  }
  MetadataHelper& metadata = MetadataHelper::getInstance();
  if (query == "clear") {
    return Text(metadata.shouldClearRegistry());
  }
  if (query == "updateid") {
    return std::to_string(metadata.getUpdateId());
  }
  if (query == "regenerate") {
    return Text(metadata.shouldRegenerateRandom());
  }
  if (query == "same") {
    return Text(&metadata == &MetadataHelper::getInstance());
  }
  return query == "load" ? "loaded" : "unknown query";
}

}  // namespace

int main(int count, char** arguments) {
  for (int index = 1; index < count; ++index) {
    try {
      std::cout << Answer(arguments[index]) << "\n";
    } catch (const QDOException& exception) {
      std::cout << "exception " << exception.getCode() << " " << exception.what() << "\n";
    }
  }
}
