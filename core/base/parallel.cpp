// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/parallel.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "core/base/seen_loop.h"

namespace kestrane {

namespace {

/// The one record of the parallel runtime; made at first use and never destroyed, since loops may
/// still run while static objects go.
struct ParallelState {
  std::mutex mutex;
  std::once_flag environmentRead;
  std::size_t limit = 0;
  std::shared_ptr<tbb::task_arena> arena;
};

std::atomic<std::size_t> pretendedHardware = 0;  // 0: none

std::size_t hardwareThreads() {
  const std::size_t pretended = pretendedHardware;
  return pretended != 0 ? pretended : std::max(1u, std::thread::hardware_concurrency());
}

void applyLimit(ParallelState& state, std::size_t n) {
  if (n >= hardwareThreads()) n = 0;
  auto arena = n == 0 ? nullptr : std::make_shared<tbb::task_arena>(static_cast<int>(n));
  const std::lock_guard lock(state.mutex);
  state.limit = n;
  state.arena.swap(arena);
}

ParallelState& parallelState() {
  static auto* state = new ParallelState;
  std::call_once(state->environmentRead, [] {
    applyLimit(*state, detail::parseThreadLimit(std::getenv("KESTRANE_THREADS")));
  });
  return *state;
}

/// The arena of the limit, for a caller who has to enter it. Null without a limit, and for a caller
/// already inside an arena at least as narrow: this is what keeps loops nested in a capped run
/// capped.
std::shared_ptr<tbb::task_arena> arenaToEnter() {
  ParallelState& state = parallelState();
  std::shared_ptr<tbb::task_arena> arena;
  {
    const std::lock_guard lock(state.mutex);
    arena = state.arena;
  }
  if (arena && tbb::this_task_arena::max_concurrency() <= arena->max_concurrency()) arena.reset();
  return arena;
}

}  // namespace

std::size_t threadCount() {
  ParallelState& state = parallelState();
  const std::lock_guard lock(state.mutex);
  return state.limit == 0 ? hardwareThreads() : state.limit;
}

void setThreadCount(std::size_t n) {
  applyLimit(parallelState(), n);
}

namespace detail {

namespace {

thread_local std::size_t bodiesAround = 0;

/// While a body runs.
struct InsideBody {
  InsideBody() { ++bodiesAround; }
  ~InsideBody() { --bodiesAround; }
  InsideBody(const InsideBody&) = delete;
  InsideBody& operator=(const InsideBody&) = delete;
};

void plainRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                void* context) {
  const SeenLoop loop;
  tbb::parallel_for(
      tbb::blocked_range<std::size_t>(begin, end, grain == 0 ? 1 : grain),
      [&](const tbb::blocked_range<std::size_t>& range) {
        // The library's own range is read before the body begins to be watched.
        const auto run = [body, context, first = range.begin(), last = range.end()] {
          body(context, first, last);
        };
        const SeenLoop::Body seen(loop);
        const InsideBody inside;
        run();
      },
      tbb::auto_partitioner());
}

}  // namespace

void parallelRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context) {
  if (begin >= end) return;
  const auto loop = [&] { plainRange(begin, end, grain, body, context); };
  if (const auto arena = arenaToEnter()) {
    arena->execute(loop);
  } else {
    loop();
  }
}

void isolatedRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context) {
  if (begin >= end) return;
  const auto loop = [&] {
    tbb::this_task_arena::isolate([&] { plainRange(begin, end, grain, body, context); });
  };
  if (const auto shared = arenaToEnter()) {
    // Its places may all be held by threads that wait for the caller's lock, and the caller would
    // wait for a place. An arena of its own always has one.
    tbb::task_arena own(shared->max_concurrency());
    own.execute(loop);
  } else {
    loop();
  }
}

std::size_t parseThreadLimit(const char* text) {
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  return *end == '\0' ? value : 0;
}

void runWithThreads(std::size_t threads, WholeBody body, void* context) {
  // Inside a narrower run, that one's cap holds.
  const auto around = static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
  if (threads == 0 || threads >= std::min(threadCount(), around)) {
    body(context);
    return;
  }
  tbb::task_arena arena(static_cast<int>(threads));
  arena.execute([&] { body(context); });
}

void pretendHardware(std::size_t threads) {
  pretendedHardware = threads;
}

}  // namespace detail

bool insideParallelLoop() {
  return detail::bodiesAround > 0;
}

}  // namespace kestrane
