
#include "cli/Cli.h"
#include "cli/DeviceOptions.h"
#include "cli/TakePictureArguments.h"
#include "host/ValueJson.h"

namespace velqor::cli {
namespace {

std::unique_ptr<DeviceSession> openSession(const DeviceOptions& options) {
  auto session = DeviceSession::create(options.toConfig());
  if (!session.ok()) throw UsageError{session.status().message()};
  auto& s = **session;
  if (auto id = options.pickedIdentifier(); id && !s.library().asset(*id).ok())
    throw UsageError{"--pick: \"" + *id + "\" is neither a file nor an asset of the library " + s.library().directory()};
  s.host().answers()->setListener([&s](const Answer& a) {
    {
      std::lock_guard lock(Console::resultMutex());
      a.writeJsonLine(Console::resultStream());
    }
    if (a.afterFinal) Console::error("command " + a.callbackId + " was answered again after its final answer");
    // The listener runs as the answer is logged: it is the last one so far.
    if (auto note = s.noteForAnswer(s.host().answers()->size() - 1)) Console::error("note: " + *note);
  });
  if (options.events)
    s.device().events()->setListener([](const nlohmann::ordered_json& e) {
      Console::result(e.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    });
  return std::move(*session);
}

// Runs a command to its answer; exit 3 with the reasons when none comes.
int runCommand(DeviceSession& s, const std::string& operation, Array args, double timeoutSeconds,
               std::optional<double> locationTimeout = std::nullopt) {
  auto id = s.host().callCommand(operation, std::move(args));
  if (!id) throw UsageError{"the plug-in has no operation " + operation};
  auto timeout = std::chrono::milliseconds(static_cast<long long>(timeoutSeconds * 1000));
  auto result = s.host().runUntilAnswered(*id, timeout);
  if (result != HostRuntime::RunResult::answered && locationTimeout && s.plugin().core()->pickerController.load()) {
    // The opt-in escape from a fix that never comes: wait, then deliver the
    // photo with the metadata it has, as the host may.
    s.host().mainQueue().waitForWork(std::chrono::milliseconds(static_cast<long long>(*locationTimeout * 1000)));
    if (!s.host().answers()->isAnswered(*id)) {
      Console::info("no location fix after " + std::to_string(*locationTimeout) + " s; delivering the photo without one");
      s.host().callPlain("imagePickerControllerReturnImageResult");
    }
    result = s.host().runUntilAnswered(*id, timeout);
  }
  // Let work started by the answer (an album save, a late second answer) end too.
  s.host().runUntilQuiescent(std::chrono::seconds(10));
  if (result == HostRuntime::RunResult::answered || s.host().answers()->isAnswered(*id)) return kExitOk;
  std::string why = operation + " is still open" +
                    (result == HostRuntime::RunResult::timedOut ? " after the timeout" : "") + ":";
  for (const auto& reason : s.whyOpen()) why += "\n  - " + reason;
  Console::error(why);
  return kExitUnanswered;
}

Array parseArgs(const std::string& text) {
  auto args = argumentsFromJson(text);
  if (!args.ok()) throw UsageError{"--args: " + args.status().message()};
  return std::move(args).value();
}

}  // namespace

void registerDeviceCommands(CLI::App& app, Registration& chosen) {
  static DeviceOptions takeOptions;
  static std::string takeArgs = "[]";
  auto* take = app.add_subcommand("take-picture", "Run one takePicture command against the simulated device");
  take->add_option("--args", takeArgs, "JSON array of takePicture arguments (default []; table below)");
  take->footer(kTakePictureArguments);
  takeOptions.addTo(*take, true);
  take->callback([&chosen] {
    chosen.run = [] {
      auto session = openSession(takeOptions);
      return runCommand(*session, "takePicture:", parseArgs(takeArgs), takeOptions.timeoutSeconds,
                        takeOptions.locationTimeout());
    };
  });

  static DeviceOptions retryOptions;
  auto* retry = app.add_subcommand("retry-permission",
                                   "Show the photo-library permission prompt, as the host may call it directly");
  retryOptions.addTo(*retry, true);
  retry->callback([&chosen] {
    chosen.run = [] {
      auto session = openSession(retryOptions);
      session->host().callPlain("retryPermission");
      session->host().runUntilQuiescent(std::chrono::milliseconds(static_cast<long long>(retryOptions.timeoutSeconds * 1000)));
      auto waiting = session->device().waitingFor();
      for (const auto& w : waiting) Console::error(w);
      return waiting.empty() ? kExitOk : kExitUnanswered;
    };
  });

  static DeviceOptions localizeOptions;
  static std::string key;
  auto* localize = app.add_subcommand("localize", "Look up a localized text by key");
  localize->add_option("KEY", key, "The localization key")->required();
  localizeOptions.addTo(*localize, false);
  localize->callback([&chosen] {
    chosen.run = [] {
      auto session = openSession(localizeOptions);
      auto text = session->host().callPlain("getLocalizingString:", Value(key));
      Console::result(text && text->asString() ? *text->asString() : std::string());
      return kExitOk;
    };
  });

  static DeviceOptions tempOptions;
  static std::string extension;
  auto* temp = app.add_subcommand("temp-path", "Print a new temporary file path for an extension");
  temp->add_option("EXT", extension, "The extension, without a dot")->required();
  tempOptions.addTo(*temp, false);
  temp->callback([&chosen] {
    chosen.run = [] {
      auto session = openSession(tempOptions);
      auto path = session->host().callPlain("tempFilePath:", Value(extension));
      Console::result(path && path->asString() ? *path->asString() : std::string());
      return kExitOk;
    };
  });

  static DeviceOptions cleanupOptions;
  auto* cleanup = app.add_subcommand("cleanup", "Empty the application's temporary directory and print the answer");
  cleanupOptions.addTo(*cleanup, false);
  cleanup->callback([&chosen] {
    chosen.run = [] {
      auto session = openSession(cleanupOptions);
      return runCommand(*session, "cleanup:", Array{}, 30);
    };
  });
}

}  // namespace velqor::cli
