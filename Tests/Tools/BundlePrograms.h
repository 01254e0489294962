#ifndef TESTS_TOOLS_BUNDLEPROGRAMS_H_
#define TESTS_TOOLS_BUNDLEPROGRAMS_H_

#include <filesystem>
#include <string>

#include "TestFiles.h"

/// Makes an executable file in the place of the installer of the bundle at `bundle`. Nothing runs
/// it.
inline void MakeProgram(const std::string& bundle) {
  const std::string directory = bundle + "/Contents/" BUNDLE_EXECUTABLES "/";
  std::filesystem::create_directories(directory);
  WriteFile(directory + "WebResourceInstaller", "#!/bin/sh\n");
  std::filesystem::permissions(directory + "WebResourceInstaller", std::filesystem::perms(0755));
}

#endif  // TESTS_TOOLS_BUNDLEPROGRAMS_H_
