// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Strands as USD text, beside what the standard library formats of the same numbers; and pictures
// as PNG.

#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <vector>

#include "bench/support/card_atlas.h"
#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/base/text.h"
#include "core/export/deflate.h"
#include "core/export/png.h"
#include "core/export/usd_writer.h"

namespace kestrane {
namespace {

/// Strands of 17 points about 5 cm long, on a head's scale.
StrandSet benchStrands(std::size_t count) {
  StrandSet set;
  set.resizeFromCounts(std::vector<std::uint32_t>(count, 17));
  auto& ids = set.mutableIds();
  auto& points = set.mutablePoints();
  auto& widths = set.mutableWidths();
  for (std::size_t i = 0; i < count; ++i) {
    const auto draw = [&](std::uint64_t which) { return unitFloat(hashCombine(i, which)); };
    ids[i] = mix64(i);
    const Vec3f root{20.0f * draw(0) - 10.0f, 5.0f * draw(1), 20.0f * draw(2) - 10.0f};
    for (std::size_t k = 0; k < 17; ++k) {
      const float t = static_cast<float>(k) / 16.0f;
      const Vec3f wave{0.2f * std::sin(9.0f * t + draw(3)), 5.0f * t, 0.2f * std::cos(7.0f * t)};
      points[17 * i + k] = root + wave;
      widths[17 * i + k] = 0.01f * (1.0f - 0.7f * t);
    }
  }
  return set;
}

/// Rates are numbers a second: coordinates, widths, IDs and point counts.
std::int64_t usdNumbers(const StrandSet& set) {
  return static_cast<std::int64_t>(4 * set.pointCount() + 2 * set.strandCount());
}

void usdExport(benchmark::State& state) {
  const StrandSet set = benchStrands(static_cast<std::size_t>(state.range(0)));
  const std::string path =
      (std::filesystem::temp_directory_path() / "kestrane_bench.usda").string();
  for (auto _ : state) {
    UsdWriter writer(path, "bench", 24, 0.01, "Y");
    writer.writeFrame(0, set);
    writer.close();
  }
  state.SetItemsProcessed(state.iterations() * usdNumbers(set));
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(path)));
  std::filesystem::remove(path);
}

/// The same numbers formatted by the standard library alone, into one buffer per thread.
void usdExportByToChars(benchmark::State& state) {
  const StrandSet set = benchStrands(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    parallelRange(0, set.strandCount(), 1024, [&](std::size_t first, std::size_t last) {
      char text[longestNumber];
      const auto format = [&](auto value) {
        benchmark::DoNotOptimize(std::to_chars(text, text + longestNumber, value).ptr);
        benchmark::DoNotOptimize(text);
      };
      for (std::size_t strand = first; strand < last; ++strand) {
        format(set.ids()[strand]);
        format(set.offsets()[strand + 1] - set.offsets()[strand]);
        for (std::size_t i = set.offsets()[strand]; i < set.offsets()[strand + 1]; ++i) {
          const Vec3f point = set.points()[i];
          for (const float value : {point.x, point.y, point.z, set.widths()[i]}) format(value);
        }
      }
    });
  }
  state.SetItemsProcessed(state.iterations() * usdNumbers(set));
}

template <class Write>
void formatEach(benchmark::State& state, const Write& write) {
  const StrandSet set = benchStrands(static_cast<std::size_t>(state.range(0)));
  std::vector<char> text(set.pointCount() * 3 * longestNumber);
  for (auto _ : state) {
    char* out = text.data();
    for (const Vec3f point : set.points()) {
      for (const float value : {point.x, point.y, point.z}) out = write(out, value);
    }
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(3 * set.pointCount()));
}

/// On one core, from one buffer to another.
void formatFloats(benchmark::State& state) {
  formatEach(state, [](char* out, float value) { return writeNumber(out, value); });
}
void formatFloatsByToChars(benchmark::State& state) {
  formatEach(state, [](char* out, float value) {
    return std::to_chars(out, out + longestNumber, value).ptr;
  });
}

/// Argument 0: strands a card; 1: cores.
void pngAtlas(benchmark::State& state) {
  const auto& pixels = benchAtlas(state.range(0));
  std::size_t bytes = 0;
  runWithThreads(static_cast<std::size_t>(state.range(1)), [&] {
    for (auto _ : state) bytes = encodePng(atlasSize, atlasSize, 4, pixels).size();
  });
  reportPicture(state, pixels.size(), bytes);
}

/// The atlas's pixels as they are, without a picture's filters.
void deflateAtlas(benchmark::State& state) {
  const auto& pixels = benchAtlas(state.range(0));
  std::size_t bytes = 0;
  runWithThreads(static_cast<std::size_t>(state.range(1)), [&] {
    for (auto _ : state) bytes = zlibCompress(pixels).size();
  });
  reportPicture(state, pixels.size(), bytes);
}

constexpr auto unit = benchmark::kMillisecond;
#define SIZES ->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(unit)->UseRealTime()
BENCHMARK(usdExport) SIZES;
BENCHMARK(usdExportByToChars) SIZES;
BENCHMARK(formatFloats)->Arg(100000)->Unit(unit);
BENCHMARK(formatFloatsByToChars)->Arg(100000)->Unit(unit);
BENCHMARK(pngAtlas)->Apply(atlasArguments);
BENCHMARK(deflateAtlas)->Apply(atlasArguments);

}  // namespace
}  // namespace kestrane
