// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The atlas by libpng at its fastest level; libpng works on one core, however many there are.

#include <benchmark/benchmark.h>
#include <png.h>

#include "bench/support/card_atlas.h"

namespace kestrane {
namespace {

void pngAtlasByLibpng(benchmark::State& state) {
  const auto& pixels = benchAtlas(state.range(0));
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
    png_set_IHDR(png, info, atlasSize, atlasSize, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (std::size_t y = 0; y < atlasSize; ++y) {
      png_write_row(png, pixels.data() + 4 * atlasSize * y);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
  }
  reportPicture(state, pixels.size(), file.size());
}
BENCHMARK(pngAtlasByLibpng)->Apply(atlasArguments);

}  // namespace
}  // namespace kestrane
