// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/texture_cache.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

#include "tests/values/texture_folder.h"

namespace kestrane {
namespace {

namespace fs = std::filesystem;

/// A picture of one row, all of one grey.
std::string grey(int width, char level = '\x33') {
  return "P5 " + std::to_string(width) + " 1 255\n" +
         std::string(static_cast<std::size_t>(width), level);
}

/// Makes a file look as if it were written at another time, and nothing else.
void shiftTime(const std::string& path, int seconds) {
  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(seconds));
}

TEST_F(Textures, TheCacheSharesDropsAndReadsAnew) {
  const std::string a = write("a.pgm", grey(10)), b = write("b.pgm", grey(10)),
                    c = write("c.pgm", grey(10)), big = write("big.pgm", grey(90));
  detail::TextureCache cache(16 * 20);
  const TexturePtr first = cache.load(a);
  EXPECT_EQ(cache.load(a), first);
  cache.load(b);
  EXPECT_EQ(cache.load(a), first);  // now the newer one
  cache.load(c);                    // pushes b out
  EXPECT_EQ(cache.size(), 2u);
  EXPECT_EQ(cache.load(a), first);
  const TexturePtr huge = cache.load(big);  // stays though it is too large, and alone
  EXPECT_EQ(cache.size(), 1u);
  EXPECT_EQ(cache.load(big), huge);
  EXPECT_NE(cache.load(a), first);
  expectColor(first->sample(0.5f, 0.5f), {0.2f, 0.2f, 0.2f, 1});  // lives on

  const TexturePtr before = cache.load(a);
  write("a.pgm", grey(11));
  EXPECT_EQ(cache.load(a)->image()->width, 11);
  write("a.pgm", "no picture");
  const std::size_t held = cache.size();
  EXPECT_NE(messageOf([&] { cache.load(a); }), "no failure");
  EXPECT_EQ(cache.size(), held);
  write("a.pgm", grey(12));
  EXPECT_EQ(cache.load(a)->image()->width, 12);
}

TEST_F(Textures, TheCacheServesManyThreads) {
  const std::string good = write("good.pgm", grey(12)), bad = write("bad.ppm", "nothing");
  detail::TextureCache cache(1 << 20);
  std::vector<TexturePtr> found(8);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < found.size(); ++i) {
    threads.emplace_back([&, i] {
      EXPECT_NE(messageOf([&] { cache.load(bad); }), "no failure");
      found[i] = cache.load(good);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const TexturePtr& texture : found) EXPECT_EQ(texture, found[0]);
}

TEST_F(Textures, TheCacheReadsAgainWhatKeptItsSize) {
  detail::TextureCache cache(1 << 20);
  const std::string single = write("a.pgm", grey(4));
  const TexturePtr before = cache.load(single);
  write("a.pgm", grey(4, '\xff'));
  shiftTime(single, 10);
  expectColor(cache.load(single)->sample(0.5f, 0.5f), {1, 1, 1, 1});
  expectColor(before->sample(0.5f, 0.5f), {0.2f, 0.2f, 0.2f, 1});

  const std::string tile = write("t.1001.pgm", grey(4));
  write("t.1002.pgm", grey(4));
  const TexturePtr tiles = cache.load(tile);
  expectColor(tiles->sample(0.5f, 0.5f), {0.2f, 0.2f, 0.2f, 1});
  EXPECT_EQ(cache.load(folder + "t.<UDIM>.pgm"), tiles);
  const auto folderTime = fs::last_write_time(folder);
  write("t.1001.pgm", grey(4, '\xff'));
  shiftTime(tile, 10);
  fs::last_write_time(folder, folderTime);
  expectColor(cache.load(tile)->sample(0.5f, 0.5f), {1, 1, 1, 1});
}

TEST_F(Textures, StampsTellWhatChanged) {
  EXPECT_EQ(textureStamp(folder + "none.pgm"), 0u);
  EXPECT_EQ(textureStamp(folder), 0u);
  EXPECT_EQ(textureStamp(""), 0u);
  EXPECT_EQ(textureStamp(folder + "no/t.<UDIM>.pgm"), 0u);

  const std::string first = write("t.1001.pgm", grey(4)), pattern = folder + "t.<UDIM>.pgm";
  const std::string second = write("t.1002.pgm", grey(4));
  std::uint64_t stamp = textureStamp(pattern);
  const auto moved = [&] { return std::exchange(stamp, textureStamp(pattern)) != stamp; };
  EXPECT_FALSE(moved());
  EXPECT_EQ(textureStamp(first), stamp);
  EXPECT_EQ(textureStamp(folder + "t.1077.pgm"), stamp);  // no such tile, but the same set
  shiftTime(second, 10);                                  // the folder's own time stays
  EXPECT_TRUE(moved());
  write("t.1003.pgm", grey(4));
  EXPECT_TRUE(moved());
  const auto folderTime = fs::last_write_time(folder);
  fs::remove(first);
  fs::last_write_time(folder, folderTime);
  EXPECT_TRUE(moved());

  const std::string single = write("single.pgm", grey(4));
  const std::uint64_t before = textureStamp(single);
  shiftTime(single, -10);
  EXPECT_NE(textureStamp(single), before);
}

TEST_F(Textures, StampsTakeRelativePaths) {
  write("t.1001.pgm", grey(4));
  write("t.1002.pgm", grey(4));
  const std::string single = write("single.pgm", grey(4));
  const fs::path before = fs::current_path();
  fs::current_path(folder);
  EXPECT_EQ(textureStamp("single.pgm"), textureStamp(single));
  EXPECT_EQ(textureStamp("t.1001.pgm"), textureStamp(folder + "t.1001.pgm"));
  EXPECT_EQ(textureStamp("./t.<UDIM>.pgm"), textureStamp("t.<UDIM>.pgm"));
  EXPECT_NE(textureStamp("t.<UDIM>.pgm"), 0u);
  fs::current_path(before);
}

TEST(TextureCache, LimitIsANumberOfMebibytes) {
  const std::pair<const char*, double> cases[] = {
      {nullptr, 1024}, {"", 1024}, {" ", 1024},   {"many", 1024}, {"7 MB", 1024},
      {"nan", 1024},   {"7", 7},   {"512 ", 512}, {"\t2\n", 2},   {"1e3", 1000},
      {"2.5", 2.5},    {"0.5", 1}, {"0", 1},      {"-3", 1},      {"-inf", 1}};
  for (const auto& [text, mebibytes] : cases) {
    EXPECT_EQ(detail::textureCacheLimit(text), static_cast<std::size_t>(mebibytes * 1048576))
        << (text != nullptr ? text : "not set");
  }
  for (const char* text : {"999999999999999999999", "1e300", "inf"}) {
    EXPECT_GT(detail::textureCacheLimit(text), std::size_t{1} << 60) << text;
  }
}

/// Ends the process, with 0 if under that limit one picture of 1.6 MB goes for another.
[[noreturn]] void exitWithWhatGoes(const char* limit, const std::string& folder) {
  setenv("KESTRANE_TEXTURE_CACHE_MB", limit, 1);
  const TexturePtr first = loadTexture(folder + "a.pgm");
  loadTexture(folder + "b.pgm");
  const bool gone = loadTexture(folder + "a.pgm") != first;
  fs::remove_all(folder);
  std::_Exit(gone ? 0 : 1);
}

TEST_F(Textures, TheEnvironmentLimitsTheSharedCache) {
  // The limit is read once, so that each needs a process of its own.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  write("a.pgm", grey(100000));
  write("b.pgm", grey(100000));
  EXPECT_EXIT(exitWithWhatGoes("1", folder), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithWhatGoes("4", folder), testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace kestrane
