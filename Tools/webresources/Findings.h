#ifndef TOOLS_WEBRESOURCES_FINDINGS_H_
#define TOOLS_WEBRESOURCES_FINDINGS_H_

#include <optional>
#include <string>
#include <vector>

#include "Prediction.h"
#include "Structure.h"

enum class Severity { Error, Warning };

/// A kind of finding. Identifiers are stable: scripts may depend on them.
struct Rule {
  const char* id;
  Severity severity;
  const char* mend;
};

/// All rules, in the order in which the documentation lists them.
const std::vector<Rule>& Rules();

/// Something that is not as it should be.
struct Finding {
  const Rule* rule;
  std::string subject;  ///< The entry, file, member or value.
  std::string reason;
};

using Findings = std::vector<Finding>;

/// Adds the finding `id`, which must be one of the rules.
void Add(Findings& findings, const std::string& id, const std::string& subject,
         const std::string& reason);

/// What is wrong with a package, whose bytes lie as `structure` says, when there is one, and of
/// which the installer will leave what `prediction` says. `exists`: there is a file at all.
Findings FindInPackage(bool exists, const Prediction& prediction,
                       const std::optional<Structure>& structure);

/// Adds what of `paths` a volume may take for one; see names::Collisions().
void AddCollisions(Findings& findings, const std::vector<std::string>& paths);

/// Why the installer skips the entry, or does not leave it as it is; empty when it does.
std::string Trouble(const EntryPrediction& entry);

#endif  // TOOLS_WEBRESOURCES_FINDINGS_H_
