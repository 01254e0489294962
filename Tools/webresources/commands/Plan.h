#ifndef TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_
#define TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_

#include <cstdint>
#include <string>

#include "ExpectedBundle.h"
#include "PackageBounds.h"
#include "Report.h"

/// What to install, and what to accept.
struct PlanOptions {
  std::string bundle;
  std::string root;              ///< Of the installed system's files; empty for this one's.
  bool isForced = false;         ///< Run the step even if nothing would change.
  bool allowsDowngrade = false;  ///< Run it even if a newer update is installed.
  bool ignoresModes = false;     ///< Do not compare modes and owners.
  std::uint64_t maxSize = kDefaultMaxSize;  ///< The largest content to read, in bytes.
};

/// What `install` will do on one machine.
struct InstallPlan {
  enum class Outcome {
    UpToDate,  ///< Nothing: the bundle is installed as it should be.
    Refuse,    ///< Nothing: `findings` say why.
    Install,   ///< Run the step.
  };
  Outcome outcome = Outcome::Refuse;
  Findings findings;
  Installation installation;      ///< As it is now.
  bool needsReceipt = false;      ///< The receipt is missing, or not of what is installed.
  std::string freshDirectory;     ///< The bare name of the directory that is filled.
  std::uint64_t bytesNeeded = 0;  ///< Beside what is installed.
  std::uint64_t bytesFree = 0;
};

/// Reads the bundle of `options`, as ReadBundle() does.
ExpectedBundle ReadBundle(const PlanOptions& options);

/// Decides what to do with `bundle`. Changes nothing. Throws Error if something cannot be read.
InstallPlan MakePlan(const PlanOptions& options, const ExpectedBundle& bundle);

/// Reports what `install` will do: files, leftovers, record, bytes. The status is 1 if it will
/// refuse. Throws Error if something cannot be read.
Report Plan(const PlanOptions& options);

#endif  // TOOLS_WEBRESOURCES_COMMANDS_PLAN_H_
