#include "Interruption.h"

#include <csignal>

#include "Error.h"

namespace {

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

void CatchInterruptions() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    // nohup and background jobs of a shell ignore signals on purpose.
    if (std::signal(signal, [](int) { interrupted = 1; }) == SIG_IGN) {
      std::signal(signal, SIG_IGN);
    }
  }
}

void ThrowIfInterrupted(const std::string& operation, const std::string& object) {
  if (interrupted != 0) {
    throw Error(operation, object, "interrupted");
  }
}
