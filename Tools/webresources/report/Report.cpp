#include "report/Report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "support/Text.h"

namespace webresources {

namespace {

const char* NameOfSeverity(Severity severity) {
  return severity == Severity::Error ? "error" : "warning";
}

bool TakesColour() {
  const char* noColour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0') &&
         terminal != nullptr && std::string(terminal) != "dumb";
}

std::string Coloured(const std::string& text, Severity severity) {
  static const bool takesColour = TakesColour();
  const char* const colour = severity == Severity::Error ? "\033[31m" : "\033[33m";
  if (!takesColour) {
    return text;
  }
  return colour + text + "\033[0m";
}

Json ToJson(const Finding& finding) {
  Json json = {{"id", finding.rule->id}, {"severity", NameOfSeverity(finding.rule->severity)}};
  PutName(json, "subject", finding.subject);
  json["reason"] = Printable(finding.reason);
  json["fix"] = finding.rule->fix;
  return json;
}

Json ToJson(const Report& report) {
  Json document = {{"tool", "webresources"},
                   {"version", WEBRESOURCES_VERSION},
                   {"command", report.command},
                   {"status", report.status},
                   {"findings", Json::array()}};
  for (const Finding& finding : report.findings) {
    document["findings"].push_back(ToJson(finding));
  }
  PutOptional(document, "advice", report.advice);
  document.update(report.details);
  return document;
}

void PrintFinding(const Rule& rule, const std::string& text) {
  std::cout << Coloured(NameOfSeverity(rule.severity), rule.severity) << " [" << rule.id << "] "
            << Printable(text) << "\n    fix: " << rule.fix << '\n';
}

using Group = std::vector<const Finding*>;  // the findings of one rule

constexpr std::size_t kLargestListedGroup = 5;
constexpr std::size_t kExamples = 3;
constexpr std::size_t kScreen = 15;  // lines of a listing

/// Returns a line for a group: the count, some subjects and the reason of the first finding.
std::string Summary(const Group& group) {
  std::string text = std::to_string(group.size()) + " times: ";
  for (std::size_t i = 0; i < kExamples; ++i) {
    text += group[i]->subject + ", ";
  }
  text += "… (--all lists all)";
  const std::string& reason = group.front()->reason;
  const bool isCommon = std::all_of(
      group.begin(), group.end(), [&reason](const Finding* one) { return one->reason == reason; });
  return text + (isCommon ? ": " : ", for example: ") + reason;
}

void PrintFindings(const Findings& findings, Form form) {
  std::map<const Rule*, Group> groups;
  for (const Finding& finding : findings) {
    groups[finding.rule].push_back(&finding);
  }
  for (const Finding& finding : findings) {
    const Group& group = groups[finding.rule];
    if (form == Form::Whole || group.size() <= kLargestListedGroup) {
      PrintFinding(*finding.rule, finding.subject + ": " + finding.reason);
    } else if (&finding == group.front()) {
      PrintFinding(*finding.rule, Summary(group));
    }
  }
}

void PrintLines(const std::vector<std::string>& lines, std::size_t most) {
  for (std::size_t i = 0; i < std::min(lines.size(), most); ++i) {
    std::cout << Printable(lines[i]) << '\n';
  }
  if (lines.size() > most) {
    std::cout << "… and " << lines.size() - most << " more: --all lists all\n";
  }
}

}  // namespace

Findings ErrorsOf(const Findings& findings) {
  Findings errors;
  std::copy_if(findings.begin(), findings.end(), std::back_inserter(errors),
               [](const Finding& one) { return one.rule->severity == Severity::Error; });
  return errors;
}

void Add(Findings& findings, const Rule& rule, const std::string& subject,
         const std::string& reason) {
  findings.push_back({&rule, subject, reason});
}

void Append(Findings& findings, const Findings& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

Report ReportOf(const std::string& command, const std::exception& error) {
  Report report(command);
  report.status = kCouldNotTell;
  // The compiler adds a test for null to the cast; no test reaches that branch.
  const auto* const known = dynamic_cast<const Error*>(&error);  // GCOVR_EXCL_BR_LINE
  const Error parts = known != nullptr ? *known : Error("run", command, error.what());
  Json& json = report.details["error"];
  json["operation"] = Printable(parts.operation());
  PutName(json, "object", parts.object());
  json["reason"] = Printable(parts.reason());
  PutOptional(json, "remedy", parts.remedy());
  return report;
}

void PutName(Json& object, const std::string& key, const std::string& name) {
  if (IsUtf8(name)) {
    object[key] = name;
  } else {
    object[key] = Printable(name);
    object[key + "Hex"] = Hexadecimal(name);
  }
}

void PutOptional(Json& object, const std::string& key, const std::optional<std::string>& name) {
  if (name) {
    PutName(object, key, *name);
  } else {
    object[key] = nullptr;
  }
}

std::string NameOf(const Json& object, const std::string& key) {
  const auto bytes = object.find(key + "Hex");
  if (bytes == object.end()) {
    return object.at(key).get<std::string>();
  }
  const auto name = FromHexadecimal(bytes->get<std::string>());
  if (!name) {
    throw std::invalid_argument("a name is not in hexadecimal");
  }
  return *name;
}

std::string Text(const Json& json) {
  constexpr int kIndent = 2;
  constexpr bool kAsciiOnly = true;
  return json.dump(kIndent, ' ', kAsciiOnly) + "\n";
}

void Print(const Report& report, Form form) {
  if (form == Form::Document) {
    std::cout << Text(ToJson(report));
  } else {
    PrintLines(report.listing, form == Form::Whole ? report.listing.size() : kScreen);
    PrintFindings(report.findings, form);
    PrintLines(report.summary, report.summary.size());
    if (report.advice) {
      PrintLines({"to repair: " + *report.advice}, 1);
    }
    if (report.refusal) {
      PrintLines({*report.refusal}, 1);
    }
  }
  if (!std::cout.flush()) {
    throw Error::FromErrno("write", "the standard output");
  }
}

void PrintError(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::cerr << Printable(line) << '\n';
  }
}

}  // namespace webresources
