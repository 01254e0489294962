#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>

#include "commands/Commands.h"
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
  std::string path;   ///< A bundle or its Resources directory.
  std::string after;  ///< Another bundle.
  HostOptions host;
  long long waitSeconds = 600;
};

/// Adds the options that may stand before the command, too.
void AddOutputOptions(CLI::App& app, CommandLine& line) {
  app.add_flag("--json", line.asJson, "Write one JSON document");
  app.add_flag("--quiet", line.isQuiet, "Say nothing but findings and errors");
  app.add_flag("--all", line.showsAll, "List all findings, also many of one rule");
}

/// Adds an option or argument that names a file or directory. An empty name is wrong usage.
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
  // The example is first, because newer versions of CLI11 join and wrap the lines.
  command->footer("Example: webresources " + example + "\nExit status: " + statuses +
                  ", 64 wrong usage");
  AddOutputOptions(*command, line);
  command->callback([&line, name, run] {
    line.name = name;
    line.host.wait = std::chrono::seconds(line.waitSeconds);
    line.check.limits = line.host.limits;
    line.check.asJson = line.asJson;
    line.run = run;
  });
  return command;
}

// The options that several commands share.

void AddBundleOrResources(CLI::App* command, std::string& path) {
  AddPath(command, "BUNDLE_OR_RESOURCES", path, "A bundle, or its Resources directory")->required();
}

CLI::Option* AddBundle(CLI::App* command, CommandLine& line, const std::string& purpose) {
  return AddPath(command, "BUNDLE", line.host.bundle, purpose);
}

void AddRoot(CLI::App* command, CommandLine& line) {
  AddPath(command, "--root", line.host.hostRoot, "Where the installed system's files are")
      ->type_name("PREFIX");
}

void AddIgnoreModes(CLI::App* command, CommandLine& line) {
  command->add_flag("--ignore-modes", line.host.ignoresModes, "Do not compare modes and owners");
}

/// Adds the limit for the size of a package. A zip bomb would otherwise be read for hours.
void AddLimits(CLI::App* command, CommandLine& line) {
  constexpr bool kSteps1000 = false;
  command
      ->add_option("--max-size", line.host.limits.maxSize,
                   "Refuse a package that can hold more (default: 4G)")
      ->transform(CLI::AsSizeValue(kSteps1000))
      // Runs before the conversion, which would change a negative number to a large number.
      ->transform(CLI::Validator(
          [](const std::string& text) {
            return text.rfind('-', 0) == 0 ? "the size must not be negative" : std::string();
          },
          ""))
      ->type_name("BYTES");
}

/// Adds the options of `install` and `plan`.
void AddDecision(CLI::App* command, CommandLine& line) {
  AddBundle(command, line, "The bundle to install")->required();
  command->add_flag("--force", line.host.isForced,
                    "Run the installer even if nothing would change");
  command->add_flag("--allow-downgrade", line.host.allowsDowngrade, "Install over a newer update");
  AddIgnoreModes(command, line);
  AddLimits(command, line);
}

/// Adds the options of `install` and `uninstall`.
void AddChange(CLI::App* command, CommandLine& line, const std::string& dryRun) {
  command->add_flag("--dry-run", line.host.isDryRun, dryRun);
  command
      ->add_option("--wait", line.waitSeconds,
                   "How long to wait while another installation runs (default: 600)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400));
}

void AddGlobs(CLI::App* command, const std::string& option, std::vector<std::string>& globs,
              const std::string& purpose, const std::string& type = "GLOB") {
  command->add_option(option, globs, purpose)->type_name(type)->allow_extra_args(false);
}

void AddPack(CLI::App& app, CommandLine& line) {
  PackOptions& options = line.pack;
  CLI::App* command = AddCommand(
      app, line, "pack", "Make a bundle's package and metadata of a directory",
      "pack site --update-id 7 --output X.app", "0 both files are written, 1 refused, 2 failed",
      [&line] { return Pack(line.pack); });
  AddPath(command, "DIRECTORY", options.directory, "The content to pack")->required();
  command
      ->add_option("--update-id", options.metadata.updateId,
                   "The update number, from -99999999 to 999999999")
      ->required()
      ->check(ProblemOfUpdateId)
      ->type_name("NUMBER");
  AddPath(command, "--output", options.output, "A bundle, or its Resources directory")->required();
  command->add_flag("--clear", options.metadata.clear,
                    "Remove keys of other programs from the record first");
  command->add_flag("--regenerate", options.metadata.regenerate, "Draw a new random identifier");
  AddGlobs(command, "--exclude", options.selection.excluded, "Leave out files that match GLOB");
  command->add_flag("--follow", options.selection.followLinks,
                    "Pack the targets of symbolic links");
  AddGlobs(command, "--keep", options.selection.kept, "Pack files that match GLOB, even junk");
  AddGlobs(command, "--require", options.selection.required, "Refuse if there is no such file",
           "PATH");
  command->add_flag("--create", options.createsOutput,
                    "Write to any directory, make it if missing");
  command->add_flag("--allow-warnings", options.allowsWarnings, "Refuse after errors only");
}

/// Adds the commands that read bundles only.
void AddOfBundles(CLI::App& app, CommandLine& line) {
  CLI::App* check =
      AddCommand(app, line, "check", "Predict the effect of the installer", "check --prove X.app",
                 "0 no findings, 1 findings, 2 unknown", [&line] { return Check(line.check); });
  AddBundleOrResources(check, line.check.path);
  check->add_flag("--prove", line.check.prove, "Also extract into a scratch directory, compare");
  AddLimits(check, line);

  CLI::App* info =
      AddCommand(app, line, "info", "Show the content of a bundle, unchecked", "info X.app",
                 "0 printed, 2 failed", [&line] { return Info(line.path); });
  AddBundleOrResources(info, line.path);

  CLI::App* diff = AddCommand(app, line, "diff", "Compare two bundles", "diff 6/X.app 7/X.app",
                              "0 equal, 1 changes or errors, 2 unknown",
                              [&line] { return Diff(line.path, line.after, line.host.limits); });
  AddPath(diff, "BEFORE", line.path, "A bundle")->required();
  AddPath(diff, "AFTER", line.after, "The bundle that replaces it")->required();
  AddLimits(diff, line);
}

/// Adds the commands that install, and `uninstall`.
void AddOfInstallation(CLI::App& app, CommandLine& line) {
  CLI::App* plan =
      AddCommand(app, line, "plan", "Show the changes that install would make", "plan X.app",
                 "0 install will not refuse, 1 install will refuse, 2 unknown",
                 [&line] { return Plan(line.host); });
  AddDecision(plan, line);
  AddRoot(plan, line);

  CLI::App* install =
      AddCommand(app, line, "install", "Run a bundle's installer on this machine, then verify",
                 "install X.app", "0 installed or up to date, 1 refused or not correct, 2 failed",
                 [&line] { return line.host.isDryRun ? Plan(line.host) : Install(line.host); });
  AddDecision(install, line);
  AddChange(install, line, "Change nothing, show the changes (as plan)");
}

void AddUninstall(CLI::App& app, CommandLine& line) {
  CLI::App* uninstall = AddCommand(
      app, line, "uninstall", "Remove everything that was installed", "uninstall --dry-run",
      "0 nothing is installed any more, 2 failed", [&line] { return Uninstall(line.host); });
  AddRoot(uninstall, line);
  AddChange(uninstall, line, "Change nothing, show the files to remove");
}

/// Adds the commands that compare an installation.
void AddOfComparison(CLI::App& app, CommandLine& line) {
  const std::string bundle = "The bundle that should be installed";
  CLI::App* verify = AddCommand(
      app, line, "verify", "Compare the installation with a bundle, or with the receipt",
      "verify X.app", "0 correct, 1 findings, 2 unknown", [&line] { return Verify(line.host); });
  AddBundle(verify, line, bundle);
  CLI::App* check = AddCommand(
      app, line, "installcheck", "Exit with 0 if a bundle is to be installed, 1 if not",
      "installcheck X.app", "0 install needed, 1 up to date, 2 bundle unusable, 3 host unreadable",
      [&line] { return InstallCheck(line.host); });
  AddBundle(check, line, bundle)->required();
  CLI::App* status =
      AddCommand(app, line, "status", "Show the installed content and its state", "status",
                 "0 correct, 1 findings, 2 unknown", [&line] { return Status(line.host); });
  for (CLI::App* command : {verify, check, status}) {
    AddRoot(command, line);
    AddIgnoreModes(command, line);
  }
  AddLimits(verify, line);
  AddLimits(check, line);
}

/// Throws Error if the stack is smaller than 1 MiB: deeply nested metadata would overflow the
/// stack.
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
  const auto meant = Suggestion(word, commands);
  return "there is no command " + word + (meant ? ". Did you mean " + *meant + "?" : "");
}

/// Explains wrong usage, or shows the requested help. Returns the exit status.
int Explain(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream complaint;
  if (app.exit(error, std::cout, complaint) == 0) {
    return 0;
  }
  constexpr bool kOfCommandsToo = true;
  const std::vector<std::string> arguments = app.remaining(kOfCommandsToo);
  const auto option = std::find_if(arguments.begin(), arguments.end(),
                                   [](const std::string& one) { return one.front() == '-'; });
  const std::vector<std::string> unknown = app.remaining();  // arguments of no command
  if (option != arguments.end()) {
    PrintError("webresources: there is no option " + *option);
  } else if (unknown.empty()) {
    PrintError(complaint.str());
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
    // App::help() would explain the running command, which is `help`.
    std::cout << app.get_formatter()->make_help(explained, name, CLI::AppFormatMode::Normal);
    throw CLI::Success();
  });
}

/// Opens the standard streams that the caller has closed, as a directory: a write then fails.
/// Otherwise a file of this process would get the number of a stream. Output would then go to the
/// file, and the installer would lose the lock.
void OpenClosedStreams() {
  int file = -1;
  do {
    file = open("/", O_RDONLY);
  } while (static_cast<unsigned int>(file) <= STDERR_FILENO);  // ends also after a failure
  close(file);
}

int ParseAndRun(int argc, char** argv) {
  OpenClosedStreams();
  CLI::App app("Packs, checks, installs and verifies web resources", "webresources");
  app.set_version_flag("-V,--version", WEBRESOURCES_VERSION);
  app.require_subcommand(1);
  CommandLine line;
  AddOutputOptions(app, line);
  for (const auto add : {AddPack, AddOfBundles, AddOfInstallation, AddOfComparison, AddUninstall}) {
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
               error.what());  // the JSON document of the error cannot be written
    return kCouldNotTell;
  }
}

}  // namespace

}  // namespace webresources

int main(int argc, char** argv) {
  return webresources::ParseAndRun(argc, argv);
}
