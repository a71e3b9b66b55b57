#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "cli/Console.h"

namespace velqor::cli {

// Exit statuses, the same for every subcommand (the table is in --help and README).
constexpr int kExitOk = 0;          // answered, or the work is done
constexpr int kExitFailure = 1;     // a check failed, or an output could not be made
constexpr int kExitUsage = 2;       // usage or input error
constexpr int kExitUnanswered = 3;  // the command is still open when nothing more can happen

// Thrown by a subcommand to end with exit status 2 and one line naming the cause:
// a usage error, or an input that is missing, unreadable or not what it must be.
struct UsageError {
  std::string message;
};

// Each subcommand registers itself and sets `run` to what it does once parsed.
struct Registration {
  std::function<int()> run;
};

void registerSpineCommands(CLI::App& app, Registration& chosen);
void registerDeviceCommands(CLI::App& app, Registration& chosen);
void registerImageCommands(CLI::App& app, Registration& chosen);
void registerMediaCommands(CLI::App& app, Registration& chosen);
void registerLibraryCommands(CLI::App& app, Registration& chosen);
void registerScenarioCommands(CLI::App& app, Registration& chosen);
void registerServeCommand(CLI::App& app, Registration& chosen);
void registerHelpCommands(CLI::App& app, Registration& chosen);
// Prints the help of the subcommand the words name (the program's for none).
int printHelp(const CLI::App& app, const std::vector<std::string>& words);

// Refuses an option that means nothing together with another one.
void refuseTogether(const CLI::App& app, const std::string& a, const std::string& b, const std::string& why);

// A file the subcommand reads: refused with the reason when it is missing or unreadable.
void requireReadableFile(const std::string& option, const std::string& path);

}  // namespace velqor::cli
