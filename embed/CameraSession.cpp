#include "velqor/CameraSession.h"

#include <cmath>

#include "embed/CameraPluginWiring.h"
#include "embed/SetupTranslation.h"
#include "session/DeviceSession.h"

namespace velqor {

// The internal session and the public handle on its plug-in; the handle goes
// first, so its answer handler is gone before the session's threads stop.
// Work still queued on the main queue (an alert's dismissal after its answer)
// holds the device and the queue itself: it runs out before they go, or it
// would keep them alive forever.
struct CameraSession::Parts {
  static constexpr std::chrono::seconds kDrainLimit{5};
  std::unique_ptr<DeviceSession> session;
  std::unique_ptr<CameraPlugin> plugin;
  ~Parts() {
    plugin.reset();
    if (session) session->host().runUntilQuiescent(kDrainLimit);
  }
};

StatusOr<std::unique_ptr<CameraSession>> CameraSession::open(const DeviceSetup& setup) {
  ASSIGN_OR_RETURN(DeviceConfig config, SetupTranslation::toConfig(setup));
  ASSIGN_OR_RETURN(std::unique_ptr<DeviceSession> session, DeviceSession::create(std::move(config)));
  auto parts = std::make_unique<Parts>();
  parts->plugin.reset(new CameraPlugin(std::make_unique<CameraPlugin::Wiring>(session->host())));
  parts->session = std::move(session);
  return std::unique_ptr<CameraSession>(new CameraSession(std::move(parts)));
}

CameraSession::CameraSession(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}

CameraSession::~CameraSession() = default;

CameraPlugin& CameraSession::plugin() { return *parts_->plugin; }

std::vector<std::string> CameraSession::whyOpen() const { return parts_->session->whyOpen(); }

std::vector<std::string> CameraSession::events() const {
  std::vector<std::string> lines;
  for (const auto& e : parts_->session->device().events()->events())
    lines.push_back(e.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  return lines;
}

std::string CameraSession::temporaryDirectory() const {
  return parts_->session->services().temporaryDirectory->path();
}

std::string CameraSession::libraryDirectory() const { return parts_->session->library().directory(); }

}  // namespace velqor
