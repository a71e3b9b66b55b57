#include "cli/CommandLine.h"

#include <algorithm>

#include "cli/Cli.h"

namespace velqor::cli {
namespace {

bool isOption(const std::string& token) { return token.size() > 1 && token[0] == '-' && token != "--"; }

std::string optionName(const std::string& token) { return token.substr(0, token.find('=')); }

// The option `name` of `app` or of any subcommand below it; null when none has it.
const CLI::Option* findBelow(const CLI::App& app, const std::string& name) {
  if (const CLI::Option* own = app.get_option_no_throw(name)) return own;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    if (const CLI::Option* found = findBelow(*sub, name)) return found;
  return nullptr;
}

// The option `name` of `app` or of an app above it (where fallthrough sends it).
const CLI::Option* findAbove(const CLI::App* app, const std::string& name) {
  for (; app; app = app->get_parent())
    if (const CLI::Option* own = app->get_option_no_throw(name)) return own;
  return nullptr;
}

bool takesValue(const CLI::Option* option, const std::string& token) {
  return option && option->get_items_expected_max() > 0 && token.find('=') == std::string::npos;
}

std::vector<std::string> subcommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(sub->get_name());
  return names;
}

size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

[[noreturn]] void unknownSubcommand(const std::string& word, const CLI::App& level,
                                    const std::vector<std::string>& path) {
  std::string message = "unknown subcommand \"" + word + "\"";
  if (!path.empty()) message += " of " + CommandLine::commandName(path);
  if (std::string near = CommandLine::nearest(word, subcommandNames(level)); !near.empty())
    message += "; did you mean \"" + near + "\"?";
  throw UsageError{message + " See " + CommandLine::commandName(path) + " --help"};
}

}  // namespace

const CLI::App* CommandLine::subcommandNamed(const CLI::App& app, const std::string& name) {
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    if (sub->check_name(name)) return sub;
  return nullptr;
}

std::string CommandLine::commandName(const std::vector<std::string>& path) {
  std::string name = "velqor-camera";
  for (const auto& word : path) name += " " + word;
  return name;
}

std::string CommandLine::nearest(const std::string& word, const std::vector<std::string>& candidates) {
  std::string best;
  size_t bestDistance = std::max<size_t>(2, word.size() / 3) + 1;
  for (const auto& c : candidates) {
    size_t d = editDistance(word, c);
    if (c.rfind(word, 0) == 0 && word.size() >= 3) d = std::min<size_t>(d, 1);  // a prefix of it
    if (d < bestDistance) {
      bestDistance = d;
      best = c;
    }
  }
  return best;
}

CommandLine::Reading CommandLine::read(CLI::App& app, const std::vector<std::string>& arguments) {
  Reading reading;
  const CLI::App* level = &app;
  std::vector<std::string> early;  // options met before the subcommand they belong to
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& token = arguments[i];
    if (token == "--") {
      reading.arguments.insert(reading.arguments.end(), arguments.begin() + i, arguments.end());
      break;
    }
    if (isOption(token)) {
      const std::string name = optionName(token);
      const CLI::Option* here = findAbove(level, name);
      const CLI::Option* below = here ? nullptr : findBelow(*level, name);
      auto& into = below ? early : reading.arguments;
      into.push_back(token);
      if (takesValue(here ? here : below, token) && i + 1 < arguments.size()) into.push_back(arguments[++i]);
      continue;
    }
    if (!level->get_subcommands([](const CLI::App*) { return true; }).empty()) {
      const CLI::App* sub = subcommandNamed(*level, token);
      if (!sub) unknownSubcommand(token, *level, reading.path);
      reading.arguments.push_back(token);
      reading.arguments.insert(reading.arguments.end(), early.begin(), early.end());
      early.clear();
      reading.path.push_back(token);
      level = sub;
      continue;
    }
    reading.arguments.push_back(token);
  }
  reading.arguments.insert(reading.arguments.end(), early.begin(), early.end());
  return reading;
}

}  // namespace velqor::cli
