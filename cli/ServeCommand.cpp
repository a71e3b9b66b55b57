#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "cli/Cli.h"
#include "cli/DeviceOptions.h"
#include "files/UploadsFolder.h"
#include "session/ShippedData.h"
#include "web/WebServer.h"

namespace velqor::cli {
namespace {

std::atomic<bool> stopRequested{false};

void requestStop(int) { stopRequested = true; }

// The control panel and the page API installed with the program, found as the strings bundle is.
std::string shipped(const char* entry) { return ShippedData::find(entry).value_or(std::string()); }

}  // namespace

void registerServeCommand(CLI::App& app, Registration& chosen) {
  static DeviceOptions options;
  static WebServer::Options web;
  auto* serve = app.add_subcommand("serve", "Serve the plug-in to a web page, with the simulated device in the page");
  serve->add_option("--port", web.port, "TCP port (default 8080; 0 picks a free one)");
  serve->add_option("--host", web.host, "Address to listen on (default 127.0.0.1, loopback only)");
  serve->add_option("--app", web.appDirectory,
                    "Your app's folder, served at / (index.html first); it loads /velqor/host.js to reach the "
                    "plug-in. Without it, / leads to the control panel at /velqor/")
      ->check(CLI::ExistingDirectory);
  serve->add_option("--page-dir", web.pageDirectory,
                    "Directory of the control panel and host scripts served under /velqor/ (default: installed)");
  options.addTo(*serve, false);
  serve->callback([&chosen] {
    chosen.run = [] {
      if (web.pageDirectory.empty()) web.pageDirectory = shipped("page");
      if (web.apiDirectory.empty()) web.apiDirectory = shipped("api");
      auto uploads = UploadsFolder::create(UploadsFolder::defaultBase());
      if (!uploads.ok()) throw UsageError{uploads.status().message()};
      web.uploadsDirectory = (*uploads)->path();
      WebServer server(web);
      auto port = server.bind();
      if (!port.ok()) throw UsageError{port.status().message()};
      DeviceConfig config = options.toConfig();
      if (!config.fileUrlPrefix) config.fileUrlPrefix = server.origin() + "/files";
      auto session = DeviceSession::create(config);
      if (!session.ok()) throw UsageError{session.status().message()};
      auto& s = **session;
      // A page may run for days: keep the recent answers and events, not all of them.
      s.host().answers()->setRetention(256);
      s.host().answers()->setRetentionBytes(size_t{64} << 20);
      s.device().events()->setRetention(1024);
      WebBridge bridge(s, (*uploads)->path());
      const std::string tmp = s.services().temporaryDirectory->path();
      server.start(bridge, s.services().mainQueue, ContainedFiles({tmp, s.library().directory()}));
      std::signal(SIGINT, requestStop);
      std::signal(SIGTERM, requestStop);
      Console::result("velqor-camera: serving " + server.origin() + "/" +
                      (web.appDirectory.empty() ? std::string() : " (app " + web.appDirectory + ")") + " (temporary directory " + tmp + ", library " +
                      s.library().directory() + "); Ctrl-C stops");
      auto& main = s.host().mainQueue();
      while (!stopRequested) {
        main.waitForWork(std::chrono::milliseconds(100));
        main.runPending();
      }
      server.stop();
      s.host().runUntilQuiescent(std::chrono::seconds(5));
      Console::info("stopped");
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
