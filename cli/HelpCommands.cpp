#include <iostream>
#include <map>
#include <sstream>

#include "cli/Cli.h"
#include "cli/CommandLine.h"

namespace velqor::cli {
namespace {

std::vector<const CLI::App*> children(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string words(const std::vector<std::string>& list) {
  std::string out;
  for (const auto& w : list) out += (out.empty() ? "" : " ") + w;
  return out;
}

// One `case` arm per command path: its subcommands and options, and for each
// option that takes a value, what to offer for it.
void completionCases(const CLI::App& app, const std::string& path, std::ostream& out) {
  std::vector<std::string> subs, options, valueOptions;
  for (const CLI::App* sub : children(app)) subs.push_back(sub->get_name());
  for (const CLI::Option* opt : app.get_options()) {
    for (const auto& name : opt->get_lnames()) {
      options.push_back("--" + name);
      if (opt->get_items_expected_max() > 0) valueOptions.push_back("--" + name);
    }
    for (const auto& name : opt->get_snames()) options.push_back("-" + name);
  }
  out << "    \"" << path << "\") subs=\"" << words(subs) << "\"; opts=\"" << words(options) << "\"; valued=\""
      << words(valueOptions) << "\" ;;\n";
  for (const CLI::App* sub : children(app))
    completionCases(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name(), out);
}

// Values worth offering for the options whose values are a fixed set.
constexpr const char* kChoices = R"(    --log-level) words="debug info error none" ;;
    --camera-access) words="notDetermined restricted denied authorized" ;;
    --library-access|--library-answer) words="notDetermined restricted denied authorized limited" ;;
    --camera-answer) words="granted denied" ;;
    --tap) words="settings cancel" ;;
    --sources) words="library camera album" ;;
)";

std::string bashCompletion(const CLI::App& app) {
  std::ostringstream out;
  out << "# bash completion for velqor-camera, written by `velqor-camera completion bash`.\n"
         "_velqor_camera() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local path=\"\" word subs opts valued words i\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    word=${COMP_WORDS[i]}\n"
         "    [[ $word == -* ]] && continue\n"
         "    _velqor_camera_table \"$path\"\n"
         "    [[ \" $subs \" == *\" $word \"* ]] && path=${path:+$path }$word\n"
         "  done\n"
         "  case $prev in\n"
      << kChoices
      << "    *) words=\"\" ;;\n"
         "  esac\n"
         "  if [[ -n $words ]]; then COMPREPLY=($(compgen -W \"$words\" -- \"$cur\")); return; fi\n"
         "  _velqor_camera_table \"$path\"\n"
         "  if [[ \" $valued \" == *\" $prev \"* ]]; then COMPREPLY=($(compgen -f -- \"$cur\")); return; fi\n"
         "  if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W \"$opts --log-level --version\" -- \"$cur\")); return; fi\n"
         "  if [[ -n $subs ]]; then COMPREPLY=($(compgen -W \"$subs\" -- \"$cur\")); return; fi\n"
         "  COMPREPLY=($(compgen -f -- \"$cur\"))\n"
         "}\n"
         "_velqor_camera_table() {\n"
         "  case $1 in\n";
  completionCases(app, "", out);
  out << "    *) subs=\"\"; opts=\"\"; valued=\"\" ;;\n"
         "  esac\n"
         "}\n"
         "complete -o filenames -F _velqor_camera velqor-camera\n";
  return out.str();
}

}  // namespace

int printHelp(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* about = &app;
  std::vector<std::string> path;
  for (const auto& word : words) {
    const CLI::App* sub = CommandLine::subcommandNamed(*about, word);
    if (!sub) {
      std::vector<std::string> names;
      for (const CLI::App* c : children(*about)) names.push_back(c->get_name());
      std::string near = CommandLine::nearest(word, names);
      throw UsageError{"no subcommand \"" + word + "\"" + (near.empty() ? "" : "; did you mean \"" + near + "\"?")};
    }
    path.push_back(word);
    about = sub;
  }
  // App::help would describe the subcommand chosen on this command line (help itself).
  std::cout << about->get_formatter()->make_help(about, CommandLine::commandName(path), CLI::AppFormatMode::Normal);
  return kExitOk;
}

void registerHelpCommands(CLI::App& app, Registration& chosen) {
  // Listed in --help; main() answers `help WORDS...` itself, before CLI11 could
  // take WORDS for the subcommand to run.
  static std::vector<std::string> topic;
  auto* help = app.add_subcommand("help", "Print the help of velqor-camera or of a subcommand");
  help->add_option("SUBCOMMAND", topic, "The subcommand, with its own subcommand if it has one");
  help->callback([&app, &chosen] { chosen.run = [&app] { return printHelp(app, topic); }; });

  static std::string shell;
  auto* completion = app.add_subcommand("completion", "Print a shell completion script (bash)");
  completion->add_option("SHELL", shell, "The shell: bash")->required()->check(CLI::IsMember({"bash"}));
  completion->callback([&app, &chosen] {
    chosen.run = [&app] {
      Console::result(bashCompletion(app));
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
