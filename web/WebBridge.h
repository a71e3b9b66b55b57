#pragma once

#include <nlohmann/json.hpp>

#include <deque>
#include <functional>
#include <string>

#include "session/DeviceSession.h"
#include "host/StatusOr.h"

namespace velqor {

// What the web page may do to the host and the simulated device, as JSON in
// and JSON out: call a plug-in command, read what is on the screen and the
// answers so far, act as the user on the picker and the alerts, deliver a
// location fix, change permissions and sources, list the photo library.
//
// Every call is made on the main queue's thread (WebServer posts them there);
// the bridge never blocks it. Errors are INVALID_ARGUMENT with a message the
// page can show.
//
// Threads: main queue only.
class WebBridge {
 public:
  // `uploads` is a directory the bridge owns for the files the user chooses
  // in the picker panel.
  WebBridge(DeviceSession& session, std::string uploads);

  // {"operation": NAME, "args": [...]}: starts the command and returns
  // {"callbackId": ID}. Only the plug-in's command operations are callable.
  StatusOr<nlohmann::json> call(const nlohmann::json& request);
  // A bounded summary: answers from index `answersFrom` on (status, size of
  // the payload's JSON, a short note; never the payload), events from
  // `eventsFrom` on, what is on the screen ("alert", "picker",
  // "settingsOpened", and the whole "stack"), the device settings, and under
  // "open" each unanswered command started here with why it is open and the
  // user's next step: [{"command", "operation", "reason", "action"}].
  nlohmann::json state(size_t answersFrom, size_t eventsFrom);
  // {"callbackId", "status", "keepCallback", "payload"} of the answer with
  // arrival index `index`, serialized; NOT_FOUND when it is not (or no
  // longer) kept.
  StatusOr<std::string> answerText(size_t index) const;
  // `changed` runs (on whichever thread records it) after every answer and
  // device event; nullptr stops it.
  void watch(std::function<void()> changed);

  // The user finishes the picker with a file they chose (its bytes): a camera
  // photo or video, optionally with an edit rectangle "x,y,w,h".
  StatusOr<nlohmann::json> finishPickerWithFile(const std::string& kind, const std::string& name,
                                               const std::string& bytes, const std::string& edit);
  // As finishPickerWithFile, with the file already stored at `path` (an
  // upload in the bridge's folder); the file is removed once the picker took
  // it or refused it.
  StatusOr<nlohmann::json> finishPickerWithUpload(const std::string& kind, const std::string& name,
                                                 const std::string& path, const std::string& edit);
  // The user picks an asset of the photo library: {"asset": localIdentifier,
  // "edit": "x,y,w,h" (optional crop)}. Answers with the asset's metadata
  // under "before".
  StatusOr<nlohmann::json> pickAsset(const nlohmann::json& request);
  StatusOr<nlohmann::json> cancelPicker();
  // {"button": title, or "settings"/"cancel"}
  StatusOr<nlohmann::json> tapAlert(const nlohmann::json& request);
  // {"latitude": .., "longitude": .., "altitude": ..?, "timestamp": ISO-8601?}
  StatusOr<nlohmann::json> deliverFix(const nlohmann::json& request);
  // Any of {"cameraAccess", "libraryAccess", "cameraAnswer", "libraryAnswer",
  // "sources": [...], "hasViewController": bool, "languages": [tags]};
  // returns the device
  // settings after the change.
  StatusOr<nlohmann::json> configureDevice(const nlohmann::json& request);
  StatusOr<nlohmann::json> library() const;

  // Image metadata of encoded bytes ({} when it carries none readable).
  static nlohmann::json metadataOf(const std::string& bytes);

 private:
  nlohmann::json deviceSettings() const;
  nlohmann::json openCommands() const;
  nlohmann::json screen() const;
  // The summaries of answers from `from` on, made once per answer.
  nlohmann::json answerSummaries(size_t from);

  // A command this bridge started, kept until it is answered.
  struct Started {
    std::string callbackId;
    std::string operation;
    size_t eventsFrom = 0;  // the device's event count when it started
  };

  DeviceSession& session_;
  std::vector<Started> started_;
  std::string uploads_;
  int uploadCount_ = 0;
  // Summaries of the most recent answers; the first has arrival index summaryBase_.
  std::deque<nlohmann::json> summaries_;
  size_t summaryBase_ = 0;
};

}  // namespace velqor
