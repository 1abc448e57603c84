// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <limits>

#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/expr/expression.h"
#include "core/expr/functions.h"
#include "tests/expr/expression_cases.h"

namespace kestrane {
namespace {

/// A program per operator and function, over what varies and what does not, and of every shape that
/// the stack can take.
std::vector<std::string> programs() {
  std::vector<std::string> texts = {
      "x",
      "3",
      "[1, 2, 3]",
      "clamp(sin(x*6.28)*0.5+0.5,0,1)*mix(u,v,t)+pow(t,1.5)",
      "x ^ y",
      "(-2) ^ x",
      "x / y",
      "-x - -3",
      "(x < y) + (x <= y) * 2 + (x > y) * 4 + (x >= y) * 8 + (x == y) * 16 + (x != y) * 32",
      "x > 0 ? y : z",
      "u > 0 ? y : z",
      "x > 0 ? 1 : y",
      "u ? 1 : 2",
      "x > 0 ? P : [1, y, u]",
      "u ? P : 1",
      "x ? 1 : P",
      "-P",
      "-[u, v, x]",
      "2 * P - x",
      "x * P",
      "(x + y) * P / (P + z)",
      "P ^ [2, y, z]",
      "P.x + P[1] * [x, y + 1, z].z",
      "[x + 1, y * 2, z].y + [x, 3, z].y",
      "P + cross(P, N)",
      "dot(P + x, [x, u, 1]) * length(P) + distance(P, N)",
      "rotate(P, N + 1, x)",
      "normalize(P) * normalize(-P)",
      "mix(0, P, t)",
      "mix(x + 1, P * 2, y + 1)",
      "[x + 1, y * 2, z].y + (z + 1) * y",
      "x > 0 ? [x * 2, y + 1, z - 1].z : -y",
      "clamp(P, -1, [1, x, u])",
      "fit(P, u, v, x, y)",
      "pick(x, 0, 9) + pick(x, y, z, u, v, x)",
      "choose(fract(x), u, y, z) + cycle(x, 0, y)",
      "rand(x) + rand(1) + hash(x) + hash(u)",
      "rand(t) * x + rand(pt) * rand(1) + map('m') * pz",
      "mix(x + 1, pt, t) * P - [px, 2, y + z] / pointP",
      "weight + clumpId * 2 + missing",
      "clumpId > 2 ? weight : P.y",
      "noise(P) + noise(x, u, z) + fbm(P, x) + turbulence(P * y, 2, x, y)",
      "vnoise(P) + vfbm(P, 2) * cellnoise(P)",
      "voronoi(P) + voronoi(P, y, 2) + voronoi([u, v, 1], u, 3)",
      "curve(t, 0, 1, 0.5, 3, 1, 0) + linearcurve(x, 0, 1, 1, 4) + spline(y, 1, 2, 9)",
      "map('m') + map('m', 'r') * x",
      "cmap('m') * P",
      "$a = [x, y, z] + 1; $b = $a * $a.y; $b + $a",
      "pick(x, 1, 9, y, y, y, pick(y, 1, 9, x, x, x, x, pick(z, 1, 9, y, y, y, y, y, y, y, y)))",
      nestedChoices(2),
      nestedChoices(3),
      nestedChoices(16),
  };
  for (const FunctionRow& row : functionTable) {
    if (row.kind != FunctionClass::math) continue;
    std::string plain, mixed, vectors;
    constexpr const char* slots[] = {"x", "y", "z", "t", "lift"};
    for (int i = 0; i < row.most; ++i) {
      const std::string comma = i > 0 ? ", " : "";
      plain += comma + slots[i];
      mixed += comma + (i == 1 ? "0.25" : slots[(i + 1) % 5]);
      vectors += comma + (i == 0 ? "P" : i % 2 == 1 ? "y" : "N * x");
    }
    const std::string name(row.name);
    texts.push_back(name + "(" + plain + ") + " + name + "(" + mixed + ")");
    texts.push_back(name + "(" + vectors + ")");
  }
  return texts;
}

/// Elements of every kind of number, with constant slots among arrays.
struct Elements {
  static constexpr std::size_t count = 1000;
  std::vector<std::vector<float>> slots;
  std::vector<float> clumpIds, weights;
  std::vector<std::uint32_t> strands;
  std::vector<std::uint64_t> seeds;
  std::vector<MapSample> locations;
  std::array<bool, count> located;
  ExpressionChannel channels[2];
  ExpressionBlock block;

  Elements() : slots(expressionSlotCount, std::vector<float>(count)) {
    const float special[] = {0.0f,
                             -0.0f,
                             1.0f,
                             -1.0f,
                             0.5f,
                             -2.5f,
                             3e38f,
                             -3e38f,
                             1e-40f,
                             1e8f,
                             1e9f,
                             -7e20f,
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN(),
                             8388607.5f};
    block.count = count;
    for (std::size_t s = 0; s < expressionSlotCount; ++s) {
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t h = hashCombine(s, i);
        slots[s][i] =
            h % 5 == 0 && i % 400 > 200 ? special[h / 5 % 16] : unitFloat(mix64(h)) * 4.0f - 1.5f;
      }
      block.slots[s] = slots[s].data();
    }
    block[ExpressionSlot::u] = 0.625f;
    block[ExpressionSlot::v] = -3.0f;
    for (std::size_t i = 0; i < count; ++i) {
      strands.push_back(static_cast<std::uint32_t>(i / 17));
      seeds.push_back(mix64(i / 17));
      locations.push_back({});
      locations.back().uv.x = static_cast<float>(i);
      located[i] = i % 7 != 3;
    }
    for (int i = 0; i < 50; ++i) clumpIds.push_back(static_cast<float>(i % 7));
    for (int i = 0; i < 990; ++i) weights.push_back(static_cast<float>(i) * 0.25f);
    channels[0] = {clumpIds, false};
    channels[1] = {weights, true};
    block.strands = {0, 1, strands.data()};
    block.points = {0, 1, nullptr};
    block.seeds = seeds.data();
    block.locations = locations.data();
    block.hasLocations = located.data();
  }

  /// The channels that the program reads, in its order.
  std::vector<ExpressionChannel> channelsOf(const Expression& expression) const {
    std::vector<ExpressionChannel> result;
    for (const std::string& name : expression.channelNames()) {
      result.push_back(name == "clumpId"  ? channels[0]
                       : name == "weight" ? channels[1]
                                          : ExpressionChannel());
    }
    return result;
  }
};

/// One element of a block as a record.
ExpressionRecord recordOf(const ExpressionBlock& block, std::size_t i, MapSample& location) {
  std::size_t owner = i;  // has the values that groups share
  if (!block.groups.empty()) {
    owner = static_cast<std::size_t>(std::upper_bound(block.groups.begin(), block.groups.end(), i) -
                                     block.groups.begin() - 1);
  }
  ExpressionRecord record;
  for (std::size_t s = 0; s < expressionSlotCount; ++s) {
    record.slots[s] = block.slots[s][isPointSlot(static_cast<ExpressionSlot>(s)) ? i : owner];
  }
  record.strand = block.strands[owner];
  record.point = block.points[i];
  record.seed = block.seeds[owner];
  record.channels = block.channels;
  location = block.locations[owner];
  record.location = block.hasLocations[owner] ? &location : nullptr;
  return record;
}

void expectSameBits(const Expression& expression, const ExpressionBlock& block) {
  std::vector<float> numbers(block.count);
  std::vector<Vec3f> vectors(block.count);
  expression.evaluateBlock(block, std::span(numbers));
  expression.evaluateBlock(block, std::span(vectors));
  for (std::size_t i = 0; i < block.count; ++i) {
    MapSample location;
    const ExpressionRecord record = recordOf(block, i, location);
    const float number = expression.evaluate(record);
    const Vec3f vector = expression.evaluateVector(record);
    ASSERT_EQ(std::bit_cast<std::uint32_t>(number), std::bit_cast<std::uint32_t>(numbers[i]))
        << expression.text() << ", element " << i << ": " << number << " alone, " << numbers[i];
    ASSERT_EQ(std::memcmp(&vector, &vectors[i], sizeof(Vec3f)), 0)
        << expression.text() << ", element " << i;
    ASSERT_TRUE(std::isfinite(number) && isFinite(vector)) << expression.text();
  }
}

Expression compiled(const std::string& text) {
  ExpressionEnvironment environment;
  environment.findMap = [](const std::string&) { return std::make_shared<ComponentMap>(); };
  return Expression::compile(text, environment, ExpressionType::any);
}

TEST(ExpressionBlocks, GiveTheBitsOfSingleEvaluations) {
  Elements elements;
  for (const std::string& text : programs()) {
    const Expression expression = compiled(text);
    const auto channels = elements.channelsOf(expression);
    elements.block.channels = channels;
    expectSameBits(expression, elements.block);
    if (HasFatalFailure()) return;
  }
}

TEST(ExpressionBlocks, OfOneStrandMayHoldItsValuesOnce) {
  Elements elements;
  ExpressionBlock& block = elements.block;
  block.count = 17;
  block.strands = {9, 0, nullptr};
  block.points = {153, 1, nullptr};
  block.seeds = ExpressionLane<std::uint64_t>(77);
  block.locations = ExpressionLane<MapSample>(elements.locations[5]);
  block.hasLocations = true;
  for (const std::string& text : programs()) {
    const Expression expression = compiled(text);
    const auto channels = elements.channelsOf(expression);
    block.channels = channels;
    expectSameBits(expression, block);
    if (HasFatalFailure()) return;
  }
  // One place for all that only some have, and a place for each that all have.
  const Expression reader = compiled("map('m')");
  block.hasLocations = elements.located.data();
  expectSameBits(reader, block);
  block.locations = elements.locations.data();
  block.hasLocations = true;
  expectSameBits(reader, block);
  // Past the end of a channel, and without places or channels at all.
  block.points = {980, 1, nullptr};
  block.hasLocations = false;
  for (const char* text : {"weight", "map('m') + clumpId"}) {
    const Expression expression = compiled(text);
    const auto channels = elements.channelsOf(expression);
    block.channels = channels;
    expectSameBits(expression, block);
    block.channels = {};
    expectSameBits(expression, block);
  }
}

TEST(ExpressionBlocks, OfEverySizeFillJustTheirElements) {
  Elements elements;
  for (const std::string& text : programs()) {
    const Expression expression = compiled(text);
    const auto channels = elements.channelsOf(expression);
    elements.block.channels = channels;
    for (const std::size_t count : {0, 1, 2, 17, 127, 128, 129, 287, 288, 289}) {
      elements.block.count = count;
      std::vector<float> out(count + 1, -123.0f);
      expression.evaluateBlock(elements.block, std::span(out));
      EXPECT_EQ(out.back(), -123.0f);
      expectSameBits(expression, elements.block);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(ExpressionBlocks, TheProgramsCallEveryFunction) {
  for (const FunctionRow& row : functionTable) {
    EXPECT_THAT(programs(), testing::Contains(testing::HasSubstr(std::string(row.name) + "(")));
  }
}

/// Where groups of these sizes, over and over, begin among the elements.
std::vector<std::uint32_t> groupsOf(std::initializer_list<std::uint32_t> sizes) {
  std::vector<std::uint32_t> groups = {0};
  while (groups.back() < Elements::count) {
    for (const std::uint32_t size : sizes) groups.push_back(groups.back() + size);
  }
  return groups;
}

TEST(ExpressionBlocks, OfGroupsGiveTheBitsOfSingleEvaluations) {
  // Strands of one length, of many, of more points than fit a chunk, and of none at all in number.
  std::vector<std::uint32_t> sparse = {0, 0, 5};
  sparse.resize(600, 8);
  sparse.insert(sparse.end(), {13, 14, 40, 1000});
  Elements elements;
  ExpressionBlock& block = elements.block;
  for (const auto& groups : {groupsOf({17}), groupsOf({1}), groupsOf({3, 0, 17, 1, 400, 0, 0, 2}),
                             sparse, groupsOf({1000})}) {
    block.groups = groups;
    for (const std::string& text : programs()) {
      const Expression expression = compiled(text);
      const auto channels = elements.channelsOf(expression);
      block.channels = channels;
      for (const std::size_t count : {1, 18, 288, 1000}) {
        block.count = count;
        expectSameBits(expression, block);
        if (HasFatalFailure()) return;
      }
    }
  }
}

/// The elements from begin to end as a block of their own.
ExpressionBlock partOf(ExpressionBlock block, std::size_t begin, std::size_t end) {
  for (auto& slot : block.slots) slot.values += slot.values != nullptr ? begin : 0;
  block.count = end - begin;
  block.strands.values += begin;
  block.points.first += begin;
  block.seeds.values += begin;
  block.locations.values += begin;
  block.hasLocations.values += begin;
  return block;
}

TEST(ExpressionBlocks, ThreadsDoNotChangeTheResult) {
  Elements elements;
  for (const std::string& text : programs()) {
    const Expression expression = compiled(text);
    const auto channels = elements.channelsOf(expression);
    elements.block.channels = channels;
    const auto run = [&](std::size_t threads, std::size_t grain) {
      std::vector<Vec3f> out(Elements::count);
      runWithThreads(threads, [&] {
        parallelRange(0, out.size(), grain, [&](std::size_t begin, std::size_t end) {
          expression.evaluateBlock(partOf(elements.block, begin, end),
                                   std::span(out).subspan(begin, end - begin));
        });
      });
      return out;
    };
    EXPECT_EQ(run(1, 1000), run(4, 16)) << text;
  }
}

}  // namespace
}  // namespace kestrane
