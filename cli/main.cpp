#include <algorithm>
#include <iostream>
#include <set>
#include <sstream>

#include "cli/Cli.h"
#include "cli/CommandLine.h"
#include "plugin/Version.h"

namespace velqor::cli {
namespace {

constexpr const char* kExitTable =
    "Exit status (every subcommand):\n"
    "  0  answered: the command got its answer (whatever it says), or the work is done\n"
    "  1  a check failed (a scenario's expectations) or an output could not be made\n"
    "  2  usage or input error: unknown subcommand or option, a meaningless combination,\n"
    "     a missing, unreadable or undecodable input (stderr names it)\n"
    "  3  left open: the command is unanswered once nothing more can happen (stderr says why)\n"
    "\n"
    "Standard output carries only results, one line each (JSON for answers and data);\n"
    "the plug-in's own output and the log go to stderr, filtered by --log-level.";

// The words CLI11 lists in an "arguments were not expected" error, in the order typed.
std::string unexpectedWords(const std::string& what, const std::vector<std::string>& typed) {
  std::set<std::string> words;
  std::istringstream in(what.substr(what.find(':') + 1));
  for (std::string w; in >> w;) words.insert(w);
  std::string out;
  for (const auto& t : typed)
    if (words.count(t)) out += (out.empty() ? "" : " ") + t;
  return out.empty() ? what : out;
}

int parseAndRun(CLI::App& app, Registration& chosen, const std::string& logLevel, int argc, char** argv) {
  std::vector<std::string> typed(argv + 1, argv + argc);
  auto stop = std::find(typed.begin(), typed.end(), "--");
  if (std::find(typed.begin(), stop, "--version") != stop) {
    std::cout << "velqor-camera " << VELQOR_VERSION << "\n";
    return kExitOk;
  }
  CommandLine::Reading reading;
  try {
    reading = CommandLine::read(app, typed);
    const bool helpFlag = std::find_if(typed.begin(), stop, [](const std::string& t) { return t == "-h" || t == "--help"; }) != stop;
    if (reading.path == std::vector<std::string>{"help"} && !helpFlag)
      return printHelp(app, std::vector<std::string>(reading.arguments.begin() + 1, reading.arguments.end()));
    std::vector<std::string> reversed(reading.arguments.rbegin(), reading.arguments.rend());
    app.parse(reversed);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ExtrasError& e) {
    Console::error("unexpected argument " + unexpectedWords(e.what(), typed) + "; see " +
                   CommandLine::commandName(reading.path) + " --help");
    return kExitUsage;
  } catch (const CLI::ParseError& e) {
    Console::error(std::string(e.what()) + "; see " + CommandLine::commandName(reading.path) + " --help");
    return kExitUsage;
  }
  if (!chosen.run) {
    Console::error(reading.path.empty() ? "a subcommand is required; see velqor-camera --help"
                                        : CommandLine::commandName(reading.path) + " needs a subcommand; see " +
                                              CommandLine::commandName(reading.path) + " --help");
    return kExitUsage;
  }
  Console::takeStandardOutput(*Console::levelNamed(logLevel));
  return chosen.run();
}

}  // namespace
}  // namespace velqor::cli

int main(int argc, char** argv) {
  using namespace velqor::cli;
  CLI::App app{"velqor-camera: the VelqorCamera plug-in on a simulated device"};
  app.name("velqor-camera");
  app.fallthrough();  // options of an outer command are accepted after a subcommand too
  app.footer(kExitTable);
  std::string logLevel = "info";
  app.add_option("--log-level", logLevel, "What stderr shows: debug, info (default), error or none")
      ->check(CLI::IsMember({"debug", "info", "error", "none"}));
  static bool versionFlag = false;  // answered before parsing, wherever it stands
  app.add_flag("--version", versionFlag, "Print the version and exit");
  Registration chosen;
  registerSpineCommands(app, chosen);
  registerDeviceCommands(app, chosen);
  registerImageCommands(app, chosen);
  registerMediaCommands(app, chosen);
  registerLibraryCommands(app, chosen);
  registerScenarioCommands(app, chosen);
  registerServeCommand(app, chosen);
  registerHelpCommands(app, chosen);
  try {
    return parseAndRun(app, chosen, logLevel, argc, argv);
  } catch (const UsageError& e) {
    Console::error(e.message);
    return kExitUsage;
  }
}
