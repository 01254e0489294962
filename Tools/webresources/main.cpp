#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>

#include "Check.h"
#include "Install.h"
#include "Names.h"
#include "Pack.h"
#include "Progress.h"
#include "Verify.h"

namespace {

/// The options of all commands, and the command to run with them.
struct CommandLine {
  std::string name;
  std::function<Report()> run;
  bool asJson = false;
  bool isQuiet = false;
  PackOptions pack;
  CheckOptions check;
  VerifyOptions verify;
  InstallOptions install;
  long long waitSeconds = 600;
};

CLI::App* AddCommand(CLI::App& app, CommandLine& line, const std::string& name,
                     const std::string& purpose, const std::string& example,
                     const std::function<Report()>& run) {
  CLI::App* command = app.add_subcommand(name, purpose);
  command->footer("Example:\n  webresources " + example + "\n");
  command->add_flag("--json", line.asJson, "Write one JSON document");
  command->add_flag("--quiet", line.isQuiet, "Say nothing but findings and errors");
  command->callback([&line, name, run] {
    line.name = name;
    line.run = run;
  });
  return command;
}

void AddPack(CLI::App& app, CommandLine& line) {
  PackOptions& options = line.pack;
  CLI::App* command =
      AddCommand(app, line, "pack", "Make a bundle's package and metadata of a directory",
                 "pack site --update-id 7 --output X.app", [&line] { return Pack(line.pack); });
  command->add_option("DIRECTORY", options.directory, "What to pack")->required();
  command
      ->add_option("--update-id", options.updateId,
                   "The update number, from -99999999 to 999999999")
      ->required()
      ->check(ProblemOfUpdateId)
      ->type_name("NUMBER");
  command->add_option("--output", options.output, "A bundle, or its Resources directory")
      ->required();
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
}

/// Adds the limit that keeps a hostile package from being read for hours.
void AddMaxSize(CLI::App* command, std::uint64_t& maxSize) {
  constexpr bool kSteps1000 = false;
  command->add_option("--max-size", maxSize, "Refuse a package that can hold more (default: 4G)")
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
                 "check --prove X.app", [&line] {
                   line.check.asJson = line.asJson;
                   line.check.isQuiet = line.isQuiet;
                   return Check(line.check);
                 });
  command
      ->add_option("BUNDLE_OR_RESOURCES", line.check.path, "A bundle, or its Resources directory")
      ->required();
  command->add_flag("--prove", line.check.prove, "Also extract into a scratch directory, compare");
  AddMaxSize(command, line.check.maxSize);
}

/// The options of what compares a machine.
void AddMachine(CLI::App& command, CommandLine& line) {
  command.add_option("--root", line.verify.root, "Where the installed system's files are")
      ->type_name("PREFIX");
  command.add_flag("--ignore-modes", line.verify.ignoresModes, "Do not compare modes and owners");
}

void AddVerify(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "verify", "Compare what is installed with a bundle, or with itself",
                 "verify X.app", [&line] { return Verify(line.verify); });
  command->add_option("BUNDLE", line.verify.bundle, "The bundle that should be installed");
  AddMachine(*command, line);
}

void AddInstallCheck(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      AddCommand(app, line, "installcheck", "Exit with 0 if a bundle is to be installed, 1 if not",
                 "installcheck X.app", [&line] { return InstallCheck(line.verify); });
  command->add_option("BUNDLE", line.verify.bundle, "The bundle that should be installed")
      ->required();
  AddMachine(*command, line);
}

void AddInstall(CLI::App& app, CommandLine& line) {
  InstallOptions& options = line.install;
  CLI::App* command =
      AddCommand(app, line, "install", "Run a bundle's installer step on this machine, and verify",
                 "install X.app", [&line] {
                   line.install.wait = std::chrono::seconds(line.waitSeconds);
                   return Install(line.install);
                 });
  command->add_option("BUNDLE", options.bundle, "The bundle to install")->required();
  command->add_flag("--force", options.isForced, "Run the step even if nothing would change");
  command->add_flag("--allow-downgrade", options.allowsDowngrade, "Install over a newer update");
  command->add_flag("--ignore-modes", options.ignoresModes, "Do not compare modes and owners");
  AddMaxSize(command, options.maxSize);
  command
      ->add_option("--wait", line.waitSeconds,
                   "How long to wait while another installation runs (default: 600)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400));
}

int Run(const CommandLine& line) {
  try {
    if (line.isQuiet) {
      Progress::BeQuiet();
    }
    Report report = line.run();
    if (line.isQuiet) {
      report.listing.clear();
      report.summary.clear();
    }
    Print(report, line.asJson);
    return report.status;
  } catch (const Error& error) {
    std::cerr << "webresources " << line.name << ": " << names::Printable(error.what()) << '\n';
    if (line.asJson) {
      Print(ReportOf(line.name, error), true);
    }
    return kCouldNotTell;
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Packs, checks and verifies the web resources that the installer installs",
               "webresources");
  app.set_version_flag("--version", WEBRESOURCES_VERSION);
  app.require_subcommand(1);
  CommandLine line;
  AddPack(app, line);
  AddCheck(app, line);
  AddVerify(app, line);
  AddInstallCheck(app, line);
  AddInstall(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  try {
    return Run(line);
  } catch (const std::exception& error) {
    std::cerr << "webresources " << line.name << ": " << error.what() << '\n';
    return kCouldNotTell;
  }
}
