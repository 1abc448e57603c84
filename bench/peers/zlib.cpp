// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The atlas's pixels deflated by zlib at its fastest level, on one core, however many there are.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include "bench/support/card_atlas.h"

namespace kestrane {
namespace {

void deflateAtlasByZlib(benchmark::State& state) {
  const auto& pixels = benchAtlas(state.range(0));
  std::vector<std::uint8_t> file(compressBound(pixels.size()));
  uLongf size = 0;
  for (auto _ : state) {
    size = file.size();
    if (compress2(file.data(), &size, pixels.data(), pixels.size(), 1) != Z_OK) {
      state.SkipWithError("zlib failed");
      return;
    }
    benchmark::DoNotOptimize(file.data());
  }
  reportPicture(state, pixels.size(), size);
}
BENCHMARK(deflateAtlasByZlib)->Apply(atlasArguments);

}  // namespace
}  // namespace kestrane
