#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "host/ManualExecutor.h"
#include "host/ValueJson.h"
#include "platform/sim/SimDevice.h"
#include "plugin/VelqorCameraPlugin.h"
#include "tests/FixedClock.h"
#include "tests/RecordingLog.h"
#include "tests/TestDirectory.h"

namespace velqor::testing {

// A plug-in on the simulated device with every executor driven by hand: the
// main queue, the worker pool and the platform thread are ManualExecutors, so
// each test chooses the interleaving and the outcome is repeatable.
class PluginHarness : public ::testing::Test {
 protected:
  void SetUp() override { build(SimDeviceState{}); }

  void TearDown() override {
    runAll();
    EXPECT_FALSE(main_->hasPending());
    EXPECT_THAT(answers_->doubleAnswers(), ::testing::IsEmpty());
    log_->uninstall();
  }

  void build(SimDeviceState state, bool withViewController = true) {
    if (log_) log_->uninstall();
    log_ = RecordingLog::install();
    device_ = std::make_shared<SimDevice>(std::move(state), main_, platform_, events_);
    PlatformServices s;
    s.mainQueue = main_;
    s.workerPool = pool_;
    s.clock = std::make_shared<FixedClock>(FixedClock::utc(2024, 1, 31, 13, 30, 5));
    s.locale = UserLocale{{"en"}, "en_US", "UTC", nullptr};
    std::filesystem::create_directories(dir_.path("tmp"));
    s.temporaryDirectory = std::make_shared<const TemporaryDirectory>(*TemporaryDirectory::open(dir_.path("tmp")));
    device_->installInto(s);
    customize(s);
    plugin_ = std::make_unique<VelqorCameraPlugin>(s);
    if (withViewController) plugin_->setViewController(device_->makeRootViewController());
    ops_ = plugin_->operations();
  }

  // Lets a fixture swap in further services before the plug-in is made.
  virtual void customize(PlatformServices&) {}

  std::shared_ptr<CallBackManager> command(const std::string& args, const std::string& id = "cmd") {
    auto parsed = argumentsFromJson(args);
    EXPECT_TRUE(parsed.ok()) << args;
    auto delegate = std::make_shared<CommandDelegate>();
    return std::make_shared<CallBackManager>(std::make_shared<VelqorCommand>(id, "takePicture", *parsed), delegate,
                                             answers_);
  }

  std::shared_ptr<CallBackManager> takePicture(const std::string& args, const std::string& id = "cmd") {
    auto cb = command(args, id);
    plugin_->takePicture(cb);
    return cb;
  }

  // Runs every executor until none has work left.
  void runAll() {
    for (int round = 0; round < 1000; ++round) {
      size_t ran = main_->runUntilIdle() + pool_->runUntilIdle() + platform_->runUntilIdle();
      if (ran == 0) return;
    }
    ADD_FAILURE() << "executors never went idle";
  }

  std::vector<Answer> answersFor(const std::string& id = "cmd") const { return answers_->answersFor(id); }
  PluginCore& core() { return *plugin_->core(); }

  TestDirectory dir_;
  std::shared_ptr<ManualExecutor> main_ = std::make_shared<ManualExecutor>("main");
  std::shared_ptr<ManualExecutor> pool_ = std::make_shared<ManualExecutor>("pool");
  std::shared_ptr<ManualExecutor> platform_ = std::make_shared<ManualExecutor>("platform");
  std::shared_ptr<SimEventLog> events_ = std::make_shared<SimEventLog>();
  std::shared_ptr<AnswerLog> answers_ = std::make_shared<AnswerLog>();
  std::shared_ptr<SimDevice> device_;
  std::unique_ptr<VelqorCameraPlugin> plugin_;
  HostOperationTable ops_;
  std::shared_ptr<RecordingLog> log_;
};

}  // namespace velqor::testing
