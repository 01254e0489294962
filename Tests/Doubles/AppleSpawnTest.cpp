// The starts of programs on a Mac, with doubles of the calls. The doubles record their arguments.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "Inheritance.h"
#include "TrialStart.h"

namespace {

using Calls = std::vector<std::string>;

Calls asked;             // the calls and their arguments
std::string failing;     // the name of the call that fails
int error = 0;           // the error number of the failed call
short currentFlags = 0;  // of the attributes

/// Records the call. Returns the result of the call.
int Ask(const std::string& name, const std::string& arguments) {
  asked.push_back(name + " " + arguments);
  return name == failing ? error : 0;
}

}  // namespace

int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* /*actions*/, int file) {
  return Ask("inherit", std::to_string(file));
}

extern "C" {

int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes) {
  *attributes = {};
  return failing == "init" ? error : 0;
}

int __wrap_posix_spawnattr_getflags(const posix_spawnattr_t* /*attributes*/, short* flags) {
  *flags = currentFlags;
  return 0;
}

int __wrap_posix_spawnattr_setflags(posix_spawnattr_t* /*attributes*/, short flags) {
  return Ask("flags", std::to_string(flags));
}

int __wrap_posix_spawn(pid_t* process, const char* path,
                       const posix_spawn_file_actions_t* /*actions*/,
                       const posix_spawnattr_t* attributes, char* const arguments[],
                       char* const environment[]) {
  EXPECT_NE(attributes, nullptr);
  EXPECT_STREQ(arguments[0], path);
  EXPECT_EQ(arguments[1], nullptr);
  EXPECT_EQ(environment[0], nullptr);
  *process = 4711;
  return Ask("spawn", path);
}

int __wrap_kill(pid_t process, int signal) {
  return Ask("kill", std::to_string(process) + " " + std::to_string(signal));
}

pid_t __wrap_waitpid(pid_t process, int* /*status*/, int /*options*/) {
  return Ask("wait", std::to_string(process));
}

}  // extern "C"

namespace {

class AppleSpawn : public testing::Test {
 protected:
  AppleSpawn() {
    asked.clear();
    failing.clear();
    currentFlags = 0;
  }

  static bool CanStart(const std::string& call, int number) {
    failing = call;
    error = number;
    return TrialStart::CanStart("/program");
  }

  static bool Restrict() {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    return Inheritance::Restrict(&attributes, &actions, 5);
  }
};

TEST_F(AppleSpawn, TrialIsSuspendedAndKilledBeforeTheFirstInstruction) {
  EXPECT_TRUE(TrialStart::CanStart("/program"));
  EXPECT_EQ(asked, (Calls{"flags 128", "spawn /program", "kill 4711 9", "wait 4711"}));
}

TEST_F(AppleSpawn, TrialFailsForAnErrorOfTheProgramOnly) {
  for (const int number : {ENOEXEC, ENOENT, EBADARCH}) {
    EXPECT_FALSE(CanStart("spawn", number)) << number;
  }
  for (const int number : {EACCES, EAGAIN, ENOMEM}) {
    EXPECT_TRUE(CanStart("spawn", number)) << number;
  }
}

TEST_F(AppleSpawn, FailedTrialKillsNothing) {
  EXPECT_TRUE(CanStart("spawn", EAGAIN));
  EXPECT_EQ(asked, (Calls{"flags 128", "spawn /program"}));
}

TEST_F(AppleSpawn, ProgramThatCannotBeSuspendedIsNotStarted) {
  EXPECT_TRUE(CanStart("flags", EINVAL));
  EXPECT_EQ(asked, Calls{"flags 128"});
}

TEST_F(AppleSpawn, FailureBeforeTheTrialStartsNothing) {
  EXPECT_TRUE(CanStart("init", ENOMEM));
  EXPECT_EQ(asked, Calls());
}

TEST_F(AppleSpawn, OnlyTheNamedDescriptorIsInherited) {
  currentFlags = POSIX_SPAWN_SETSIGDEF;
  EXPECT_TRUE(Restrict());
  EXPECT_EQ(asked, (Calls{"flags " + std::to_string(0x4000 | POSIX_SPAWN_SETSIGDEF), "inherit 5"}));
}

TEST_F(AppleSpawn, FailedRestrictionIsAFailure) {
  error = ENOMEM;
  for (const char* const call : {"flags", "inherit"}) {
    failing = call;
    EXPECT_FALSE(Restrict()) << call;
  }
}

}  // namespace
