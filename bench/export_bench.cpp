// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Strands as USD text, beside what the standard library formats of the same numbers on one core;
// and pictures as PNG, beside libpng at its fastest level where it is installed.

#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <vector>

#include "core/base/hash.h"
#include "core/base/text.h"
#include "core/export/png.h"
#include "core/export/usd_writer.h"

#if defined(KESTRANE_BENCH_LIBPNG)
#include <png.h>
#endif

namespace kestrane {
namespace {

/// Strands of 17 points about 5 cm long, on a head's scale.
StrandSet benchStrands(std::size_t count) {
  StrandSet set;
  set.resizeFromCounts(std::vector<std::uint32_t>(count, 17));
  for (std::size_t i = 0; i < count; ++i) {
    const auto draw = [&](std::uint64_t which) { return unitFloat(hashCombine(i, which)); };
    set.mutableIds()[i] = mix64(i);
    const Vec3f root{20.0f * draw(0) - 10.0f, 5.0f * draw(1), 20.0f * draw(2) - 10.0f};
    for (std::size_t k = 0; k < 17; ++k) {
      const float t = static_cast<float>(k) / 16.0f;
      const Vec3f wave{0.2f * std::sin(9.0f * t + draw(3)), 5.0f * t, 0.2f * std::cos(7.0f * t)};
      set.mutablePoints()[17 * i + k] = root + wave;
      set.mutableWidths()[17 * i + k] = 0.01f * (1.0f - 0.7f * t);
    }
  }
  return set;
}

/// Rates are numbers a second: coordinates, widths, IDs and point counts.
void usdExport(benchmark::State& state) {
  const StrandSet set = benchStrands(static_cast<std::size_t>(state.range(0)));
  const std::string path =
      (std::filesystem::temp_directory_path() / "kestrane_bench.usda").string();
  for (auto _ : state) {
    UsdWriter writer(path, "bench", 24, 0.01, "Y");
    writer.writeFrame(0, set);
    writer.close();
  }
  const std::size_t numbers = 4 * set.pointCount() + 2 * set.strandCount();
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers));
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(std::filesystem::file_size(path)));
  std::filesystem::remove(path);
}

template <class Write>
void formatFloats(benchmark::State& state, const Write& write) {
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

void floatsByLibrary(benchmark::State& state) {
  formatFloats(state, [](char* out, float value) {
    return std::to_chars(out, out + longestNumber, value).ptr;
  });
}
void floatsByWriter(benchmark::State& state) {
  formatFloats(state, [](char* out, float value) { return writeNumber(out, value); });
}

/// A card atlas: 64 cards of that many antialiased strands, RGBA, black where there is no hair.
std::vector<std::uint8_t> benchAtlas(std::size_t size, std::size_t strandsPerCard) {
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

void report(benchmark::State& state, std::size_t pixelBytes, std::size_t fileBytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(pixelBytes));
  state.counters["file_kB"] = static_cast<double>(fileBytes) / 1000.0;
}

void pngAtlas(benchmark::State& state) {
  const int size = 4096;
  const auto pixels = benchAtlas(size, static_cast<std::size_t>(state.range(0)));
  std::size_t bytes = 0;
  for (auto _ : state) bytes = encodePng(size, size, 4, pixels).size();
  report(state, pixels.size(), bytes);
}

#if defined(KESTRANE_BENCH_LIBPNG)
void pngAtlasByLibpng(benchmark::State& state) {
  const std::size_t size = 4096;
  const auto pixels = benchAtlas(size, static_cast<std::size_t>(state.range(0)));
  std::vector<std::uint8_t> file;
  for (auto _ : state) {
    file.clear();
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &file,
        [](png_structp writer, png_bytep data, std::size_t count) {
          auto& out = *static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(writer));
          out.insert(out.end(), data, data + count);
        },
        nullptr);
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, size, size, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (std::size_t y = 0; y < size; ++y) png_write_row(png, pixels.data() + 4 * size * y);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
  }
  report(state, pixels.size(), file.size());
}
#endif

constexpr auto unit = benchmark::kMillisecond;
BENCHMARK(usdExport)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(unit)->UseRealTime();
BENCHMARK(floatsByLibrary)->Arg(100000)->Unit(unit);
BENCHMARK(floatsByWriter)->Arg(100000)->Unit(unit);
BENCHMARK(pngAtlas)->Arg(20)->Arg(60)->Arg(200)->Unit(unit)->UseRealTime();
#if defined(KESTRANE_BENCH_LIBPNG)
BENCHMARK(pngAtlasByLibpng)->Arg(20)->Arg(60)->Arg(200)->Unit(unit)->UseRealTime();
#endif

}  // namespace
}  // namespace kestrane
