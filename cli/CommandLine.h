#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace velqor::cli {

// Reads a command line the way people type it, before CLI11 parses it: an
// option may come before or after its subcommand, and a word that is not a
// subcommand is named with the nearest one.
//
// Threads: main thread only (reads the CLI11 tree).
class CommandLine {
 public:
  struct Reading {
    // The arguments in the order CLI11 reads them: each option after the
    // subcommand it belongs to.
    std::vector<std::string> arguments;
    // The subcommand words found, outermost first ("library", "list").
    std::vector<std::string> path;
  };

  // Throws UsageError for an unknown subcommand.
  static Reading read(CLI::App& app, const std::vector<std::string>& arguments);

  // The candidate closest to `word` by edit distance, or empty when none is close.
  static std::string nearest(const std::string& word, const std::vector<std::string>& candidates);

  // The direct subcommand of `app` called `name`; null when there is none.
  static const CLI::App* subcommandNamed(const CLI::App& app, const std::string& name);

  // "velqor-camera library list" for a path.
  static std::string commandName(const std::vector<std::string>& path);
};

}  // namespace velqor::cli
