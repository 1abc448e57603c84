// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/parallel.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

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

std::size_t hardwareThreads() {
  const unsigned count = std::thread::hardware_concurrency();
  return count == 0 ? 1 : count;
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

std::shared_ptr<tbb::task_arena> currentArena() {
  ParallelState& state = parallelState();
  const std::lock_guard lock(state.mutex);
  return state.arena;
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

/// Runs the loop inside the limit's arena. A caller already inside an arena at least as narrow as
/// the limit stays there: this is what keeps loops nested in a capped run capped.
template <class Loop>
void inCurrentArena(const Loop& loop) {
  const auto arena = currentArena();
  if (arena && tbb::this_task_arena::max_concurrency() > arena->max_concurrency()) {
    arena->execute(loop);
  } else {
    loop();
  }
}

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
        run();
      },
      tbb::auto_partitioner());
}

}  // namespace

void parallelRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context) {
  if (begin >= end) return;
  inCurrentArena([&] { plainRange(begin, end, grain, body, context); });
}

void isolatedRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context) {
  if (begin >= end) return;
  // Into the arena first: changing arenas inside would leave the isolation.
  inCurrentArena([&] {
    tbb::this_task_arena::isolate([&] { plainRange(begin, end, grain, body, context); });
  });
}

std::size_t parseThreadLimit(const char* text) {
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  return *end == '\0' ? value : 0;
}

void runWithThreads(std::size_t threads, WholeBody body, void* context) {
  if (threads == 0 || threads >= threadCount()) {
    body(context);
    return;
  }
  tbb::task_arena arena(static_cast<int>(threads));
  arena.execute([&] { body(context); });
}

}  // namespace detail

}  // namespace kestrane
