// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What memory itself does: the bound of every operator that little more than moves points. The
// arrays are as large as the points of 1M strands; bytes a second count both reads and writes.

#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "bench/support/copying.h"

namespace kestrane {
namespace {

constexpr std::size_t size = 1'000'000 * 17 * 12;

void countBytes(benchmark::State& state, std::size_t bytesEach) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesEach));
}

/// Argument 0 everywhere here: cores.
void copy(benchmark::State& state) {
  const std::vector<std::byte> from(size, std::byte{1});
  std::vector<std::byte> to(size);
  runWithThreads(static_cast<std::size_t>(state.range(0)), [&] {
    for (auto _ : state) {
      copyInParallel(from, to.data());
      benchmark::ClobberMemory();
    }
  });
  if (to.back() != std::byte{1}) state.SkipWithError("the copy is not whole");
  countBytes(state, 2 * size);
}

/// The same in one call of memcpy a core, which at this size writes past the caches.
void copyWhole(benchmark::State& state) {
  const auto cores = static_cast<std::size_t>(state.range(0));
  const std::vector<std::byte> from(size, std::byte{1});
  std::vector<std::byte> to(size);
  runWithThreads(cores, [&] {
    for (auto _ : state) {
      parallelRange(0, cores, 1, [&](std::size_t first, std::size_t last) {
        const std::size_t begin = first * size / cores, end = last * size / cores;
        std::memcpy(to.data() + begin, from.data() + begin, end - begin);
      });
      benchmark::ClobberMemory();
    }
  });
  countBytes(state, 2 * size);
}

/// Memory that nobody has touched since the system gave it: what an array costs that no pool had.
void firstTouch(benchmark::State& state) {
  const auto piece = std::size_t{1} << 20;
  runWithThreads(static_cast<std::size_t>(state.range(0)), [&] {
    for (auto _ : state) {
      void* fresh = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (fresh == MAP_FAILED) {
        state.SkipWithError("no memory");
        return;
      }
      auto* bytes = static_cast<std::byte*>(fresh);
      parallelRange(0, size / piece, 1, [&](std::size_t first, std::size_t last) {
        std::memset(bytes + first * piece, 1, (last - first) * piece);
      });
      benchmark::DoNotOptimize(bytes);
      munmap(fresh, size);
    }
  });
  countBytes(state, size);
}

/// Writing alone, to memory in use.
void fill(benchmark::State& state) {
  const auto piece = std::size_t{1} << 18;
  std::vector<std::byte> bytes(size);
  runWithThreads(static_cast<std::size_t>(state.range(0)), [&] {
    for (auto _ : state) {
      parallelRange(0, size / piece, 1, [&](std::size_t first, std::size_t last) {
        std::memset(bytes.data() + first * piece, 1, (last - first) * piece);
      });
      benchmark::ClobberMemory();
    }
  });
  countBytes(state, size);
}

#define CORES ->ArgName("cores")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime()
BENCHMARK(copy) CORES;
BENCHMARK(copyWhole) CORES;
BENCHMARK(fill) CORES;
BENCHMARK(firstTouch) CORES;

}  // namespace
}  // namespace kestrane
