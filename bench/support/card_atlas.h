// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <vector>

#include "core/base/hash.h"
#include "core/base/vec.h"

namespace kestrane {

inline constexpr std::size_t atlasSize = 4096;

/// A card atlas: 64 cards of that many antialiased strands, RGBA, black where there is no hair.
inline std::vector<std::uint8_t> drawAtlas(std::size_t size, std::size_t strandsPerCard) {
  std::vector<float> cover(size * size), colors(3 * size * size);
  const std::size_t width = size / 16, height = size / 4;
  const float scale = static_cast<float>(size) / 4096.0f;
  for (std::size_t strand = 0; strand < 64 * strandsPerCard; ++strand) {
    const auto draw = [&](std::uint64_t which) { return unitFloat(hashCombine(strand, which)); };
    const std::size_t card = strand / strandsPerCard, left = card % 16 * width;
    const float x0 =
        static_cast<float>(left) + static_cast<float>(width) * (0.15f + 0.7f * draw(0));
    const float sway = 0.08f * static_cast<float>(width) * draw(1), turns = 6.0f + 19.0f * draw(2);
    const float bright = 0.3f + 0.5f * draw(3), thick = scale * (1.0f + 2.0f * draw(4));
    const auto rows =
        static_cast<std::size_t>(static_cast<float>(height) * (0.6f + 0.4f * draw(5)));
    for (std::size_t y = 0; y < rows; ++y) {
      const float t = static_cast<float>(y) / static_cast<float>(height);
      const float x = x0 + sway * t * std::sin(turns * t), half = 0.3f + thick * (0.5f - 0.35f * t);
      for (auto column = static_cast<long>(x - half - 1); column <= x + half + 1; ++column) {
        const float apart = std::abs(static_cast<float>(column) + 0.5f - x);
        const float alpha = std::clamp(half + 0.5f - apart, 0.0f, 1.0f);
        if (alpha <= 0.0f || column < 0 || static_cast<std::size_t>(column) >= size) continue;
        const std::size_t pixel =
            (card / 16 * height + y) * size + static_cast<std::size_t>(column);
        const float shade = bright * (1.0f - 0.4f * apart / (half + 0.5f));
        const float color[] = {0.9f - 0.3f * t, 0.6f - 0.2f * t, 0.4f - 0.2f * t};
        for (std::size_t c = 0; c < 3; ++c) {
          colors[3 * pixel + c] = lerp(colors[3 * pixel + c], shade * color[c], alpha);
        }
        cover[pixel] = lerp(cover[pixel], 1.0f, alpha);
      }
    }
  }
  std::vector<std::uint8_t> pixels(4 * size * size);
  for (std::size_t i = 0; i < cover.size(); ++i) {
    if (cover[i] <= 0.0f) continue;
    for (std::size_t c = 0; c < 3; ++c) {
      const float linear = std::clamp(colors[3 * i + c] / cover[i], 0.0f, 1.0f);
      pixels[4 * i + c] = static_cast<std::uint8_t>(255.0f * std::pow(linear, 1.0f / 2.2f) + 0.5f);
    }
    pixels[4 * i + 3] = static_cast<std::uint8_t>(255.0f * cover[i] + 0.5f);
  }
  return pixels;
}

/// The atlas of 4096 x 4096 pixels; drawn once per program, since a benchmark that repeats asks for
/// it every time and drawing takes longer than what is measured.
inline const std::vector<std::uint8_t>& benchAtlas(std::int64_t strandsPerCard) {
  static std::map<std::int64_t, std::vector<std::uint8_t>> drawn;
  std::vector<std::uint8_t>& pixels = drawn[strandsPerCard];
  if (pixels.empty()) pixels = drawAtlas(atlasSize, static_cast<std::size_t>(strandsPerCard));
  return pixels;
}

/// Strands a card, and cores.
inline void atlasArguments(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"strands", "cores"})
      ->ArgsProduct({{20, 60, 200}, {1, 2}})
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}

inline void reportPicture(benchmark::State& state, std::size_t pixelBytes, std::size_t fileBytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(pixelBytes));
  state.counters["file_kB"] = static_cast<double>(fileBytes) / 1000.0;
}

}  // namespace kestrane
