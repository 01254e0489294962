#ifndef TOOLS_WEBRESOURCES_REPORT_REPORT_H_
#define TOOLS_WEBRESOURCES_REPORT_REPORT_H_

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "report/Finding.h"
#include "support/Error.h"

namespace webresources {

using Json = nlohmann::ordered_json;

/// The exit statuses of all commands except `installcheck`; see InstallCheck().
constexpr int kAsItShouldBe = 0;
constexpr int kHasFindings = 1;
constexpr int kCouldNotTell = 2;
constexpr int kUsage = 64;

/// The forms of a report.
enum class Form {
  /// Lines for one screen: findings of one rule are counted, long listings are truncated.
  Brief,
  Whole,     ///< All lines.
  Document,  ///< One JSON document, which is always complete.
};

/// The result of a command, for people and as one JSON document.
struct Report {
  explicit Report(std::string commandName) : command(std::move(commandName)) {}

  std::string command;
  int status = kAsItShouldBe;
  std::vector<std::string> listing;  ///< Lines for people before the findings.
  Findings findings;
  std::vector<std::string> summary;    ///< Lines for people after the findings.
  std::optional<std::string> advice;   ///< A command line that repairs the findings.
  std::optional<std::string> refusal;  ///< The text for a refusal. `--quiet` prints the text, too.
  Json details = Json::object();       ///< Members of this command in the document.

  /// Sets the status by the findings.
  void SetStatus() { status = findings.empty() ? kAsItShouldBe : kHasFindings; }
};

/// Returns a report with only the error that ended `command`. For an exception that is no Error,
/// the member `reason` is the text of the exception.
Report ReportOf(const std::string& command, const std::exception& error);

/// Stores `name` under `key`. A name that is not UTF-8 is stored as Printable(name), and its bytes
/// are stored in hexadecimal under `key`Hex. PutOptional() stores null if there is no name.
void PutName(Json& object, const std::string& key, const std::string& name);
void PutOptional(Json& object, const std::string& key, const std::optional<std::string>& name);

/// Returns the name that PutName() stored under `key`. Throws Json::exception if there is no such
/// name, and std::invalid_argument if its bytes are not in hexadecimal.
std::string NameOf(const Json& object, const std::string& key);

/// Returns `json` as the text of a document, with every character outside ASCII escaped. Requires:
/// all strings are UTF-8.
std::string Text(const Json& json);

/// Writes the report to the standard output; lines are in colour if the output is a terminal with
/// colours. Throws Error if the report cannot be written.
void Print(const Report& report, Form form);

/// Writes `text` to the error output, line by line, without control characters.
void PrintError(const std::string& text);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_REPORT_H_
