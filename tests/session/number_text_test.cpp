// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/number_text.h"
#include "core/base/json.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/base/text.h"

namespace kestrane {
namespace {

std::string written(const std::vector<float>& values) {
  std::string text(values.size() * longestListed + longestNumber, ' ');
  text.resize(writeNumbers(values, false, text.data()) - text.data());
  return text;
}

bool read(const std::string& text, std::vector<float>& values) {
  return readNumbers(text, [&](std::size_t count) {
    values.assign(count, 99.0f);
    return values.data();
  });
}

bool readWhole(const std::string& text, std::vector<std::int32_t>& values) {
  return readNumbers(text, [&](std::size_t count) {
    values.assign(count, 99);
    return values.data();
  });
}

/// Floats of every size, sign and length of text.
std::vector<float> manyFloats(std::size_t count) {
  std::vector<float> values = {0.0f,        -0.0f,     1e-45f,   1.1754944e-38f, 3.4028235e38f,
                               16777216.0f, 1e7f,      1e15f,    1e20f,          0.1f,
                               -0.3f,       123456.7f, -1.2e12f, 7.038531e-26f};
  while (values.size() < count) {
    const std::uint64_t h = mix64(values.size());
    const float bits = std::bit_cast<float>(static_cast<std::uint32_t>(h));
    values.push_back(std::isfinite(bits) ? bits : 1.0f);
    values.push_back(40.0f * unitFloat(h) - 20.0f);
    values.push_back(std::round(1000.0f * unitFloat(h)) / 100.0f);
  }
  return values;
}

TEST(NumberText, FloatsReadAsFloatsInAnyReader) {
  const struct {
    float value;
    const char* text;
  } cases[] = {{0.0f, "0.0"},         {-0.0f, "-0.0"},
               {3.0f, "3.0"},         {-17.0f, "-17.0"},
               {0.1f, "0.1"},         {1e20f, "1e+20"},
               {1e-7f, "1e-07"},      {1e5f, "1e+05"},
               {12345.0f, "12345.0"}, {16777216.0f, "16777216.0"},
               {0.5f, "0.5"}};
  for (const auto& c : cases) EXPECT_EQ(written({c.value}), c.text);
  EXPECT_EQ(written({1.0f, 2.5f}), "1.0,2.5");
}

TEST(NumberText, EveryFloatReturnsBytewiseFromUsAndFromTheJsonLibraryThreads) {
  const std::vector<float> values = manyFloats(300000);
  const std::string text = written(values);
  for (const std::size_t threads : {1, 8}) {
    runWithThreads(threads, [&] {
      std::vector<float> back;
      ASSERT_TRUE(read(text, back));
      ASSERT_EQ(back.size(), values.size());
      EXPECT_EQ(std::memcmp(back.data(), values.data(), values.size() * sizeof(float)), 0);
    });
  }
  const auto json = nlohmann::json::parse("[" + text + "]");
  for (std::size_t i = 0; i < values.size(); ++i) {
    ASSERT_TRUE(json[i].is_number_float()) << json[i];
    ASSERT_EQ(std::bit_cast<std::uint32_t>(static_cast<float>(json[i].get<double>())),
              std::bit_cast<std::uint32_t>(values[i]))
        << json[i];
  }
}

/// What the library takes we take, with the same value; what it refuses we refuse.
TEST(NumberText, TakesWhatJsonTakes) {
  const char* const texts[] = {"1",
                               "-1",
                               "1.5",
                               "1e3",
                               "1E+3",
                               "-2.5e-3",
                               "0",
                               "-0",
                               "0.0",
                               "-0.0",
                               "null",
                               "01",
                               "1.",
                               ".5",
                               "+1",
                               "-",
                               "1e",
                               "1e+",
                               "--1",
                               "1 2",
                               "1,,2",
                               "1,",
                               ",1",
                               "",
                               "  ",
                               "1,2 , 3",
                               "nul",
                               "true",
                               "[1]",
                               "\"1\"",
                               "0x1",
                               "1f",
                               "NaN",
                               "1e-99",
                               "-1e-99",
                               "1e39",
                               "-1e400",
                               "1e5000",
                               "0e999",
                               "1e-5000",
                               "00",
                               "-01",
                               "1.5.1",
                               "\t1\r\n",
                               "1\v",
                               "12345678901234567890123",
                               "0.00000000000000000000000000001",
                               "123456789012345678901e-20",
                               "340282356779733661637539395458142568448",
                               "9007199254740993",
                               "8388608.5",
                               "8388609.5",
                               "16777217.0000000000000000001",
                               "7.038531e-26",
                               "1.17549429e-38",
                               "1e22",
                               "123e-25"};
  for (const std::string text : texts) {
    std::vector<float> values;
    const bool good = read(text, values);
    const auto json = nlohmann::json::parse("[" + text + "]", nullptr, false);
    bool wanted = !json.is_discarded();
    std::vector<float> expected;
    for (const auto& element : json) {
      if (!element.is_number() && !element.is_null()) wanted = false;
      if (!wanted) break;
      expected.push_back(element.is_null() ? 0.0f : static_cast<float>(element.get<double>()));
      if (!std::isfinite(expected.back())) wanted = false;
    }
    ASSERT_EQ(good, wanted) << text;
    if (!good) continue;
    ASSERT_EQ(values.size(), expected.size()) << text;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (text == "7.038531e-26" || text.starts_with("16777217")) continue;  // by way of a double
      EXPECT_EQ(values[i], expected[i]) << text;
      EXPECT_EQ(std::signbit(values[i]), std::signbit(expected[i])) << text;
    }
  }
}

TEST(NumberText, WholeNumbers) {
  std::vector<std::int32_t> values;
  EXPECT_TRUE(readWhole(" 0, -1 ,2147483647,-2147483648", values));
  EXPECT_EQ(values, (std::vector<std::int32_t>{0, -1, 2147483647, -2147483647 - 1}));
  for (const char* bad : {"2147483648", "1.5", "01", "1e3", "null", "1,", "-", "x"}) {
    EXPECT_FALSE(readWhole(bad, values)) << bad;
  }
}

TEST(NumberText, FindsTheFirstNonFinite) {
  std::vector<float> values(10000, 1.0f);
  EXPECT_EQ(firstNonFinite(values), values.size());
  values[9000] = -INFINITY;
  values[9001] = NAN;
  EXPECT_EQ(firstNonFinite(values), 9000u);
}

/// A fault anywhere in a long array is found, in whichever run it lies.
TEST(NumberText, LongArraysAreCheckedWholeThreads) {
  std::string text;
  for (int i = 0; i < 200000; ++i) text += (i ? ",1.25" : "1.25");
  std::vector<float> values;
  ASSERT_TRUE(read(text, values));
  ASSERT_EQ(values.size(), 200000u);
  for (const std::size_t place : {std::size_t(0), text.size() / 3, text.size() - 1}) {
    std::string bad = text;
    bad[place] = 'x';
    EXPECT_FALSE(read(bad, values)) << place;
  }
  EXPECT_FALSE(read(text + ",", values));
}

}  // namespace
}  // namespace kestrane
