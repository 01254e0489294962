#include "report/Report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>

#include "support/Text.h"

namespace webresources {

namespace {

const char* NameOf(Severity severity) {
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
  Json json = {{"id", finding.rule->id}, {"severity", NameOf(finding.rule->severity)}};
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
  document.update(report.details);
  return document;
}

void PrintFinding(const Finding& finding) {
  const Severity severity = finding.rule->severity;
  std::cout << Coloured(NameOf(severity), severity) << " [" << finding.rule->id << "] "
            << Printable(finding.subject) << ": " << Printable(finding.reason)
            << "\n    fix: " << finding.rule->fix << '\n';
}

void PrintLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    std::cout << Printable(line) << '\n';
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
  // The cast's own test for null is the compiler's.
  const auto* const known = dynamic_cast<const Error*>(&error);  // GCOVR_EXCL_BR_LINE
  const Error parts = known != nullptr ? *known : Error("run", command, error.what());
  Json& json = report.details["error"];
  json["operation"] = parts.operation();
  PutName(json, "object", parts.object());
  json["reason"] = parts.reason();
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

std::string NameOf(const Json& object, const std::string& key) {
  const auto bytes = object.find(key + "Hex");
  if (bytes == object.end()) {
    return object.at(key).get<std::string>();
  }
  return FromHexadecimal(bytes->get<std::string>());
}

std::string Text(const Json& json) {
  return JsonPrintable(json.dump(2)) + "\n";
}

void Print(const Report& report, bool asJson) {
  if (asJson) {
    std::cout << Text(ToJson(report));
  } else {
    PrintLines(report.listing);
    for (const Finding& finding : report.findings) {
      PrintFinding(finding);
    }
    PrintLines(report.summary);
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
