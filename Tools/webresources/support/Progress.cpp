#include "support/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>

#include "support/Error.h"

namespace webresources {

namespace {

constexpr std::uint64_t kWidth = 40;

bool isQuiet = false;

volatile std::sig_atomic_t interrupted = 0;  // the number of the signal
volatile std::sig_atomic_t receiver = 0;     // the process to which signals are also sent, or 0

void Interrupt(int signal) {
  const int error = errno;
  interrupted = signal;
  if (receiver != 0) {
    kill(receiver, signal);
  }
  errno = error;
}

}  // namespace

Progress::Progress(std::string purpose, std::uint64_t total)
    : purpose_(std::move(purpose)), total_(total) {}

Progress::~Progress() {
  if (shown_ != 0) {
    std::cerr << "\r\033[K" << std::flush;
  }
}

void Progress::Step(std::uint64_t count) {
  done_ += count;
  const std::uint64_t filled = total_ == 0 ? 0 : std::min(done_, total_) * kWidth / total_;
  if (IsShown() && filled != shown_) {
    shown_ = filled;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] "
              << purpose_ << std::flush;
  }
}

bool Progress::IsShown() {
  static const bool isTerminal = isatty(STDERR_FILENO) == 1;
  return isTerminal && !isQuiet;
}

void Progress::BeQuiet() {
  isQuiet = true;
}

void Progress::Say(const std::string& line) {
  if (IsShown()) {
    std::cerr << line << '\n';
  }
}

void CatchInterruptions() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    // nohup and background jobs of a shell ignore signals on purpose.
    if (std::signal(signal, Interrupt) == SIG_IGN) {
      std::signal(signal, SIG_IGN);
    }
  }
}

bool IsInterrupted() {
  return interrupted != 0;
}

void ThrowIfInterrupted(const std::string& operation, const std::string& object) {
  if (IsInterrupted()) {
    throw Error(operation, object, "interrupted");
  }
}

void PassInterruptionsTo(int process) {
  receiver = process;
  if (process != 0 && interrupted != 0) {
    kill(process, interrupted);
  }
}

}  // namespace webresources
