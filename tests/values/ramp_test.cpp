// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/ramp.h"
#include "core/base/json.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "core/base/errors.h"
#include "core/base/hash.h"

namespace kestrane {
namespace {

using Keys = std::vector<Ramp::Key>;

/// Ten random keys, some of them at one position.
Keys makeKeys(std::uint64_t seed) {
  Keys keys;
  for (std::uint64_t i = 0; i < 10; ++i) {
    const float position = unitFloat(mix64(seed * 100 + i));
    keys.push_back({i % 4 == 3 ? keys.back().position : position,
                    20.0f * unitFloat(mix64(seed * 100 + i + 50)) - 10.0f});
  }
  return keys;
}

TEST(Ramp, WithoutKeysIsOneAndWithOneKeyConstant) {
  for (const float t : {-1.0f, 0.0f, 0.5f, 2.0f, std::nanf("")}) {
    EXPECT_EQ(Ramp().evaluate(t), 1.0f);
    EXPECT_EQ(Ramp({{0.5f, 3.0f}}).evaluate(t), 3.0f);
  }
}

TEST(Ramp, PassesItsKeysAndEndsFlat) {
  for (const bool linear : {false, true}) {
    const Ramp ramp({{0.2f, 2}, {0.4f, 5}, {0.9f, -1}}, linear);
    EXPECT_EQ(ramp.evaluate(0.2f), 2.0f);
    EXPECT_EQ(ramp.evaluate(0.4f), 5.0f);
    EXPECT_EQ(ramp.evaluate(0.9f), -1.0f);
    EXPECT_EQ(ramp.evaluate(-100.0f), 2.0f);
    EXPECT_EQ(ramp.evaluate(100.0f), -1.0f);
    EXPECT_EQ(ramp.evaluate(INFINITY), -1.0f);
    EXPECT_EQ(ramp.evaluate(NAN), 2.0f);
  }
  EXPECT_FLOAT_EQ(Ramp({{0.2f, 2}, {0.4f, 5}}, true).evaluate(0.3f), 3.5f);
  EXPECT_FLOAT_EQ(Ramp({{0.2f, 2}, {0.4f, 5}}).evaluate(0.25f), 2.75f) << "two keys: a line";
}

TEST(Ramp, TangentsAreTheWeightedHarmonicMeanOfTheSlopes) {
  // Keys (0, 0), (0.25, 1), (1, 2.5): slopes 4 and 2 over 0.25 and 0.75, so the tangent is
  // 3 / (1.75 / 4 + 1.25 / 2) = 48 / 17; the middle of each piece follows from the Hermite form.
  const Ramp ramp({{0, 0}, {0.25f, 1}, {1, 2.5f}});
  const double m = 48.0 / 17.0;
  EXPECT_NEAR(ramp.evaluate(0.125f), 0.5 + 0.25 * (4.0 - m) / 8.0, 1e-6);
  EXPECT_NEAR(ramp.evaluate(0.625f), 1.75 + 0.75 * (m - 2.0) / 8.0, 1e-6);
}

TEST(Ramp, NeverOvershootsItsKeys) {
  const Ramp peak({{0, 0}, {0.5f, 1}, {1, 0}});
  for (int i = 0; i <= 1000; ++i) {
    const float t = static_cast<float>(i) / 1000.0f;
    EXPECT_LE(peak.evaluate(t), 1.0f);
    EXPECT_GE(peak.evaluate(t), 0.0f);
    EXPECT_NEAR(peak.evaluate(t), peak.evaluate(1.0f - t), 1e-6f);
  }
  EXPECT_NEAR(peak.evaluate(0.499f), 1.0f, 2e-5f) << "the peak is not flat";
  for (std::uint64_t seed = 0; seed < 30; ++seed) {
    const Ramp ramp(makeKeys(seed));
    for (std::size_t k = 1; k < ramp.keys().size(); ++k) {
      const Ramp::Key a = ramp.keys()[k - 1], b = ramp.keys()[k];
      float last = a.value;
      for (int i = 0; i < 50; ++i) {
        const float t = a.position + (b.position - a.position) * static_cast<float>(i) / 50.0f;
        if (t <= a.position || t >= b.position) continue;
        const float value = ramp.evaluate(t);
        EXPECT_GE(value, std::min(a.value, b.value));
        EXPECT_LE(value, std::max(a.value, b.value));
        EXPECT_GE((value - last) * (b.value - a.value), -1e-4f) << "it turns back between keys";
        last = value;
      }
    }
  }
}

TEST(Ramp, JumpsAtTwoKeysOfOnePosition) {
  const Keys keys = {{0, 1}, {0.5f, 2}, {0.5f, 7}, {1, 8}};
  for (const bool linear : {false, true}) {
    const Ramp ramp(keys, linear);
    EXPECT_NEAR(ramp.evaluate(std::nextafter(0.5f, 0.0f)), 2.0f, 1e-4f);
    EXPECT_EQ(ramp.evaluate(0.5f), 7.0f);
  }
  // Keys of one position keep the order in which they were given.
  EXPECT_EQ(Ramp({{0.5f, 7}, {0, 1}, {1, 8}, {0.5f, 2}}).evaluate(0.5f), 2.0f);
  Keys many;
  for (int i = 0; i < 60; ++i) many.push_back({i % 2 == 0 ? 0.5f : 0.25f, static_cast<float>(i)});
  const Keys sorted = Ramp(many).keys();
  for (std::size_t i = 1; i < 60; ++i) {
    EXPECT_TRUE(i == 30 || sorted[i - 1].value < sorted[i].value);
  }
  EXPECT_EQ(Ramp({{0.5f, 3}, {0.5f, 4}}).evaluate(0.5f), 3.0f);
  EXPECT_EQ(Ramp({{0.5f, 3}, {0.5f, 4}}).evaluate(0.6f), 4.0f);
}

TEST(Ramp, ExtremeKeysGiveFiniteValues) {
  const Keys cases[] = {{{-FLT_MAX, -FLT_MAX}, {0, 1}, {FLT_MAX, FLT_MAX}},
                        {{0, 0}, {1e-45f, FLT_MAX}, {1, -FLT_MAX}},
                        {{NAN, 3}, {0, INFINITY}, {0.25f, 1}, {-INFINITY, 2}, {1, 2}}};
  for (const Keys& keys : cases) {
    for (const bool linear : {false, true}) {
      const Ramp ramp(keys, linear);
      for (const float t : {-3e38f, -1.0f, 0.0f, 1e-45f, 0.5f, 1.0f, 3e38f}) {
        EXPECT_TRUE(std::isfinite(ramp.evaluate(t))) << t;
      }
    }
  }
  EXPECT_EQ(Ramp(cases[2]).keys(), (Keys{{0.25f, 1}, {1, 2}}));
}

TEST(Ramp, ManyPlacesAtOnceGiveWhatEachGivesAlone) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinity = std::numeric_limits<float>::infinity();
  std::vector<float> places = {nan, -infinity, infinity, -1.0f, -0.0f, 2.0f};
  for (int i = 0; i <= 64; ++i) places.push_back(static_cast<float>(i) / 64.0f);
  // One key more than are worked out side by side, and every fifth key a jump.
  for (std::size_t count = 0; count <= 18; ++count) {
    std::vector<Ramp::Key> keys;
    for (std::size_t k = 0; k < count; ++k) {
      const std::size_t step = k % 5 == 4 ? k - 1 : k;
      keys.push_back({static_cast<float>(step) / 16.0f, static_cast<float>(k * k % 7)});
    }
    for (const bool linear : {false, true}) {
      const Ramp ramp(keys, linear);
      std::vector<float> values(places.size());
      ramp.evaluate(places, values);
      for (std::size_t i = 0; i < places.size(); ++i) {
        EXPECT_EQ(values[i], ramp.evaluate(places[i])) << count << " keys at " << places[i];
      }
    }
  }
}

TEST(Ramp, JsonRoundTrip) {
  for (std::uint64_t seed = 0; seed < 10; ++seed) {
    const Ramp ramp(makeKeys(seed), seed % 2 == 0);
    EXPECT_EQ(rampFromText(rampToJson(ramp).dump()), ramp);
  }
  EXPECT_EQ(rampToJson(Ramp({{0, 0.1f}, {1, 2}})).dump(), "{\"keys\":[[0.0,0.1],[1.0,2.0]]}");
  EXPECT_EQ(rampToJson(Ramp({}, true)).dump(), "{\"keys\":[],\"linear\":true}");
  EXPECT_EQ(rampFromText("[[1, 2], [0, 1]]"), Ramp({{0, 1}, {1, 2}}));
  EXPECT_EQ(rampFromText(" {\"linear\": true, \"keys\": [[0, 3]], \"note\": 1}"),
            Ramp({{0, 3}}, true));
  EXPECT_EQ(rampFromText("[]"), Ramp());
}

TEST(Ramp, WrongTextsAreRefusedInWords) {
  const auto messageOf = [](const std::string& text) -> std::string {
    try {
      rampFromText(text);
    } catch (const GraphError& error) {
      return error.what();
    }
    return "nothing was thrown";
  };
  for (const char* text : {"", "[[0, 1]", "[[0, 1e999]]", "{\"keys\": [[0, NaN]]}"}) {
    EXPECT_EQ(messageOf(text), "ramp: malformed JSON") << text;
  }
  EXPECT_EQ(messageOf(std::string(100000, '[')), "ramp: malformed JSON");
  for (const char* text :
       {"1", "null", "{}", "\"keys\"", "[1, 2]", "[[0]]", "[[0, 1, 2]]", "[[0, \"1\"]]",
        "[[0, null]]", "[[0, 1], 2]", "[[0, 1e200]]", "[[true, 1]]", "{\"keys\": 1}",
        "{\"keys\": {\"0\": 1}}", "{\"keys\": [], \"linear\": 1}"}) {
    EXPECT_EQ(messageOf(text), "ramp: needs keys [[position, value], ...]") << text;
  }
  Ramp kept({{0, 3}});
  EXPECT_FALSE(rampFromJson(parseJson("[[0, 1], [2]]"), kept));
  EXPECT_EQ(kept, Ramp({{0, 3}}));
}

TEST(Ramp, HashTellsRampsApart) {
  const Ramp a({{0, 0}, {1, 1}}), b({{0, 0}, {1, 1}}, true), c({{0, 0}, {1, 2}}), d({{0, 0}});
  EXPECT_EQ(a.hash(1), Ramp({{1, 1}, {0, 0}}).hash(1));
  EXPECT_NE(a.hash(1), a.hash(2));
  EXPECT_NE(a.hash(1), b.hash(1));
  EXPECT_NE(a.hash(1), c.hash(1));
  EXPECT_NE(a.hash(1), d.hash(1));
}

}  // namespace
}  // namespace kestrane
