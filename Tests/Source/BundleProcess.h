#ifndef TESTS_SOURCE_BUNDLEPROCESS_H_
#define TESTS_SOURCE_BUNDLEPROCESS_H_

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Support.h"

/// A bundle with the probe as its executable. A new process answers each question.
class BundleProcess {
 public:
  /// Makes the bundle at `path`, without the files of a product.
  explicit BundleProcess(const std::string& path) : contents_(path + "/Contents/") {
    std::filesystem::create_directories(contents_ + BUNDLE_EXECUTABLES);
    std::filesystem::create_directories(contents_ + "Resources");
    std::filesystem::copy_file(BUNDLE_PROBE, Probe());
  }

  std::string MetadataFile() const { return contents_ + "Resources/metadata.txt"; }

  /// Returns the answers of one process to `queries` (see BundleProbe.cpp). Spaces separate the
  /// queries, and each answer is a line.
  std::string Answers(const std::string& queries) const {
    const std::string command = "'" + Probe() + "' " + queries + " 2>&1";
    FILE* stream = popen(command.c_str(), "r");
    std::string answers;
    for (int byte = 0; stream != nullptr && (byte = std::fgetc(stream)) != EOF;) {
      answers += static_cast<char>(byte);
    }
    EXPECT_EQ(stream == nullptr ? -1 : pclose(stream), 0);
    return answers;
  }

 private:
  std::string Probe() const { return contents_ + BUNDLE_EXECUTABLES + "/Probe"; }

  std::string contents_;
};

#endif  // TESTS_SOURCE_BUNDLEPROCESS_H_
