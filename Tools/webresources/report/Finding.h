#ifndef TOOLS_WEBRESOURCES_REPORT_FINDING_H_
#define TOOLS_WEBRESOURCES_REPORT_FINDING_H_

#include <string>
#include <vector>

/// The vocabulary of findings: what every command says about what is not as it should be.

enum class Severity { Error, Warning };

/// A kind of finding.
struct Rule {
  const char* id;     ///< Stable: scripts may depend on it. For example "wrong-crc".
  Severity severity;  ///< Whether the content that is installed is wrong, or may surprise.
  const char* fix;    ///< What the reader should do, as an imperative sentence.
};

/// All rules, in the order in which the documentation lists them.
const std::vector<Rule>& Rules();

/// One thing that is not as it should be.
struct Finding {
  const Rule* rule;     ///< One of Rules(); never null.
  std::string subject;  ///< The entry, file, metadata member or record value.
  std::string reason;   ///< What is wrong with it, for people.
};

using Findings = std::vector<Finding>;

/// `findings` without its warnings.
Findings ErrorsOf(const Findings& findings);

/// Adds a finding of the rule `id` to `findings`. Throws std::logic_error if there is no such rule.
void Add(Findings& findings, const std::string& id, const std::string& subject,
         const std::string& reason);

#endif  // TOOLS_WEBRESOURCES_REPORT_FINDING_H_
