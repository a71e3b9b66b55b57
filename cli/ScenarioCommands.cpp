#include <filesystem>
#include <fstream>

#include "cli/Cli.h"
#include "session/DemoReport.h"
#include "session/ScenarioRunner.h"

namespace velqor::cli {
namespace fs = std::filesystem;

namespace {

void printResult(const ScenarioResult& r, bool verbose) {
  if (verbose) {
    for (const auto& e : r.events) Console::result(e.dump());
    for (const auto& a : r.answers)
      Console::result(a.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).substr(0, 400));
    for (const auto& o : r.open) Console::result("open: " + o);
  }
  Console::result(std::string(r.passed ? "PASS " : "FAIL ") + r.name + " (" + std::to_string(r.answers.size()) +
                  " answers, " + std::to_string(r.open.size()) + " open, " + std::to_string(r.outputs.size()) +
                  " files)");
  for (const auto& d : r.differences) Console::result("  - " + d);
}

}  // namespace

void registerScenarioCommands(CLI::App& app, Registration& chosen) {
  static std::string file, work = "build/scenario-runs";
  static bool quiet = false, force = false;
  auto* run = app.add_subcommand("run", "Replay a scenario file and check its expectations");
  run->add_option("SCENARIO", file, "The scenario JSON file")->required();
  run->add_option("--work", work, "Where runs keep their files (default build/scenario-runs)");
  run->add_flag("--quiet", quiet, "Print only the verdict");
  run->add_flag("--force", force, "Empty a run folder that holds files this tool did not write");
  run->callback([&chosen] {
    chosen.run = [] {
      requireReadableFile("SCENARIO", file);
      auto result = ScenarioRunner::run(file, work, force);
      if (!result.ok()) throw UsageError{result.status().message()};
      printResult(*result, !quiet);
      return result->passed ? kExitOk : kExitFailure;
    };
  });

  static std::string scenarios = "scenarios", out = "build/demo";
  auto* demo = app.add_subcommand("demo", "Run the scenarios and write an HTML report");
  demo->add_option("--scenarios", scenarios, "The folder of scenario files (default scenarios)");
  demo->add_option("--out", out, "The report folder (default build/demo)");
  demo->callback([&chosen] {
    chosen.run = [] {
      std::vector<std::string> files;
      std::error_code ec;
      for (auto it = fs::directory_iterator(scenarios, ec); !ec && it != fs::directory_iterator(); it.increment(ec))
        if (it->path().extension() == ".json") files.push_back(it->path().string());
      if (files.empty()) throw UsageError{"no scenario files in " + scenarios};
      std::sort(files.begin(), files.end());
      std::vector<ScenarioResult> results;
      bool allPassed = true;
      for (const auto& f : files) {
        // A file that cannot be run shows as failed in the report; the rest still run.
        auto r = ScenarioRunner::runOrExplain(f, out + "/runs");
        printResult(r, false);
        allPassed = allPassed && r.passed;
        results.push_back(std::move(r));
      }
      auto report = DemoReport::write(results, out);
      if (!report.ok()) throw UsageError{report.status().message()};
      Console::result("report: " + *report);
      return allPassed ? kExitOk : kExitFailure;
    };
  });
}

}  // namespace velqor::cli
