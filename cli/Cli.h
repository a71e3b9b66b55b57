#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <vector>

namespace velqor::cli {

// Exit statuses of the CLI.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitUnanswered = 3;

// Thrown by a subcommand to report a usage error (exit status 2) with one line.
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

}  // namespace velqor::cli
