#ifndef TESTS_TOOLS_BUNDLEPROGRAMS_H_
#define TESTS_TOOLS_BUNDLEPROGRAMS_H_

#include <filesystem>
#include <string>

#include "TestFiles.h"

/// Makes an executable file as the installer of the bundle at `bundle`. No test executes the file.
inline void MakeProgram(const std::string& bundle) {
  const std::string directory = bundle + "/Contents/" BUNDLE_EXECUTABLES "/";
  std::filesystem::create_directories(directory);
  WriteFile(directory + "WebResourceInstaller", "#!/bin/sh\n");
  std::filesystem::permissions(directory + "WebResourceInstaller", std::filesystem::perms(0755));
}

#endif  // TESTS_TOOLS_BUNDLEPROGRAMS_H_
