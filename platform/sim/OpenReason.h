#pragma once

#include <string>
#include <string_view>

namespace velqor {

// Why a command has no answer yet, and what would move it on. The command
// line, the scenario report and the web page all show the same explanation;
// each front end says in its own words how the user takes the next step.
//
// Threads: a plain value.
struct OpenReason {
  enum class NextStep {
    none,          // nothing the user can do will answer it
    tapAlert,      // an alert waits for one of its buttons
    finishPicker,  // the picker waits for a photo, a video, a pick or a cancel
    deliverFix,    // a photo waits for a location fix
  };

  std::string explanation;
  NextStep next = NextStep::none;

  // "tapAlert", "finishPicker", "deliverFix" or "none": the key the web page reads.
  static std::string_view stepName(NextStep step);
  // The explanation followed by the command-line options that take the next step.
  std::string forCommandLine() const;

  bool operator==(const OpenReason&) const = default;
};

}  // namespace velqor
