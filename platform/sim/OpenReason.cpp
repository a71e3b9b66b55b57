#include "platform/sim/OpenReason.h"

namespace velqor {

std::string_view OpenReason::stepName(NextStep step) {
  switch (step) {
    case NextStep::tapAlert: return "tapAlert";
    case NextStep::finishPicker: return "finishPicker";
    case NextStep::deliverFix: return "deliverFix";
    case NextStep::none: break;
  }
  return "none";
}

std::string OpenReason::forCommandLine() const {
  switch (next) {
    case NextStep::tapAlert: return explanation + "; choose a button with --tap settings|cancel";
    case NextStep::finishPicker: return explanation + "; give --photo, --video, --pick or --cancel";
    case NextStep::deliverFix:
      return explanation + "; give --location LAT,LON[,ALT], or pass --location-timeout S to deliver it without one";
    case NextStep::none: break;
  }
  return explanation;
}

}  // namespace velqor
