#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>

#include "commands/Check.h"
#include "commands/Diff.h"
#include "commands/Info.h"
#include "commands/Install.h"
#include "commands/Pack.h"
#include "commands/Plan.h"
#include "commands/Status.h"
#include "commands/Uninstall.h"
#include "commands/Verify.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {
namespace {

/// The options of all commands, and the command to run with them.
struct CommandLine {
  std::string name;
  std::function<Report()> run;
  bool asJson = false;
  bool isQuiet = false;
  bool showsAll = false;
  PackOptions pack;
  CheckOptions check;
  InfoOptions info;
  VerifyOptions verify;
  InstallOptions install;
  bool isDryRun = false;
  long long waitSeconds = 600;
  PlanOptions plan;
  StatusOptions status;
  UninstallOptions uninstall;
  DiffOptions diff;
};

/// Adds the options that may stand before the command, too.
void AddOutputOptions(CLI::App& app, CommandLine& line) {
  app.add_flag("--json", line.asJson, "Write one JSON document");
  app.add_flag("--quiet", line.isQuiet, "Say nothing but findings and errors");
  app.add_flag("--all", line.showsAll, "List all findings, also many of one rule");
}

/// An option or argument that names a file or directory. An empty name is wrong usage.
template <typename Name>
CLI::Option* AddPath(CLI::App* command, const std::string& option, Name& path,
                     const std::string& purpose) {
  return command->add_option(option, path, purpose)->check([](const std::string& text) {
    return text.empty() ? "the name is empty" : "";
  });
}

CLI::App* AddCommand(CLI::App& app, CommandLine& line, const std::string& name,
                     const std::string& purpose, const std::string& example,
                     const std::string& statuses, const std::function<Report()>& run) {
  CLI::App* command = app.add_subcommand(name, purpose);
  command->group("Subcommands");  // completions look for this heading
  // The example stands first: newer versions of CLI11 join and wrap the lines.
  command->footer("Example: webresources " + example + "\nExit status: " + statuses +
                  ", 64 wrong usage");
  AddOutputOptions(*command, line);
  command->callback([&line, name, run] {
    line.name = name;
    line.run = run;
  });
  return command;
}

void AddPack(CLI::App& app, CommandLine& line) {
  PackOptions& options = line.pack;
  CLI::App* command = AddCommand(
      app, line, "pack", "Make a bundle's package and metadata of a directory",
      "pack site --update-id 7 --output X.app", "0 both files are written, 1 refused, 2 failed",
      [&line] { return Pack(line.pack); });
  AddPath(command, "DIRECTORY", options.directory, "What to pack")->required();
  command
      ->add_option("--update-id", options.updateId,
                   "The update number, from -99999999 to 999999999")
      ->required()
      ->check(ProblemOfUpdateId)
      ->type_name("NUMBER");
  AddPath(command, "--output", options.output, "A bundle, or its Resources directory")->required();
  command->add_flag("--clear", options.clear, "Wipe foreign keys from the record first");
  command->add_flag("--regenerate", options.regenerate, "Draw a new random identifier");
  command->add_option("--exclude", options.selection.excluded, "Leave out what matches GLOB")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  command->add_flag("--follow", options.selection.followLinks, "Pack what symbolic links lead to");
  command->add_option("--keep", options.selection.kept, "Pack what matches GLOB, junk or not")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  command->add_option("--require", options.selection.required, "Refuse if there is no such file")
      ->type_name("PATH")
      ->allow_extra_args(false);
  command->add_flag("--create", options.createsOutput,
                    "Write to any directory, make it if missing");
  command->add_flag("--allow-warnings", options.allowsWarnings, "Refuse after errors only");
}

/// Adds the limit that keeps a hostile package from being read for hours.
void AddLimits(CLI::App* command, Limits& limits) {
  constexpr bool kSteps1000 = false;
  command
      ->add_option("--max-size", limits.maxSize,
                   "Refuse a package that can hold more (default: 4G)")
      ->transform(CLI::AsSizeValue(kSteps1000))
      // Runs first: the conversion would make a large number of a negative one.
      ->transform(CLI::Validator(
          [](const std::string& text) {
            return text.rfind('-', 0) == 0 ? "the size must not be negative" : std::string();
          },
          ""))
      ->type_name("BYTES");
}

void AddCheck(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "check", "Tell what the installer will do with a bundle",
                 "check --prove X.app", "0 no findings, 1 findings, 2 unknown", [&line] {
                   line.check.asJson = line.asJson;
                   return Check(line.check);
                 });
  AddPath(command, "BUNDLE_OR_RESOURCES", line.check.path, "A bundle, or its Resources directory")
      ->required();
  command->add_flag("--prove", line.check.prove, "Also extract into a scratch directory, compare");
  AddLimits(command, line.check.limits);
}

void AddInfo(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "info", "Tell what a bundle holds, without a check", "info X.app",
                 "0 printed, 2 failed", [&line] { return Info(line.info); });
  AddPath(command, "BUNDLE_OR_RESOURCES", line.info.path, "A bundle, or its Resources directory")
      ->required();
}

void AddRoot(CLI::App* command, std::string& root) {
  AddPath(command, "--root", root, "Where the installed system's files are")->type_name("PREFIX");
}

/// The options of what `verify` and `installcheck` share.
void AddVerifyOptions(CLI::App* command, VerifyOptions& options) {
  AddRoot(command, options.hostRoot);
  command->add_flag("--ignore-modes", options.ignoresModes, "Do not compare modes and owners");
  AddLimits(command, options.limits);
}

void AddVerify(CLI::App& app, CommandLine& line) {
  CLI::App* command = AddCommand(
      app, line, "verify", "Compare the installation with a bundle, or with the receipt",
      "verify X.app", "0 correct, 1 findings, 2 unknown", [&line] { return Verify(line.verify); });
  AddPath(command, "BUNDLE", line.verify.bundle, "The bundle that should be installed");
  AddVerifyOptions(command, line.verify);
}

void AddInstallCheck(CLI::App& app, CommandLine& line) {
  CLI::App* command = AddCommand(
      app, line, "installcheck", "Exit with 0 if a bundle is to be installed, 1 if not",
      "installcheck X.app", "0 install needed, 1 up to date, 2 bundle unusable, 3 host unreadable",
      [&line] { return InstallCheck(line.verify); });
  AddPath(command, "BUNDLE", line.verify.bundle, "The bundle that should be installed")->required();
  AddVerifyOptions(command, line.verify);
}

/// The options of what `install` and `plan` share.
void AddPlanOptions(CLI::App* command, PlanOptions& options) {
  AddPath(command, "BUNDLE", options.bundle, "The bundle to install")->required();
  command->add_flag("--force", options.isForced, "Run the step even if nothing would change");
  command->add_flag("--allow-downgrade", options.allowsDowngrade, "Install over a newer update");
  command->add_flag("--ignore-modes", options.ignoresModes, "Do not compare modes and owners");
  AddLimits(command, options.limits);
}

void AddWait(CLI::App* command, long long& seconds) {
  command
      ->add_option("--wait", seconds,
                   "How long to wait while another installation runs (default: 600)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400));
}

void AddInstall(CLI::App& app, CommandLine& line) {
  CLI::App* command = AddCommand(
      app, line, "install", "Run a bundle's installer step on this machine, and verify",
      "install X.app", "0 installed or up to date, 1 refused or not correct, 2 failed", [&line] {
        line.install.wait = std::chrono::seconds(line.waitSeconds);
        return line.isDryRun ? Plan(line.install) : Install(line.install);
      });
  AddPlanOptions(command, line.install);
  command->add_flag("--dry-run", line.isDryRun,
                    "Change nothing, and tell what would be done: plan");
  AddWait(command, line.waitSeconds);
}

void AddUninstall(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "uninstall", "Remove everything that was installed",
                 "uninstall --dry-run", "0 nothing is installed any more, 2 failed", [&line] {
                   line.uninstall.wait = std::chrono::seconds(line.waitSeconds);
                   return Uninstall(line.uninstall);
                 });
  AddRoot(command, line.uninstall.hostRoot);
  command->add_flag("--dry-run", line.uninstall.isDryRun,
                    "Change nothing, and tell what would be removed");
  AddWait(command, line.waitSeconds);
}

void AddPlan(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "plan", "Tell what install would change on this machine", "plan X.app",
                 "0 install will not refuse, 1 install will refuse, 2 unknown",
                 [&line] { return Plan(line.plan); });
  AddPlanOptions(command, line.plan);
  AddRoot(command, line.plan.hostRoot);
}

void AddStatus(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "status", "Tell what is installed here, and if it is sound", "status",
                 "0 correct, 1 findings, 2 unknown", [&line] { return Status(line.status); });
  AddRoot(command, line.status.hostRoot);
  command->add_flag("--ignore-modes", line.status.ignoresModes, "Do not compare modes and owners");
}

void AddDiff(CLI::App& app, CommandLine& line) {
  CLI::App* command = AddCommand(app, line, "diff", "Tell what changes from one bundle to another",
                                 "diff 6/X.app 7/X.app", "0 equal, 1 changes or errors, 2 unknown",
                                 [&line] { return Diff(line.diff); });
  AddPath(command, "BEFORE", line.diff.before, "A bundle")->required();
  AddPath(command, "AFTER", line.diff.after, "The bundle that replaces it")->required();
  AddLimits(command, line.diff.limits);
}

/// Metadata that this command reads may nest so deep that a smaller stack does not hold it.
void RequireStack() {
  constexpr rlim_t kLeast = rlim_t{1} << 20U;
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur < kLeast) {
    throw Error("run", "webresources", "the stack is limited to less than 1 MiB",
                "raise the limit with ulimit -s 8192");
  }
}

int Run(const CommandLine& line) {
  try {
    RequireStack();
    if (line.isQuiet) {
      Progress::BeQuiet();
    }
    Report report = line.run();
    if (line.isQuiet) {
      report.listing.clear();
      report.summary.clear();
    }
    Print(report, line.asJson ? Form::Document : line.showsAll ? Form::Whole : Form::Brief);
    return report.status;
  } catch (const UsageError& error) {
    PrintError("webresources " + line.name + ": " + error.what());
    return kUsage;
  } catch (const std::exception& error) {
    PrintError("webresources " + line.name + ": " + error.what());
    if (line.asJson) {
      Print(ReportOf(line.name, error), Form::Document);
    }
    return kCouldNotTell;
  }
}

std::vector<std::string> CommandsOf(const CLI::App& app) {
  std::vector<std::string> commands;
  for (const CLI::App* each : app.get_subcommands({})) {
    commands.push_back(each->get_name());
  }
  return commands;
}

std::string NoSuchCommand(const std::string& word, const std::vector<std::string>& commands) {
  const std::string meant = Suggestion(word, commands);
  return "there is no command " + word + (meant.empty() ? "" : ". Did you mean " + meant + "?");
}

/// Explains wrong usage, or shows the help that was asked for. Returns the exit status.
int Explain(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream complaint;
  if (app.exit(error, std::cout, complaint) == 0) {
    return 0;
  }
  const std::vector<std::string> unknown = app.remaining();  // that no command has taken
  if (unknown.empty()) {
    PrintError(complaint.str());
  } else if (unknown.front().front() == '-') {
    PrintError("webresources: there is no option " + unknown.front());
  } else {
    PrintError("webresources: " + NoSuchCommand(unknown.front(), CommandsOf(app)));
  }
  return kUsage;
}

/// Adds `help` and `help COMMAND`. Requires: `app` has all other commands.
void AddHelp(CLI::App& app) {
  CLI::App* help = app.add_subcommand("help", "Show all commands, or the options of one");
  help->group("Subcommands");
  help->footer("Example: webresources help install");
  const std::vector<std::string> commands = CommandsOf(app);
  const CLI::Option* command =
      help->add_option("COMMAND", "The command to explain")
          ->check([commands](const std::string& word) {
            return std::find(commands.begin(), commands.end(), word) != commands.end()
                       ? std::string()
                       : NoSuchCommand(word, commands);
          });
  help->callback([&app, command] {
    const bool isOfOne = command->count() != 0;
    const CLI::App* explained = isOfOne ? app.get_subcommand(command->as<std::string>()) : &app;
    const std::string name = app.get_name() + (isOfOne ? " " + explained->get_name() : "");
    // Not App::help(), which explains the command that is running: this one.
    std::cout << app.get_formatter()->make_help(explained, name, CLI::AppFormatMode::Normal);
    throw CLI::Success();
  });
}

/// Opens the standard streams that the caller has closed, as what cannot be written. A file of ours
/// would get their numbers: what is printed would be written to it, and a step would lose the lock.
void OpenClosedStreams() {
  int file = -1;
  do {
    file = open("/", O_RDONLY);
  } while (static_cast<unsigned int>(file) <= STDERR_FILENO);  // a failure is beyond, too
  close(file);
}

int ParseAndRun(int argc, char** argv) {
  OpenClosedStreams();
  CLI::App app("Packs, checks, installs and verifies web resources", "webresources");
  app.set_version_flag("-V,--version", WEBRESOURCES_VERSION);
  app.require_subcommand(1);
  CommandLine line;
  AddOutputOptions(app, line);
  for (const auto add : {AddPack, AddCheck, AddInfo, AddDiff, AddPlan, AddInstall, AddVerify,
                         AddInstallCheck, AddStatus, AddUninstall}) {
    add(app, line);
  }
  AddHelp(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return Explain(app, error);
  }
  try {
    return Run(line);
  } catch (const std::exception& error) {
    PrintError("webresources " + line.name + ": " +
               error.what());  // the document of an error could not be written, either
    return kCouldNotTell;
  }
}

}  // namespace

}  // namespace webresources

int main(int argc, char** argv) {
  return webresources::ParseAndRun(argc, argv);
}
