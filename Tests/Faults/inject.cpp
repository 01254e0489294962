// Runs an unmodified program in a chroot and disturbs one of its system calls.
//
//   inject ROOT REPORT ACTION CALL NUMBER PROGRAM [ARGUMENT...]
//
// ACTION is performed at the NUMBERth system call CALL, and at every later call if NUMBER ends in
// "+". The count starts at the program's entry point, because the dynamic loader is not tested.
//
//   kill       the program is killed before the call
//   ENAME      the call is not made and fails with that error
//   short      the call transfers only half of the requested bytes
//   sh:SCRIPT  a shell runs SCRIPT before the call. The shell is outside the root, has the root as
//              working directory, and has the path of an openat() in the variable OPENED.
//   none       no action
//
// Writes a line for each call to REPORT: the name, the number, "*" for the disturbed call or "-",
// and the path of an openat(). Exits as the program exited. For x86-64 Linux.
#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

namespace {

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::_Exit(120);
}

template <typename Result>
Result Checked(Result result, const char* what) {
  if (result == -1) {
    Fail(what);
  }
  return result;
}

std::string NameOf(unsigned long long call) {
#define CALL(name) \
  { SYS_##name, #name }
  static const std::map<unsigned long long, std::string> names{
      CALL(access),       CALL(brk),
      CALL(chmod),        CALL(clock_nanosleep),
      CALL(clone),        CALL(close),
      CALL(dup),          CALL(dup2),
      CALL(exit_group),   CALL(faccessat),
      CALL(fchmod),       CALL(fcntl),
      CALL(fdatasync),    CALL(flock),
      CALL(fstat),        CALL(fsync),
      CALL(ftruncate),    CALL(futex),
      CALL(getcwd),       CALL(getdents64),
      CALL(geteuid),      CALL(getpid),
      CALL(getrandom),    CALL(gettid),
      CALL(ioctl),        CALL(link),
      CALL(lseek),        CALL(lstat),
      CALL(madvise),      CALL(mkdir),
      CALL(mkdirat),      CALL(mmap),
      CALL(mprotect),     CALL(mremap),
      CALL(munmap),       CALL(newfstatat),
      CALL(open),         CALL(openat),
      CALL(pipe),         CALL(pipe2),
      CALL(pread64),      CALL(pwrite64),
      CALL(read),         CALL(readlink),
      CALL(rename),       CALL(renameat),
      CALL(renameat2),    CALL(rmdir),
      CALL(rt_sigaction), CALL(rt_sigprocmask),
      CALL(stat),         CALL(statfs),
      CALL(syncfs),       CALL(tgkill),
      CALL(umask),        CALL(unlink),
      CALL(unlinkat),     CALL(wait4),
      CALL(waitid),       CALL(write),
      CALL(writev)};
#undef CALL
  const auto found = names.find(call);
  return found != names.end() ? found->second : std::to_string(call);
}

int ErrorOf(const std::string& action) {
  static const std::map<std::string, int> errors{
      {"EIO", EIO},     {"ENOSPC", ENOSPC}, {"EACCES", EACCES}, {"EMFILE", EMFILE},
      {"EINTR", EINTR}, {"ENOMEM", ENOMEM}, {"ENFILE", ENFILE}};
  const auto found = errors.find(action);
  return found != errors.end() ? found->second : 0;
}

bool Transfers(unsigned long long call) {
  return call == SYS_read || call == SYS_write || call == SYS_pread64 || call == SYS_pwrite64 ||
         call == SYS_getrandom;
}

/// Returns the path that the call opens. Returns an empty string for another call.
std::string OpenedPath(pid_t program, const user_regs_struct& registers) {
  std::string path;
  if (registers.orig_rax == SYS_openat) {
    std::ifstream memory("/proc/" + std::to_string(program) + "/mem", std::ios::binary);
    memory.seekg(static_cast<std::streamoff>(registers.rsi));
    std::getline(memory, path, '\0');
  }
  return path;
}

user_regs_struct GetRegisters(pid_t program) {
  user_regs_struct registers = {};
  Checked(ptrace(PTRACE_GETREGS, program, nullptr, &registers), "registers");
  return registers;
}

void SetRegisters(pid_t program, user_regs_struct& registers) {
  Checked(ptrace(PTRACE_SETREGS, program, nullptr, &registers), "registers");
}

class Fault {
 public:
  Fault(std::string root, std::string action, std::string call, const std::string& number)
      : root_(std::move(root)),
        action_(std::move(action)),
        call_(std::move(call)),
        number_(std::strtol(number.c_str(), nullptr, 10)),
        isLasting_(number.back() == '+') {}

  bool Strikes(const std::string& call, long number) const {
    return action_ != "none" && call == call_ &&
           (number == number_ || (isLasting_ && number > number_));
  }

  /// Performs the action at the entry of the call. Returns false if the program has ended.
  bool Begin(pid_t program, const std::string& openedPath) {
    user_regs_struct registers = GetRegisters(program);
    original_ = registers;
    error_ = ErrorOf(action_);
    if (action_ == "kill") {
      kill(program, SIGKILL);
      return false;
    }
    if (action_ == "short") {
      unsigned long long& count =
          registers.orig_rax == SYS_getrandom ? registers.rsi : registers.rdx;
      count = Transfers(registers.orig_rax) ? (count + 1) / 2 : count;
    } else if (error_ == 0) {
      RunScript(openedPath);
    } else if (registers.orig_rax == SYS_brk) {
      registers.rdi = 0;  // a failed brk returns the present break, like brk(0)
      error_ = 0;
    } else if (registers.orig_rax != SYS_close) {  // a failed close also releases the descriptor
      registers.orig_rax = ~0ULL;
    }
    SetRegisters(program, registers);
    return true;
  }

  /// Completes the action at the exit of the call. Restores the argument registers of the program.
  void End(pid_t program) {
    user_regs_struct registers = GetRegisters(program);
    registers.rdi = original_.rdi;
    registers.rsi = original_.rsi;
    registers.rdx = original_.rdx;
    registers.orig_rax = original_.orig_rax;
    registers.rax = error_ != 0 ? 0ULL - static_cast<unsigned>(error_) : registers.rax;
    SetRegisters(program, registers);
  }

 private:
  void RunScript(const std::string& openedPath) const {
    const pid_t shell = Checked(fork(), "fork");
    if (shell == 0) {
      Checked(chdir(root_.c_str()), "chdir");
      setenv("OPENED", openedPath.c_str(), 1);
      execl("/bin/sh", "sh", "-c", action_.c_str() + std::strlen("sh:"), nullptr);
      Fail("/bin/sh");
    }
    waitpid(shell, nullptr, 0);
  }

  std::string root_;
  std::string action_;
  std::string call_;
  long number_;
  bool isLasting_;
  int error_ = 0;
  user_regs_struct original_ = {};
};

pid_t Start(const char* root, char** command) {
  const pid_t program = Checked(fork(), "fork");
  if (program == 0) {
    Checked(chroot(root), root);
    Checked(chdir("/"), "/");
    Checked(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr), "ptrace");
    execv(command[0], command);
    Fail(command[0]);
  }
  return program;
}

unsigned long EntryPoint(pid_t program) {
  std::ifstream vector("/proc/" + std::to_string(program) + "/auxv", std::ios::binary);
  Elf64_auxv_t item = {};
  while (vector.read(reinterpret_cast<char*>(&item), sizeof item)) {
    if (item.a_type == AT_ENTRY) {
      return item.a_un.a_val;
    }
  }
  Fail("no entry point");
}

/// Runs the program, which is stopped after its exec, to its entry point.
void RunToEntryPoint(pid_t program) {
  const unsigned long entry = EntryPoint(program);
  errno = 0;
  const long original = ptrace(PTRACE_PEEKTEXT, program, entry, nullptr);
  constexpr long kBreakpoint = 0xCC;
  ptrace(PTRACE_POKETEXT, program, entry, (original & ~0xFFL) | kBreakpoint);
  Checked(ptrace(PTRACE_CONT, program, nullptr, nullptr), "ptrace");
  int status = 0;
  waitpid(program, &status, 0);
  if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGTRAP) {
    Fail("the program does not reach its entry point");
  }
  ptrace(PTRACE_POKETEXT, program, entry, original);
  user_regs_struct registers = GetRegisters(program);
  registers.rip = entry;
  SetRegisters(program, registers);
}

/// Follows all system calls of the program until its end. Returns the exit status of the program.
int Watch(pid_t program, Fault& fault, std::ostream& report) {
  constexpr int kAtCall = SIGTRAP | 0x80;
  std::map<std::string, long> counts;
  bool isInside = false;
  bool strikes = false;
  for (int signal = 0;;) {
    ptrace(PTRACE_SYSCALL, program, nullptr, signal);
    signal = 0;
    int status = 0;
    waitpid(program, &status, 0);
    if (!WIFSTOPPED(status)) {
      return status;
    }
    if (WSTOPSIG(status) != kAtCall) {
      signal = WSTOPSIG(status);
      continue;
    }
    isInside = !isInside;
    if (isInside) {
      const user_regs_struct registers = GetRegisters(program);
      const std::string name = NameOf(registers.orig_rax);
      const std::string path = OpenedPath(program, registers);
      const long number = ++counts[name];
      strikes = fault.Strikes(name, number);
      report << name << ' ' << number << (strikes ? " * " : " - ") << path << '\n';
      if (strikes && !fault.Begin(program, path)) {
        waitpid(program, &status, 0);
        return status;
      }
    } else if (strikes) {
      fault.End(program);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 7) {
    std::fputs("inject ROOT REPORT ACTION CALL NUMBER PROGRAM [ARGUMENT...]\n", stderr);
    return 120;
  }
  std::ofstream report(argv[2]);
  Fault fault(argv[1], argv[3], argv[4], argv[5]);
  const pid_t program = Start(argv[1], argv + 6);
  int status = 0;
  waitpid(program, &status, 0);
  if (!WIFSTOPPED(status)) {
    return 120;
  }
  Checked(ptrace(PTRACE_SETOPTIONS, program, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL),
          "ptrace");
  RunToEntryPoint(program);
  status = Watch(program, fault, report);
  report.close();
  if (WIFSIGNALED(status)) {
    signal(WTERMSIG(status), SIG_DFL);
    raise(WTERMSIG(status));
  }
  return WEXITSTATUS(status);
}
