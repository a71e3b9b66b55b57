#include <cstdio>
#include <iostream>

#include "cli/Cli.h"

int main(int argc, char** argv) {
  using namespace velqor::cli;
  CLI::App app{"velqor-camera: the VelqorCamera plug-in on a simulated device"};
  app.require_subcommand(1);
  Registration chosen;
  registerSpineCommands(app, chosen);
  registerDeviceCommands(app, chosen);
  registerImageCommands(app, chosen);
  registerMediaCommands(app, chosen);
  registerLibraryCommands(app, chosen);
  registerScenarioCommands(app, chosen);
  registerServeCommand(app, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "velqor-camera: " << e.what() << "\n";
    return kExitUsage;
  }
  if (!chosen.run) {
    std::cerr << "velqor-camera: no subcommand given\n";
    return kExitUsage;
  }
  try {
    return chosen.run();
  } catch (const UsageError& e) {
    std::cerr << "velqor-camera: " << e.message << "\n";
    return kExitUsage;
  }
}
