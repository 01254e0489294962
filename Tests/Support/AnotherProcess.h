#ifndef TESTS_SUPPORT_ANOTHERPROCESS_H_
#define TESTS_SUPPORT_ANOTHERPROCESS_H_

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

// Some systems have no declaration. NOLINTNEXTLINE(readability-redundant-declaration)
extern "C" char** environ;

/// Executes the program at `path` with `arguments` and returns its output. Expects a success.
inline std::string OutputOfProcess(const char* path, std::vector<std::string> arguments) {
  std::vector<char*> argv{const_cast<char*>(path)};
  for (auto& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  pid_t child = -1;
  EXPECT_EQ(0, posix_spawn(&child, path, &actions, nullptr, argv.data(), environ));
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string output;
  for (char byte; read(ends[0], &byte, 1) == 1;) {
    output += byte;
  }
  close(ends[0]);
  int status = -1;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
  return output;
}

#endif  // TESTS_SUPPORT_ANOTHERPROCESS_H_
