#include "tests/PluginHarness.h"

#include "platform/AlertController.h"

namespace velqor {
namespace {

using testing::PluginHarness;

// Both permission prompts show an alert, not an action sheet, with an empty
// title and two buttons of the default style: settings first, cancel second.
// A button switched to the cancel style would look different on the phone.
struct PromptCase {
  const char* name;
  bool cameraPrompt;  // false: the photo-library prompt, called by the host
};
void PrintTo(const PromptCase& c, std::ostream* os) { *os << c.name; }

class PromptLayout : public PluginHarness, public ::testing::WithParamInterface<PromptCase> {};

TEST_P(PromptLayout, TwoDefaultStyleButtonsOnAnAlert) {
  SimDeviceState s;
  s.cameraAccess = AccessState::denied;
  build(s);
  if (GetParam().cameraPrompt)
    takePicture("[]");
  else
    plugin_->retryPermission();
  runAll();
  const auto events = events_->events();
  ASSERT_FALSE(events.empty());
  const auto& shown = events.front();
  ASSERT_EQ(shown["event"], "alertShown");
  EXPECT_EQ(shown["title"], "");
  EXPECT_EQ(shown["style"], AlertController::styleAlert);
  EXPECT_EQ(shown["buttons"].size(), 2u);  // settings, then cancel
  EXPECT_EQ(shown["buttonStyles"], nlohmann::json::array({"default", "default"}));
  EXPECT_TRUE(device_->tapAlertButton("cancel"));
}

INSTANTIATE_TEST_SUITE_P(Prompts, PromptLayout,
                         ::testing::Values(PromptCase{"camera", true}, PromptCase{"photoLibrary", false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
