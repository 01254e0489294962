#ifndef TOOLS_WEBRESOURCES_REPORT_FINDING_H_
#define TOOLS_WEBRESOURCES_REPORT_FINDING_H_

#include <string>
#include <vector>

namespace webresources {

/// The vocabulary of findings: what every command says about what is not as it should be.

enum class Severity { Error, Warning };

/// A kind of finding. Rules.h has all of them.
struct Rule {
  const char* id;     ///< Stable: scripts may depend on it. For example kWrongCrc.
  Severity severity;  ///< Whether the content that is installed is wrong, or may surprise.
  const char* fix;    ///< What the reader should do, as an imperative sentence.
};

/// One thing that is not as it should be.
struct Finding {
  const Rule* rule;     ///< One of Rules.h; never null.
  std::string subject;  ///< The entry, file, metadata member or record value.
  std::string reason;   ///< What is wrong with it, for people.
};

using Findings = std::vector<Finding>;

/// `findings` without its warnings.
Findings ErrorsOf(const Findings& findings);

/// Adds a finding of `rule` to `findings`. Requires: `rule` is one of Rules.h.
void Add(Findings& findings, const Rule& rule, const std::string& subject,
         const std::string& reason);

/// Adds all of `more` to `findings`.
void Append(Findings& findings, const Findings& more);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_FINDING_H_
