#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "host/CompletionAwaitable.h"
#include "host/ManualExecutor.h"
#include "host/Task.h"
#include "host/ThreadPool.h"

namespace velqor {
namespace {

using ::testing::ElementsAre;

TEST(ManualExecutorTest, RunsInPostingOrderAndQueuesPostsMadeWhileRunning) {
  ManualExecutor main;
  std::vector<int> order;
  main.post([&] {
    order.push_back(1);
    main.post([&] { order.push_back(3); });  // queued, not run inline
    order.push_back(2);
  });
  EXPECT_EQ(main.runPending(), 1u);
  EXPECT_THAT(order, ElementsAre(1, 2));
  EXPECT_TRUE(main.hasPending());
  main.runUntilIdle();
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
  EXPECT_FALSE(main.hasPending());
}

TEST(ManualExecutorTest, AcceptsPostsFromOtherThreads) {
  ManualExecutor main;
  std::atomic<int> ran{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int k = 0; k < 100; ++k) main.post([&] { ++ran; });
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(main.runUntilIdle(), 400u);
  EXPECT_EQ(ran.load(), 400);
}

TEST(ThreadPoolTest, RunsEverythingAndReportsIdle) {
  ThreadPool pool(3);
  std::atomic<int> ran{0};
  for (int i = 0; i < 1000; ++i) pool.post([&] { ++ran; });
  pool.waitIdle();
  EXPECT_EQ(ran.load(), 1000);
  EXPECT_TRUE(pool.idle());
}

Task<int> addOnPool(Executor& pool, Executor& main, std::vector<std::string>& trace, int a, int b) {
  trace.push_back("start");
  co_await runOnPool(pool);
  trace.push_back("pool");
  co_await resumeOnMain(main);
  trace.push_back("main");
  co_return a + b;
}

Task<void> outer(Executor& pool, Executor& main, std::vector<std::string>& trace, int& out) {
  out = co_await addOnPool(pool, main, trace, 2, 3);
  trace.push_back("done");
}

TEST(TaskTest, IsLazyAndHopsOnlyWhereAsked) {
  ManualExecutor main("main"), pool("pool");
  std::vector<std::string> trace;
  int result = 0;
  startDetached(main, outer(pool, main, trace, result));
  EXPECT_TRUE(trace.empty());  // nothing runs until the main queue does
  main.runPending();
  EXPECT_THAT(trace, ElementsAre("start"));
  pool.runPending();
  EXPECT_THAT(trace, ElementsAre("start", "pool"));
  main.runPending();
  EXPECT_THAT(trace, ElementsAre("start", "pool", "main", "done"));
  EXPECT_EQ(result, 5);
}

class RecordingMonitor : public CompletionMonitor {
 public:
  void completionCalledTwice(const std::string& op) override {
    std::lock_guard l(m);
    twice.push_back(op);
  }
  void completionNeverCalled(const std::string& op) override {
    std::lock_guard l(m);
    never.push_back(op);
  }
  std::mutex m;
  std::vector<std::string> twice, never;
};

struct CompletionCase {
  const char* name;
  int calls;  // how often the fake platform calls the completion
  bool resumed;
  size_t twiceReports;
  size_t neverReports;
};

void PrintTo(const CompletionCase& c, std::ostream* os) { *os << c.name; }

class CompletionContract : public ::testing::TestWithParam<CompletionCase> {};

Task<void> waitForPlatform(Executor& resumeOn, CompletionMonitor* monitor, int calls,
                           std::optional<int>& got) {
  got = co_await awaitCompletion<int>("fakeOperation(_:)", monitor, resumeOn,
                                      [calls](Resumer<int> resume) {
                                        for (int i = 0; i < calls; ++i) resume(40 + i);
                                      });
}

TEST_P(CompletionContract, ResumesOnceAndReportsMisuseByName) {
  const auto& c = GetParam();
  ManualExecutor exec;
  RecordingMonitor monitor;
  std::optional<int> got;
  startDetached(exec, waitForPlatform(exec, &monitor, c.calls, got));
  exec.runUntilIdle();
  EXPECT_EQ(got.has_value(), c.resumed);
  if (c.resumed) {
    EXPECT_EQ(*got, 40);  // the first completion wins
  }
  EXPECT_EQ(monitor.twice.size(), c.twiceReports);
  EXPECT_EQ(monitor.never.size(), c.neverReports);
  for (const auto& op : monitor.twice) EXPECT_EQ(op, "fakeOperation(_:)");
  for (const auto& op : monitor.never) EXPECT_EQ(op, "fakeOperation(_:)");
}

INSTANTIATE_TEST_SUITE_P(Calls, CompletionContract,
                         ::testing::Values(CompletionCase{"once", 1, true, 0, 0},
                                           CompletionCase{"twice", 2, true, 1, 0},
                                           CompletionCase{"thrice", 3, true, 2, 0},
                                           CompletionCase{"never", 0, false, 0, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CompletionFromAnotherThread, ResumesOnTheChosenExecutor) {
  ManualExecutor exec;
  std::optional<int> got;
  std::thread platform;
  auto task = [&]() -> Task<void> {
    got = co_await awaitCompletion<int>("threaded", nullptr, exec, [&](Resumer<int> resume) {
      platform = std::thread([resume] { resume(7); });
    });
  };
  startDetached(exec, task());
  exec.runOne();  // starts and suspends
  platform.join();
  EXPECT_FALSE(got.has_value());  // the completion only queued the resumption
  exec.runUntilIdle();
  EXPECT_EQ(got, 7);
}

}  // namespace
}  // namespace velqor
