// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/png.h"

#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "core/base/file.h"
#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/export/tga.h"
#include "tests/support/temp_folder.h"

namespace kestrane {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// A picture with flat, smooth and noisy stretches, so that rows differ in their best filter.
Bytes makePixels(int width, int height, int channels, std::uint64_t seed = 1) {
  Bytes pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) {
        const auto draw = mix64(seed + static_cast<std::uint64_t>((y * width + x) * 4 + c));
        const int kinds[] = {c * 60, x * (c + 1), y * 3 + c,
                             (x + y) * 2 + static_cast<int>(draw % 3),
                             static_cast<int>(draw & 255)};
        pixels.push_back(static_cast<std::uint8_t>(kinds[y / 3 % 5]));
      }
    }
  }
  return pixels;
}

/// What libpng reads.
struct Decoded {
  int width = 0, height = 0, depth = 0, channels = 0;
  Bytes bytes;  // 16-bit samples with the high byte first
};

Decoded decode(const Array<std::uint8_t>& file) {
  Decoded result;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::pair<const std::uint8_t*, std::size_t> rest{file.data(), file.size()};
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_read_fn(png, &rest, [](png_structp reader, png_bytep out, std::size_t count) {
      auto& from = *static_cast<decltype(rest)*>(png_get_io_ptr(reader));
      if (count > from.second) png_error(reader, "too short");
      std::memcpy(out, from.first, count);
      from.first += count;
      from.second -= count;
    });
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    result.width = static_cast<int>(png_get_image_width(png, info));
    result.height = static_cast<int>(png_get_image_height(png, info));
    result.depth = png_get_bit_depth(png, info);
    result.channels = png_get_channels(png, info);
    for (int y = 0; y < result.height; ++y) {
      const png_bytep row = png_get_rows(png, info)[y];
      result.bytes.insert(result.bytes.end(), row, row + png_get_rowbytes(png, info));
    }
  } else {
    ADD_FAILURE() << "libpng cannot read the file";
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return result;
}

constexpr int sizes[][2] = {{1, 1}, {1, 40}, {40, 1}, {3, 7}, {67, 50}, {300, 33}};

TEST(Png, IsReadBackByAnotherLibrary) {
  for (const auto& size : sizes) {
    for (int channels = 1; channels <= 4; ++channels) {
      const Bytes pixels = makePixels(size[0], size[1], channels);
      const Decoded back = decode(encodePng(size[0], size[1], channels, pixels));
      EXPECT_EQ(back.width, size[0]);
      EXPECT_EQ(back.height, size[1]);
      EXPECT_EQ(back.depth, 8);
      EXPECT_EQ(back.channels, channels);
      EXPECT_EQ(back.bytes, pixels) << size[0] << " x " << size[1] << " x " << channels;
    }
  }
}

TEST(Png, Of16BitsIsReadBackByAnotherLibrary) {
  for (const auto& size : sizes) {
    for (int channels = 1; channels <= 4; ++channels) {
      const Bytes bytes = makePixels(size[0], size[1], 2 * channels);
      std::vector<std::uint16_t> pixels(bytes.size() / 2);
      for (std::size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<std::uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
      }
      const Decoded back = decode(encodePng16(size[0], size[1], channels, pixels));
      EXPECT_EQ(back.depth, 16);
      EXPECT_EQ(back.channels, channels);
      EXPECT_EQ(back.bytes, bytes) << size[0] << " x " << size[1] << " x " << channels;
    }
  }
}

std::uint32_t number(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
}

TEST(Png, HoldsThreeChunksAndTheCheapestFilters) {
  constexpr int width = 41, height = 60, channels = 3, stride = width * channels;
  const Bytes pixels = makePixels(width, height, channels);
  const Array<std::uint8_t> file = encodePng(width, height, channels, pixels);
  ASSERT_EQ(std::memcmp(file.data(), "\x89PNG\r\n\x1a\n", 8), 0);
  std::string types;
  Bytes raw(height * (stride + 1));
  for (std::size_t at = 8; at < file.size(); at += number(&file[at]) + 12) {
    const std::uint32_t length = number(&file[at]);
    types += std::string(file.begin() + static_cast<long>(at) + 4,
                         file.begin() + static_cast<long>(at) + 8);
    EXPECT_EQ(number(&file[at + 8 + length]), ::crc32(0, &file[at + 4], length + 4));
    if (!types.ends_with("IDAT")) continue;
    uLongf size = raw.size();
    ASSERT_EQ(uncompress(raw.data(), &size, &file[at + 8], length), Z_OK);
    ASSERT_EQ(size, raw.size());
  }
  EXPECT_EQ(types, "IHDRIDATIEND");

  std::vector<int> used(5, 0);
  const auto pixel = [&](int x, int y) {
    return x < 0 || y < 0 ? 0 : pixels[static_cast<std::size_t>(y * stride + x)];
  };
  for (int y = 0; y < height; ++y) {
    std::vector<int> sums(5, 0);
    for (int x = 0; x < stride; ++x) {
      const int a = pixel(x - channels, y), b = pixel(x, y - 1), c = pixel(x - channels, y - 1);
      const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
      const int paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      const int predicted[] = {0, a, b, (a + b) / 2, paeth};
      for (std::size_t f = 0; f < 5; ++f) {
        const int byte = (pixel(x, y) - predicted[f]) & 255;
        sums[f] += std::min(byte, 256 - byte);
      }
    }
    const auto first = std::min_element(sums.begin(), sums.end()) - sums.begin();
    EXPECT_EQ(raw[static_cast<std::size_t>(y * (stride + 1))], first) << "row " << y;
    ++used[static_cast<std::size_t>(first)];
  }
  for (std::size_t f = 0; f < 5; ++f) EXPECT_GT(used[f], 0) << "no row has filter " << f;
}

TEST(Png, ThreadsDoNotChangeTheFile) {
  const Bytes a = makePixels(700, 500, 4), b = makePixels(90, 300, 1), c = makePixels(20, 20, 3);
  const std::vector<PngImage> images = {{700, 500, 4, a}, {90, 300, 1, b}, {20, 20, 3, c}};
  setThreadCount(1);
  const auto one = encodePngs(images);
  setThreadCount(0);
  EXPECT_EQ(encodePngs(images), one);
  ASSERT_EQ(one.size(), 3u);
  EXPECT_EQ(one[1], encodePng(90, 300, 1, b));
}

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no failure";
}

class ImageFiles : public testing::Test {
 protected:
  ImageFiles() : folder(test::tempFolder("image_files")) {
    std::filesystem::create_directories(folder);
  }
  ~ImageFiles() override { std::filesystem::remove_all(folder); }
  std::string folder;
};

TEST_F(ImageFiles, RefusalsNameTheirReasonAndTouchNoFile) {
  const Bytes six(6), none;
  const std::vector<std::uint16_t> wide(6);
  const std::string path = folder + "new.png";
  const std::vector<std::string> one = {path}, two = {path, path};
  const std::vector<PngImage> good = {{3, 2, 1, six}}, empty = {{3, 2, 1, none}},
                              second = {{3, 2, 1, six}, {2, 2, 1, six}};
  const std::pair<std::string, std::function<void()>> cases[] = {
      {"encodePng: bad size or channels", [&] { encodePng(0, 6, 1, six); }},
      {"encodePng: bad size or channels", [&] { encodePng(6, -1, 1, six); }},
      {"encodePng: bad size or channels", [&] { encodePng(1, 1, 5, six); }},
      {"encodePng: bad size or channels", [&] { encodePng(6, 1, 0, six); }},
      {"encodePng: pixel count does not match the size", [&] { encodePng(3, 3, 1, six); }},
      {"encodePng: pixel count does not match the size",
       [&] { encodePng(0x7fffffff, 0x7fffffff, 4, six); }},
      {"encodePng16: bad size or channels", [&] { encodePng16(0, 6, 1, wide); }},
      {"encodePng16: pixel count does not match the size", [&] { encodePng16(1, 2, 2, wide); }},
      {"encodePngs: an image has no pixels", [&] { encodePngs(empty); }},
      {"encodePng: pixel count does not match the size", [&] { writeCompressedPngs(two, second); }},
      {"writeCompressedPngs: a path per image", [&] { writeCompressedPngs(two, good); }},
      {"writePng: bad size or channels", [&] { writePng(path, 6, 1, 9, six); }},
      {"writePng: pixel count does not match the size", [&] { writePng(path, 4, 1, 1, six); }},
      {"can't write " + folder + "none/a.png",
       [&] { writePng(folder + "none/a.png", 3, 2, 1, six); }},
      {"can't write " + folder, [&] { writePng(folder, 3, 2, 1, six); }},
      {"writeTga: 1, 3 or 4 channels", [&] { writeTga(path, 1, 3, 2, six); }},
      {"writeTga: pixel count does not match the size", [&] { writeTga(path, 3, 1, 3, six); }},
      {"writeTga: pixel count does not match the size", [&] { writeTga(path, -2, -1, 3, six); }},
      {"cannot write '" + folder + "none/a.tga'",
       [&] { writeTga(folder + "none/a.tga", 3, 2, 1, six); }},
  };
  for (const auto& [message, call] : cases) EXPECT_EQ(messageOf(call), message);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(ImageFiles, HoldWhatWasEncoded) {
  const Bytes a = makePixels(20, 10, 3), b = makePixels(5, 6, 4);
  const std::vector<std::string> paths = {folder + "a.png", folder + "b.png"};
  writeCompressedPngs(paths, std::vector<PngImage>{{20, 10, 3, a}, {5, 6, 4, b}});
  const auto expectFile = [&](const std::string& path, const Array<std::uint8_t>& bytes) {
    EXPECT_EQ(readWholeFile(path), std::string(bytes.begin(), bytes.end())) << path;
  };
  expectFile(paths[0], encodePng(20, 10, 3, a));
  expectFile(paths[1], encodePng(5, 6, 4, b));
  writePng(paths[0], 5, 6, 4, b);  // over an older file
  expectFile(paths[0], encodePng(5, 6, 4, b));
}

TEST_F(ImageFiles, TgaHasItsHeaderAndSwappedColors) {
  const Bytes pixels = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  const std::string path = folder + "a.tga";
  const auto written = [&](int width, int height, int channels) {
    writeTga(path, width, height, channels, pixels);
    const std::string text = readWholeFile(path);
    return Bytes(text.begin(), text.end());
  };
  EXPECT_EQ(written(1, 3, 4), (Bytes{0, 0,  2,    0, 0, 0, 0, 0, 0, 0, 0, 0,  1,  0, 3,
                                     0, 32, 0x28, 3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12}));
  EXPECT_EQ(written(2, 2, 3), (Bytes{0, 0,  2,    0, 0, 0, 0, 0, 0, 0, 0, 0, 2,  0,  2,
                                     0, 24, 0x20, 3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10}));
  EXPECT_EQ(written(12, 1, 1), (Bytes{0, 0, 3,    0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 0,  1,
                                      0, 8, 0x20, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  const Bytes wide(300);
  writeTga(path, 300, 1, 1, wide);
  EXPECT_EQ(readWholeFile(path).substr(12, 2), std::string("\x2c\x01"));
}

}  // namespace
}  // namespace kestrane
