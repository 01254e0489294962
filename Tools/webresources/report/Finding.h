#ifndef TOOLS_WEBRESOURCES_REPORT_FINDING_H_
#define TOOLS_WEBRESOURCES_REPORT_FINDING_H_

#include <string>
#include <vector>

namespace webresources {

/// Findings: the defects that every command reports in the same form.

enum class Severity { Error, Warning };

/// A kind of finding. Rules.h has all of them.
struct Rule {
  const char* id;     ///< Stable, because scripts may use the text. Example: "wrong-crc".
  Severity severity;  ///< Error: the installation is wrong. Warning: the result may surprise.
  const char* fix;    ///< The remedy, as an imperative sentence.
};

/// One defect.
struct Finding {
  const Rule* rule;     ///< One of Rules.h; never null.
  std::string subject;  ///< The entry, file, metadata member or record value.
  std::string reason;   ///< The defect, for people.
};

using Findings = std::vector<Finding>;

/// Returns the errors among `findings`.
Findings ErrorsOf(const Findings& findings);

/// Adds a finding of `rule` to `findings`. Requires: `rule` is one of Rules.h.
void Add(Findings& findings, const Rule& rule, const std::string& subject,
         const std::string& reason);

/// Adds all of `more` to `findings`.
void Append(Findings& findings, const Findings& more);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_FINDING_H_
