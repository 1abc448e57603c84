// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "core/base/hash.h"
#include "core/base/text.h"

namespace kestrane {
namespace {

std::string written(float value) {
  char text[longestNumber];
  return {text, writeNumber(text, value)};
}

std::string byLibrary(float value) {
  char text[longestNumber];
  return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

TEST(FloatText, IsWhatTheLibraryWrites) {
  std::vector<float> values;
  for (std::uint64_t i = 0; i < 300000; ++i) {
    const auto bits = static_cast<std::uint32_t>(mix64(i));
    values.push_back(std::bit_cast<float>(bits));  // of any size
    const auto exponent = static_cast<std::uint32_t>(97 + i % 55);
    values.push_back(std::bit_cast<float>((bits & 0x807fffffu) | exponent << 23));
  }
  // Numbers of few digits, and the neighbours of powers of two, where the halfway points change.
  for (int exponent = 1; exponent < 255; ++exponent) {
    for (int step = -3; step <= 3; ++step) {
      values.push_back(std::bit_cast<float>((exponent << 23) + step));
    }
  }
  for (int i = -20000; i <= 20000; ++i) {
    for (const float unit : {1.0f, 0.5f, 0.1f, 0.01f, 0.001f, 1e-4f, 1e-5f, 1e-7f, 1000.0f}) {
      values.push_back(static_cast<float>(i) * unit);
    }
  }
  for (const float value : values) {
    if (std::isnan(value)) continue;
    ASSERT_EQ(written(value), byLibrary(value)) << std::bit_cast<std::uint32_t>(value);
  }
}

TEST(FloatText, OfSpecialNumbers) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(written(0.0f), "0");
  EXPECT_EQ(written(-0.0f), "-0");
  EXPECT_EQ(written(inf), "inf");
  EXPECT_EQ(written(-inf), "-inf");
  EXPECT_EQ(written(std::bit_cast<float>(0x7fc00000u)), "nan");
  EXPECT_EQ(written(std::bit_cast<float>(0xffc00000u)), "nan");
  // The one float that a reader of doubles would round to another.
  const float middle = std::bit_cast<float>(0x15AE43FDu);
  EXPECT_EQ(static_cast<float>(std::stod(written(middle))), middle);
  EXPECT_EQ(static_cast<float>(std::stod(written(-middle))), -middle);
}

}  // namespace
}  // namespace kestrane
