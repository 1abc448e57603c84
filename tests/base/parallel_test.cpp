// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/parallel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/base/bulk.h"

namespace kestrane {
namespace {

/// Leaves the process without a limit, as other tests expect it.
class ParallelThreads : public testing::Test {
 protected:
  void TearDown() override {
    detail::pretendHardware(0);
    setThreadCount(0);
  }
};

/// How many different threads a loop of short sleeps runs on.
std::size_t threadsOfALoop() {
  std::mutex mutex;
  std::set<std::thread::id> seen;
  parallelRange(0, 64, 1, [&](std::size_t, std::size_t) {
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    const std::lock_guard lock(mutex);
    seen.insert(std::this_thread::get_id());
  });
  return seen.size();
}

std::size_t hardware() {
  return std::max(1u, std::thread::hardware_concurrency());
}

TEST(ParallelLimit, IsADecimalNumberAndNothingElse) {
  const struct {
    const char* text;
    std::size_t limit;
  } cases[] = {{nullptr, 0}, {"", 0},   {"abc", 0}, {"8x", 0}, {"0", 0},
               {"8", 8},     {"08", 8}, {"0x8", 0}, {"3 ", 0}, {"1.5", 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(detail::parseThreadLimit(c.text), c.limit) << (c.text ? c.text : "unset");
  }
  // More than any machine has, and so no limit.
  EXPECT_GE(detail::parseThreadLimit("99999999999999999999999"), hardware());
}

// In processes of their own: the variable is read once, at the first use.
TEST(ParallelLimitDeathTest, ComesFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const struct {
    const char* text;
    int threads;
  } cases[] = {{"3", 3}, {"8", 8}, {"9", 8}, {"0", 8}, {"3x", 8}, {"", 8}};
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          setenv("KESTRANE_THREADS", c.text, 1);
          detail::pretendHardware(8);
          std::exit(static_cast<int>(threadCount()));
        },
        testing::ExitedWithCode(c.threads), "")
        << c.text;
  }
}

TEST_F(ParallelThreads, LimitAtOrAboveTheHardwareIsNone) {
  for (const std::size_t n : {std::size_t{0}, hardware(), hardware() + 1, SIZE_MAX}) {
    setThreadCount(n);
    EXPECT_EQ(threadCount(), hardware());
  }
  setThreadCount(1);
  EXPECT_EQ(threadCount(), 1u);
}

TEST_F(ParallelThreads, EveryIndexRunsOnceAtAnyGrain) {
  for (const std::size_t limit : {0, 1}) {
    setThreadCount(limit);
    for (const std::size_t grain : {0, 1, 7, 1000, 100000}) {
      std::vector<int> runs(5003);
      parallelRange(3, runs.size(), grain, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) ++runs[i];
      });
      EXPECT_EQ(std::accumulate(runs.begin(), runs.begin() + 3, 0), 0);
      EXPECT_TRUE(std::all_of(runs.begin() + 3, runs.end(), [](int n) { return n == 1; }));
    }
  }
}

TEST(Parallel, EmptyRangesRunNothing) {
  const auto never = [](std::size_t, std::size_t) { FAIL(); };
  parallelRange(5, 5, 1, never);
  parallelRange(6, 5, 1, never);
  isolatedRange(5, 5, 0, never);
}

TEST_F(ParallelThreads, ExceptionReachesTheCallerAndLoopsStillRun) {
  for (const std::size_t limit : {0, 1}) {
    setThreadCount(limit);
    const auto loop = [](std::size_t first, std::size_t last) {
      parallelRange(first, last, 1, [](std::size_t from, std::size_t to) {
        if (from <= 70 && 70 < to) throw std::out_of_range("seventy");
      });
    };
    try {
      parallelRange(0, 100, 1, loop);
      FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "seventy");
    }
    std::atomic<int> count = 0;
    parallelRange(0, 100, 1, [&](std::size_t first, std::size_t last) {
      count += static_cast<int>(last - first);
    });
    EXPECT_EQ(count, 100);
  }
}

TEST_F(ParallelThreads, CapHoldsInNestedLoops) {
  setThreadCount(1);
  EXPECT_EQ(threadsOfALoop(), 1u);
  setThreadCount(0);
  bool ran = false;
  runWithThreads(1, [&] {
    std::atomic<std::size_t> most = 0;
    parallelRange(0, 2, 1, [&](std::size_t, std::size_t) {
      const std::size_t threads = threadsOfALoop();
      if (threads > most) most = threads;
    });
    EXPECT_EQ(most, 1u);
    ran = true;
  });
  EXPECT_TRUE(ran);
  EXPECT_THROW(runWithThreads(1, [] { throw std::runtime_error("out"); }), std::runtime_error);
  detail::pretendHardware(8);
  for (const std::size_t limit : {0, 2, 3}) {
    setThreadCount(limit);
    runWithThreads(1, [] {
      EXPECT_EQ(threadsOfALoop(), 1u) << "the limit's arena lifted the cap";
      runWithThreads(2, [] { EXPECT_EQ(threadsOfALoop(), 1u) << "a wider run lifted the cap"; });
    });
  }
  setThreadCount(0);
  // The cap is gone with the run.
  if (hardware() > 1) {
    EXPECT_GT(threadsOfALoop(), 1u);
  }
}

TEST_F(ParallelThreads, LimitMayChangeWhileLoopsRun) {
  std::atomic<bool> done = false;
  std::thread changer([&] {
    for (std::size_t n = 0; !done; ++n) setThreadCount(n % 3);
  });
  for (int round = 0; round < 200; ++round) {
    std::atomic<std::size_t> sum = 0;
    parallelRange(0, 1000, 10, [&](std::size_t first, std::size_t last) { sum += last - first; });
    ASSERT_EQ(sum, 1000u);
  }
  done = true;
  changer.join();
}

TEST_F(ParallelThreads, IsolatedLoopTakesUpNoWorkOfTheLoopAroundIt) {
  // Under a lock that the outer bodies take, too, such work would lock twice.
  std::atomic<std::size_t> count = 0, entered = 0;
  parallelRange(0, 100, 1, [&](std::size_t first, std::size_t last) {
    thread_local bool inside = false;
    for (std::size_t i = first; i < last; ++i) {
      if (inside) ++entered;
      inside = true;
      isolatedRange(0, 16, 1, [&](std::size_t from, std::size_t to) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        count += to - from;
      });
      inside = false;
    }
  });
  EXPECT_EQ(count, 100u * 16u);
  EXPECT_EQ(entered, 0u);
}

TEST_F(ParallelThreads, LoopUnderALockWaitsForNoneWhoWaitForTheLock) {
  setThreadCount(1);
  std::mutex mutex;
  std::unique_lock lock(mutex);
  std::atomic<int> inside = 0;
  const auto waiter = [&] {
    parallelRange(0, 1, 1, [&](std::size_t, std::size_t) {
      ++inside;
      const std::lock_guard wait(mutex);
    });
  };
  // Two are as many as the arena of one thread lets in at once.
  std::thread waiters[] = {std::thread(waiter), std::thread(waiter)};
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (inside < 2 && std::chrono::steady_clock::now() < patience) std::this_thread::yield();
  std::atomic<std::size_t> count = 0;
  auto loop = std::async(std::launch::async, [&] {
    isolatedRange(0, 16, 1, [&](std::size_t first, std::size_t last) {
      parallelRange(first, last, 1, [&](std::size_t from, std::size_t to) { count += to - from; });
    });
  });
  const auto state = loop.wait_for(std::chrono::seconds(10));
  lock.unlock();
  loop.get();
  for (std::thread& thread : waiters) thread.join();
  EXPECT_EQ(state, std::future_status::ready) << "the loop ended only when the lock was released";
  EXPECT_EQ(count, 16u);
}

TEST(BulkThreads, CopyAndFillReachEveryElement) {
  for (const std::size_t count : {0, 1, 1000, 3000001}) {
    std::vector<std::uint32_t> from(count), to(count + 1, 7u);
    std::iota(from.begin(), from.end(), 0u);
    copyElements(from.data(), count, to.data());
    EXPECT_TRUE(std::equal(from.begin(), from.end(), to.begin()));
    fillElements(to.data(), count, 9u);
    EXPECT_EQ(static_cast<std::size_t>(std::count(to.begin(), to.end(), 9u)), count);
    EXPECT_EQ(to.back(), 7u);
  }
}

}  // namespace
}  // namespace kestrane
