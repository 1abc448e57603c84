// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/texture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <numeric>

#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/values/search_paths.h"
#include "core/values/udim.h"
#include "tests/values/texture_folder.h"

namespace kestrane {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

std::string fromHex(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

/// Pictures of 4 by 3 pixels by other programs; RGB is (60 x, 100 y, 30 (x + y)), grey 16-bit
/// counts up from 123 in steps of 5000.
const std::string png = fromHex(
    "89504e470d0a1a0a0000000d49484452000000040000000308020000003b9639910000001a49444154789c636460"
    "60b0619083201686143906062842e100003ae202d0dc9b97920000000049454e44ae426082");
const std::string png16 = fromHex(
    "89504e470d0a1a0a0000000d4948445200000004000000031000000000c10f2d590000001b49444154789c6360a8"
    "166156efb61666f153105110561051803300377e03ad98df008f0000000049454e44ae426082");
const std::string gif = fromHex(
    "47494638376104000300830000b4c89678c8783cc85a00c83cb4647878645a3c643c00641eb4005a78003c3c001e"
    "0000000000000000000000000000002c00000000040003000008100017284880e080810204060808002020003b");
const std::string ppm = "P6 4 3 255\n" + [] {
  std::string bytes;
  for (int i = 0; i < 12; ++i) {
    for (const int c : {60 * (i % 4), 100 * (i / 4), 30 * (i % 4 + i / 4)}) {
      bytes += static_cast<char>(c);
    }
  }
  return bytes;
}();
const std::string pgm16 = "P5 4 3 65535\n" + [] {
  std::string bytes;
  for (int i = 0; i < 12; ++i) {
    const int value = 123 + 5000 * i;
    bytes += {static_cast<char>(value >> 8), static_cast<char>(value)};
  }
  return bytes;
}();
const std::string tga = "\0\0\2\0\0\0\0\0\0\0\0\0\4\0\3\0\x18\x20"s + [] {
  std::string bytes;
  for (std::size_t i = 11; i < ppm.size(); i += 3) bytes += {ppm[i + 2], ppm[i + 1], ppm[i]};
  return bytes;
}();
/// (1, 0.5, 0.25) and then (2, 1, 0.5), in shared exponents.
const std::string hdr =
    "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 2\n"s + "\x80\x40\x20\x81\x80\x40\x20\x82"s;

Array<float> floats(std::initializer_list<float> values) {
  return Array<float>(values.begin(), values.end());
}

TEST_F(Textures, AllFormatsDecodeToLinearFloats) {
  const std::pair<std::string, std::string> colors[] = {
      {"png", png}, {"gif", gif}, {"ppm", ppm}, {"tga", tga}};
  for (const auto& [name, bytes] : colors) {
    const Image image = decodeImage(write(name, bytes));
    ASSERT_EQ(image.width, 4) << name;
    ASSERT_EQ(image.height, 3) << name;
    EXPECT_EQ(image.bitDepth, 8) << name;
    for (std::size_t i = 0; i < 12; ++i) {
      const float x = static_cast<float>(i % 4), y = static_cast<float>(i / 4);
      const float* p = &image.pixels[4 * i];
      expectColor({p[0], p[1], p[2], p[3]}, {60 * x / 255, 100 * y / 255, 30 * (x + y) / 255, 1.0f},
                  name);
    }
  }
  const std::pair<std::string, std::string> greys[] = {{"png16", png16}, {"pgm16", pgm16}};
  for (const auto& [name, bytes] : greys) {
    const Image image = decodeImage(write(name, bytes));
    ASSERT_EQ(image.pixels.size(), 48u) << name;
    EXPECT_EQ(image.bitDepth, 16) << name;
    for (std::size_t i = 0; i < 12; ++i) {
      const float grey = (123.0f + 5000.0f * static_cast<float>(i)) / 65535.0f;
      const float* p = &image.pixels[4 * i];
      expectColor({p[0], p[1], p[2], p[3]}, {grey, grey, grey, 1.0f}, name);
    }
  }
  const Image light = decodeImage(write("hdr", hdr));
  EXPECT_EQ(light.bitDepth, 32);
  EXPECT_EQ(light.pixels, floats({1, 0.5f, 0.25f, 1, 2, 1, 0.5f, 1}));
}

TEST_F(Textures, DamagedFilesAreRefusedOrReadWhole) {
  for (const std::string& whole : {png, png16, gif, ppm, pgm16, tga, hdr}) {
    const std::string path = folder + "cut";
    // Of a GIF the last byte says only that no other picture follows.
    const std::size_t needed = whole.size() - (whole == gif ? 1 : 0);
    for (std::size_t size = 0; size < needed; ++size) {
      write("cut", whole.substr(0, size));
      const std::string message = messageOf([&] { decodeImage(path); });
      EXPECT_TRUE(message.starts_with("cannot read '" + path + "': ")) << size << ": " << message;
    }
    for (std::uint64_t seed = 0; seed < 150; ++seed) {
      std::string changed = whole;
      for (std::uint64_t i = 0; i <= seed % 3; ++i) {
        const std::uint64_t draw = hashCombine(seed, i);
        changed[draw % changed.size()] = static_cast<char>(draw >> 32);
      }
      write("changed", changed);
      try {
        const Image image = decodeImage(folder + "changed");
        EXPECT_EQ(image.pixels.size(), 4 * static_cast<std::size_t>(image.width) *
                                           static_cast<std::size_t>(image.height));
      } catch (const TextureError&) {
      }
    }
  }
}

TEST_F(Textures, FailuresNameTheFileAndTheReason) {
  const auto reason = [&](const std::string& path) {
    return messageOf([&] { loadTexture(path); });
  };
  const std::string none = folder + "none.png";
  EXPECT_EQ(reason(none), "cannot read '" + none + "': file not found");
  EXPECT_EQ(reason(folder), "cannot read '" + folder + "': file not found");
  EXPECT_EQ(reason("/dev/zero"), "cannot read '/dev/zero': file not found");
  EXPECT_EQ(reason(""), "cannot read '': file not found");
  const std::string nowhere = folder + "no/a.<UDIM>.png";
  EXPECT_EQ(reason(nowhere), "cannot read '" + nowhere + "': file not found");
  const std::string text = write("text.png", "hello, this is a text and no picture");
  EXPECT_EQ(reason(text), "cannot read '" + text + "': Image not of any known type, or corrupt");
  // Claims of pixels that the file cannot hold: 20000 x 20000 in a header.
  const std::string claim = write("claim.ppm", "P6 20000 20000 255\n" + std::string(900, 'x'));
  EXPECT_EQ(reason(claim), "cannot read '" + claim + "': too large");
  const std::string many = write("many.ppm", "P6 2000000000 2000000000 255\n");
  EXPECT_TRUE(reason(many).starts_with("cannot read '" + many + "': ")) << reason(many);
  // A Huffman table with more codes than there can be.
  const std::string table =
      write("table.jpg",
            "\xff\xd8\xff\xc4\x04\x03\x10"s + std::string(16, '\x40') + std::string(2000, '\x01'));
  EXPECT_EQ(reason(table), "cannot read '" + table + "': Corrupt JPEG");
  // One pixel whose compressed data unpack to 64 MiB: a zero, and over and over a repetition of it.
  std::string data = "\x78\x01"s;
  unsigned held = 0, count = 0;
  const auto put = [&](unsigned bits, unsigned size) {
    held |= bits << count;
    for (count += size; count >= 8; count -= 8, held >>= 8) data += static_cast<char>(held);
  };
  put(3, 3);
  put(0x0c, 8);
  for (int i = 0; i < (64 << 20) / 258; ++i) put(0xa3, 13);
  put(0, 15);
  const auto number = [](std::size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
  };
  const std::string bomb =
      write("bomb.png", png.substr(0, 16) + number(1) + number(1) + "\x08\0\0\0\0crc?"s +
                            number(data.size()) + "IDAT" + data + "crc?" + png.substr(71));
  EXPECT_EQ(reason(bomb), "cannot read '" + bomb + "': Out of memory");
}

TEST(Texture, SizesAreChecked) {
  const std::vector<std::uint8_t> bytes(12);
  EXPECT_EQ(messageOf([] { Texture(2, 1, Array<float>(4), 8); }),
            "Texture: size does not match its data");
  EXPECT_EQ(messageOf([] { Texture(0, 1, {}, 8); }), "Texture: size does not match its data");
  EXPECT_EQ(messageOf([] { Texture(-1, -1, Array<float>(4), 8); }),
            "Texture: size does not match its data");
  EXPECT_EQ(messageOf([] { Texture("a.png"); }), "Texture: a UDIM pattern needs <UDIM>");
  const std::string text = "textureFromPixels: size does not match its pixels";
  EXPECT_EQ(messageOf([&] { textureFromPixels(3, 2, 1, bytes); }), text);
  EXPECT_EQ(messageOf([&] { textureFromPixels(0, 2, 1, {}); }), text);
  EXPECT_EQ(messageOf([&] { textureFromPixels(2, 1, 6, bytes); }), text);
}

TEST(Texture, SamplesAreBilinearWithClampedEdges) {
  // Upper row 0 and 1, lower row 2 and 3, in red; alpha counts columns.
  const Texture texture(2, 2, floats({0, 0, 0, 0, 1, 0, 0, 1, 2, 0, 0, 0, 3, 0, 0, 1}), 32);
  const auto red = [&](float u, float v) { return texture.sample(u, v).x; };
  EXPECT_EQ(red(0.25f, 0.75f), 0.0f);
  EXPECT_EQ(red(0.75f, 0.75f), 1.0f);
  EXPECT_EQ(red(0.25f, 0.25f), 2.0f);
  EXPECT_EQ(red(0.75f, 0.25f), 3.0f);
  EXPECT_EQ(red(0.5f, 0.5f), 1.5f);
  EXPECT_EQ(texture.sample(0.5f, 0.5f).w, 0.5f);
  EXPECT_FLOAT_EQ(red(0.35f, 0.75f), 0.2f);
  constexpr float inf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(red(-5.0f, 0.0f), 2.0f);
  EXPECT_EQ(red(inf, -inf), 3.0f);
  EXPECT_EQ(red(1.0f, 1.0f), 1.0f);
  EXPECT_TRUE(std::isfinite(red(std::nanf(""), std::nanf(""))));
  const Texture one(1, 1, floats({7, 8, 9, 1}), 8);
  expectColor(one.sample(0.1f, 0.9f), {7, 8, 9, 1});
}

TEST(Texture, PixelsOfAllChannelCountsAndThreads) {
  std::vector<std::uint8_t> bytes(4 * 40000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(mix64(i));
  for (int channels = 1; channels <= 4; ++channels) {
    const auto count = static_cast<std::size_t>(channels);
    const TexturePtr texture =
        textureFromPixels(200, 200, channels, std::span(bytes).first(40000 * count));
    for (const std::size_t i : {std::size_t{0}, std::size_t{17000}, std::size_t{39999}}) {
      const auto value = [&](std::size_t c) { return float(bytes[i * count + c]) / 255.0f; };
      const Vec4f wanted{value(0), value(channels < 3 ? 0 : 1), value(channels < 3 ? 0 : 2),
                         channels % 2 == 0 ? value(count - 1) : 1.0f};
      const float* p = &texture->image()->pixels[4 * i];
      expectColor({p[0], p[1], p[2], p[3]}, wanted);
    }
  }
}

TEST_F(Textures, PatternsNeedTilesBesideThem) {
  for (const char* name : {"a.1001.png", "a.1012.png", "b_1001.png", "c.1101.png", "c.1102.png",
                           "d.11001.png", "d.11002.png", "1001.png", "1002.png", "e-1001-1003.png",
                           "e-1002-1003.png", "e-1001-1004.png", "f1001.png", "f1002.png"}) {
    write(name, "");
  }
  const std::pair<const char*, const char*> cases[] = {
      {"a.1001.png", "a.<UDIM>.png"},            // a sibling is there
      {"a.1002.png", "a.<UDIM>.png"},            // though the tile itself is not
      {"b_1001.png", ""},                        // alone
      {"c.1101.png", ""},                        // no tile number
      {"d.11001.png", ""},                       // five digits
      {"1001.png", "<UDIM>.png"},                // at the start of the name
      {"e-1001-1003.png", "e-<UDIM>-1003.png"},  // the first run
      {"e-1002-1004.png", "e-<UDIM>-1004.png"},
      {"f1001.png", ""},  // does not stand alone
      {"plain.png", ""},
      {"x.<UDIM>.png", "x.<UDIM>.png"},
      {"x.<udim>.png", "x.<UDIM>.png"},
      {"x.%(UDIM)d.png", "x.<UDIM>.png"},
      {"<udim>.<UDIM>.png", "<udim>.<UDIM>.png"}};
  for (const auto& [name, pattern] : cases) {
    const std::string wanted = *pattern == '\0' ? "" : folder + pattern;
    EXPECT_EQ(udimPattern(folder + name), wanted) << name;
  }
  EXPECT_EQ(udimPattern("<UDIM>/1001/plain.png"), "");
  EXPECT_EQ(udimTiles(folder + "a.<UDIM>.png"), (std::vector<int>{1001, 1012}));
  EXPECT_EQ(udimTilePath("x/<UDIM>/a.<UDIM>.png", 1033), "x/<UDIM>/a.1033.png");
}

TEST_F(Textures, TilesLoadOnDemand) {
  write("t.1001.pgm", "P5 1 1 255\n\xff");
  write("t.1012.pgm", "P5 1 1 255\n\x33");
  write("t.1003.pgm", "P5 1 1 255\n");
  const TexturePtr texture = loadTexture(folder + "t.1001.pgm");
  EXPECT_EQ(texture->pattern(), folder + "t.<UDIM>.pgm");
  EXPECT_EQ(texture->byteSize(), 0u);
  expectColor(texture->sample(0.5f, 0.5f), {1, 1, 1, 1});
  EXPECT_EQ(texture->byteSize(), 16u);
  expectColor(texture->sample(1.5f, 1.5f), {0.2f, 0.2f, 0.2f, 1});
  expectColor(texture->sampleTile(1012, 0.0f, 1.0f), {0.2f, 0.2f, 0.2f, 1});
  const float far = std::numeric_limits<float>::max();
  const Vec2f empty[] = {{1.5f, 0.5f}, {-0.5f, 0.5f}, {0.5f, 10.5f},         {0.5f, -0.1f},
                         {far, 0.0f},  {0.0f, -far},  {std::nanf(""), 0.5f}, {0.5f, std::nanf("")}};
  for (const Vec2f uv : empty) expectColor(texture->sample(uv.x, uv.y), {0, 0, 0, 0});
  const std::string broken = messageOf([&] { texture->sample(2.5f, 0.0f); });
  EXPECT_TRUE(broken.starts_with("cannot read '" + folder + "t.1003.pgm': ")) << broken;
  EXPECT_EQ(texture->byteSize(), 32u);
}

TEST_F(Textures, ThreadsShareOneDecodeOfATile) {
  write("t.1001.ppm", ppm);
  write("t.1002.ppm", ppm);
  const Texture texture(folder + "t.<UDIM>.ppm");
  std::vector<float> green(2000);
  parallelRange(0, green.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      green[i] = texture.sample(static_cast<float>(i % 2) + 0.5f, 0.5f).y;
    }
  });
  for (const float value : green) EXPECT_FLOAT_EQ(value, 100.0f / 255.0f);
  EXPECT_EQ(texture.byteSize(), 2 * 12 * 16u);
}

TEST_F(Textures, SearchPathsFindRelativeFiles) {
  fs::create_directories(folder + "one/maps");
  fs::create_directories(folder + "two/maps");
  write("one/a.png", "");
  write("two/a.png", "");
  write("two/maps/b.png", "");
  write("two/c.1004.png", "");
  const SearchPathResolver resolve = searchPathResolver({folder + "one", folder + "two/"});
  EXPECT_EQ(resolve("a.png"), folder + "one/a.png");
  EXPECT_EQ(resolve("maps/b.png"), folder + "two/maps/b.png");
  EXPECT_EQ(resolve("c.<UDIM>.png"), folder + "two/c.<UDIM>.png");
  EXPECT_EQ(resolve("maps"), "maps");  // a folder is no file
  EXPECT_EQ(resolve("d.png"), "d.png");
  EXPECT_EQ(resolve(folder + "two/a.png"), folder + "two/a.png");
  EXPECT_EQ(resolve(""), "");
}

}  // namespace
}  // namespace kestrane
