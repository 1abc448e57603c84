// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/functions.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <map>

#include "core/base/hash.h"
#include "core/expr/expression.h"
#include "core/expr/noise.h"
#include "tests/expr/expression_cases.h"

namespace kestrane {
namespace {

float valueOf(const std::string& text, const ExpressionRecord& record = {}) {
  return Expression::compile(text).evaluate(record);
}

/// The value where x is a number that the compile does not know.
float at(const std::string& text, float x, float y = 0.0f) {
  ExpressionRecord record;
  record[ExpressionSlot::x] = x;
  record[ExpressionSlot::y] = y;
  return valueOf(text, record);
}

Vec3f vectorOf(const std::string& text) {
  return Expression::compile(text, {}, ExpressionType::vector).evaluateVector({});
}

TEST(ExpressionFunctions, NumbersFollowTheTable) {
  const std::pair<const char*, double> cases[] = {
      {"sin(1)", std::sin(1.0)},
      {"cos(1)", std::cos(1.0)},
      {"tan(1)", std::tan(1.0)},
      {"asin(0.5)", std::asin(0.5)},
      {"asin(2)", std::asin(1.0)},
      {"acos(-2)", std::acos(-1.0)},
      {"atan(3)", std::atan(3.0)},
      {"abs(-2)", 2},
      {"sqrt(9)", 3},
      {"sqrt(-4)", 0},
      {"floor(-1.5)", -2},
      {"ceil(-1.5)", -1},
      {"ceil(1.25)", 2},
      {"floor(1e20)", 1e20},
      {"fract(-0.25)", 0.75},
      {"exp(1)", std::exp(1.0)},
      {"exp(1000)", 0},
      {"log(10)", std::log(10.0)},
      {"log(0)", 0},
      {"log(-1)", 0},
      {"sign(-3)", -1},
      {"sign(0)", 0},
      {"sign(5)", 1},
      {"pow(2, 0.5)", std::sqrt(2.0)},
      {"pow(-8, 1/3)", 0},
      {"pow(-2, 3)", -8},
      {"pow(0, -1)", 0},
      {"atan2(1, -1)", std::atan2(1.0, -1.0)},
      {"min(2, -1)", -1},
      {"max(2, -1)", 2},
      {"mod(-1, 3)", 2},
      {"mod(7.5, -2)", -0.5},
      {"mod(1, 0)", 0},
      {"step(1, 1)", 1},
      {"step(1, 0.9)", 0},
      {"clamp(5, 3, 1)", 3},
      {"clamp(0, 3, 1)", 1},
      {"clamp(2, 1, 3)", 2},
      {"mix(1, 3, 2)", 5},
      {"lerp(1, 3, 0.25)", 1.5},
      {"smoothstep(0, 2, 1)", 0.5},
      {"smoothstep(2, 0, 0.5)", 0.84375},
      {"smoothstep(1, 1, 0.9)", 0},
      {"smoothstep(1, 1, 1)", 1},
      {"linearstep(2, 4, 2.5)", 0.25},
      {"linearstep(4, 2, 2.5)", 0.75},
      {"linearstep(1, 1, 2)", 1},
      {"round(2.5)", 3},
      {"round(-2.5)", -3},
      {"round(0.49999997)", 0},
      {"round(8388609)", 8388609},
      {"trunc(-1.75)", -1},
      {"radians(180)", 3.1415925},
      {"degrees(1)", 57.295776},
      {"gamma(0.25, 2)", 0.5},
      {"gamma(-1, 2)", 0},
      {"gamma(1, 0)", 0},
      {"bias(0.25, 0.5)", 0.25},
      {"bias(0.5, 0.2)", 0.2},
      {"bias(0.3, 1)", 1},
      {"bias(0.3, 0)", 0},
      {"bias(0, 0.3)", 0},
      {"gain(0.5, 0.3)", 0.5},
      {"gain(0.25, 0.5)", 0.25},
      {"fit(0.5, 0, 1, 10, 20)", 15},
      {"fit(2, 0, 1, 10, 20)", 30},
      {"fit(2, 1, 1, 10, 20)", 10},
      {"remap(2, 0, 1, 10, 20)", 20},
      {"remap(2, 0, 1, 20, 10)", 10},
      {"remap(0.25, 1, 0, 20, 10)", 12.5},
      {"choose(0.5, 1, 2, 3, 4)", 3},
      {"choose(1, 1, 2, 3)", 3},
      {"choose(-1, 1, 2, 3)", 1},
      {"choose(0.99999994, 1, 2, 3)", 3},
      {"cycle(-1, 0, 3)", 3},
      {"cycle(7.9, 3, 0)", 3},
      {"cycle(9, 2, 4)", 3},
      {"cycle(4, 0.5, 2.5)", 1},
      {"cycle(1e30, -1e30, 1e30)", 1e9},
      {"dot([1, 2, 3], [4, 5, 6])", 32},
      {"length([2, 3, 6])", 7},
      {"length([3e30, 4e30, 0])", 5e30},
      {"distance([1, 1, 1], [3, 4, 7])", 7},
      {"curve(0.5, 0, 0, 1, 2)", 1},
      {"linearcurve(0.25, 1, 8, 0, 0)", 2},
      {"linearcurve(-1, 0, 3, 1, 4)", 3},
      {"spline(0.5, 1, 7, 2)", 7},
      {"spline(0.3, 6)", 6},
  };
  for (const auto& [text, value] : cases) {
    EXPECT_NEAR(valueOf(text), value, 1e-6 * std::max(1.0, std::fabs(value))) << text;
  }
}

TEST(ExpressionFunctions, VectorsFollowTheTable) {
  EXPECT_EQ(vectorOf("cross([1, 0, 0], [0, 1, 0])"), (Vec3f{0, 0, 1}));
  EXPECT_EQ(vectorOf("normalize([0, 0, 0])"), Vec3f());
  EXPECT_EQ(vectorOf("normalize([0, 1e-13, 0])"), Vec3f());
  EXPECT_EQ(vectorOf("normalize([0, 1e-11, 0])"), (Vec3f{0, 1, 0}));
  EXPECT_EQ(vectorOf("normalize([3e30, 0, 0])"), (Vec3f{1, 0, 0}));
  EXPECT_EQ(vectorOf("rotate([1, 2, 3], [0, 0, 0], 1)"), (Vec3f{1, 2, 3}));
  EXPECT_LT(distance(vectorOf("rotate([1, 0, 0], [0, 0, 9], pi / 2)"), {0, 1, 0}), 1e-6f);
  EXPECT_LT(distance(vectorOf("rotate([1, 2, 3], [1, 1, 1], 2 * pi / 3)"), {3, 1, 2}), 2e-6f);
  EXPECT_NEAR(length(vectorOf("rotate([1, 2, 3], [0.3, -2, 5], 0.7)")), std::sqrt(14.0f), 1e-5f);
  EXPECT_EQ(vectorOf("vnoise([0.3, 1.7, -2.2])"), vnoise({0.3f, 1.7f, -2.2f}));
  EXPECT_EQ(vectorOf("vfbm([0.3, 1.7, -2.2])"), vfbm({0.3f, 1.7f, -2.2f}, {4, 2, 0.5f}));
  EXPECT_EQ(vectorOf("vfbm([0.3, 1.7, -2.2], 2, 3)"), vfbm({0.3f, 1.7f, -2.2f}, {2, 3, 0.5f}));
}

TEST(ExpressionFunctions, NoisesAreThoseOfTheNoiseFamily) {
  const Vec3f p = {0.3f, 1.7f, -2.2f};
  EXPECT_EQ(valueOf("noise(0.3, 1.7, -2.2)"), noise(p));
  EXPECT_EQ(valueOf("noise([0.3, 1.7, -2.2])"), noise(p));
  EXPECT_EQ(valueOf("fbm([0.3, 1.7, -2.2], 3, 2.5, 0.4)"), fbm(p, {3, 2.5f, 0.4f}));
  EXPECT_EQ(valueOf("turbulence([0.3, 1.7, -2.2])"), turbulence(p));
  EXPECT_EQ(valueOf("cellnoise([0.3, 1.7, -2.2])"), cellnoise(p));
  EXPECT_EQ(valueOf("voronoi([0.3, 1.7, -2.2])"), voronoi(p));
  EXPECT_EQ(valueOf("voronoi([0.3, 1.7, -2.2], 0.5, 2)"), voronoi(p, 0.5f, 2.0f));
  EXPECT_EQ(valueOf("voronoi([0.5, 1.5, 7.5], 0)"), 0.0f);
}

TEST(ExpressionFunctions, RandomNumbersAreKeyedAsDocumented) {
  ExpressionRecord record;
  record.seed = 42;
  const std::uint64_t key = std::bit_cast<std::uint32_t>(1.5f);
  EXPECT_EQ(valueOf("rand(1.5)", record), unitFloat(hashCombine(mix64(42), key)));
  EXPECT_EQ(valueOf("hash(1.5)", record), unitFloat(hashCombine(0xEE83BFC8A6DE0083u, key)));
  EXPECT_EQ(valueOf("rand(-0.0)", record), valueOf("rand(0)", record));
  const float before = valueOf("rand(1)", record);
  record.seed = 43;
  EXPECT_NE(valueOf("rand(1)", record), before);
  EXPECT_NE(valueOf("hash(1)"), valueOf("hash(2)"));
}

TEST(ExpressionFunctions, PickIsKeyedAsDocumented) {
  for (const float x : {1.5f, 0.0f, -2.0f, 1e9f, 0.1f, 3.0f, 4.0f, 5.0f}) {
    const double r = unitFloat(hashCombine(0x98034C1D6DB70AD7u, std::bit_cast<std::uint32_t>(x)));
    EXPECT_EQ(at("pick(x, 0, 9)", x), std::floor(10.0 * r)) << x;
    EXPECT_EQ(at("pick(x, 9, -90)", x), std::floor(100.0 * r) - 90.0) << x;
    // Weights 1, 0, 2 and, past the list, 1.
    const double walk = 4.0 * r;
    EXPECT_EQ(at("pick(x, 5, 8, 1, 0, 2)", x), walk < 1.0 ? 5.0 : walk < 3.0 ? 7.0 : 8.0) << x;
  }
}

TEST(ExpressionFunctions, RandomRulesTakeAnyNumber) {
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  for (const char* text : {"rand(x)", "hash(x)", "pick(x, 0, 1e6)"}) {
    EXPECT_EQ(at(text, notANumber), at(text, -notANumber)) << text;
    EXPECT_EQ(at(text, 0.0f), at(text, -0.0f)) << text;
  }
  EXPECT_EQ(at("choose(x, 7, 8)", notANumber), 7.0f);
  EXPECT_EQ(at("cycle(x, 2, 5)", notANumber), 4.0f);  // as 0
  EXPECT_EQ(at("cycle(x, 2, 5)", -1e30f), at("cycle(x, 2, 5)", -1e9f));
  EXPECT_EQ(at("cycle(3, x, 5)", notANumber), 3.0f);
}

/// How often each value comes up for x = 0, 1, 2, ...
std::map<float, int> histogram(const std::string& text, int count) {
  const Expression expression = Expression::compile(text);
  ExpressionRecord record;
  std::map<float, int> counts;
  for (int i = 0; i < count; ++i) {
    record[ExpressionSlot::x] = static_cast<float>(i);
    ++counts[expression.evaluate(record)];
  }
  return counts;
}

TEST(ExpressionFunctions, PickFollowsItsWeights) {
  struct Case {
    const char* text;
    std::map<float, double> shares;
  };
  const Case cases[] = {
      {"pick(x, 5, 2)", {{2, 0.25}, {3, 0.25}, {4, 0.25}, {5, 0.25}}},
      {"pick(x, 0.6, 2.4)", {{1, 0.5}, {2, 0.5}}},
      {"pick(x, 1, 3, 1, 0, 3)", {{1, 0.25}, {3, 0.75}}},
      {"pick(x, 1, 4, 2)", {{1, 0.4}, {2, 0.2}, {3, 0.2}, {4, 0.2}}},
      {"pick(x, 1, 2, -5, 1, 9, 9)", {{2, 1.0}}},
      {"pick(x, 1, 2, 0, -1)", {{1, 1.0}}},
      {"pick(x, 4, 4)", {{4, 1.0}}},
  };
  constexpr int count = 20000;
  for (const Case& c : cases) {
    const auto counts = histogram(c.text, count);
    EXPECT_EQ(counts.size(), c.shares.size()) << c.text;
    for (const auto& [value, share] : c.shares) {
      const auto found = counts.find(value);
      ASSERT_NE(found, counts.end()) << c.text << " never gives " << value;
      EXPECT_NEAR(found->second, share * count, 300) << c.text << " gives " << value;
    }
  }
  EXPECT_LE(std::fabs(valueOf("pick(3, -1e30, 1e30)")), 1e9f);
  EXPECT_LE(std::fabs(at("pick(3, -1e30, 1e30, 1 / x, x)", 1e-40f)), 1e9f);
}

TEST(ExpressionFunctions, MathTakesVectorsPerComponent) {
  // Every function of numbers gives per component what it gives for numbers, whichever argument is
  // the vector.
  const float values[] = {0.3f, 0.9f, -1.4f};
  for (const FunctionRow& row : functionTable) {
    if (row.kind != FunctionClass::math) continue;
    for (int vector = 0; vector < row.most; ++vector) {
      std::string arguments, numbers;
      for (int i = 0; i < row.most; ++i) {
        const std::string number = std::to_string(0.2f + 0.45f * static_cast<float>(i));
        arguments += (i > 0 ? ", " : "") + (i == vector ? "[0.3, 0.9, -1.4]" : number);
        numbers += (i > 0 ? ", " : "") + (i == vector ? "x" : number);
      }
      const std::string name(row.name);
      const Vec3f result = vectorOf(name + "(" + arguments + ")");
      for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(result[axis], at(name + "(" + numbers + ")", values[axis]))
            << name << "(" << arguments << ")";
      }
    }
  }
}

TEST(ExpressionFunctions, InversesAndSymmetriesHold) {
  for (float x = 0.0125f; x < 1.0f; x += 0.0625f) {
    EXPECT_NEAR(at("sin(asin(x))", x), x, 1e-6f);
    EXPECT_NEAR(at("cos(acos(x))", x), x, 1e-6f);
    EXPECT_NEAR(at("log(exp(x))", x), x, 1e-6f);
    EXPECT_NEAR(at("gamma(gamma(x, 3), 1/3)", x), x, 1e-6f);
    EXPECT_NEAR(at("bias(bias(x, 0.3), 0.7)", x), at("x ^ (log(0.3) * log(0.7) / log(0.5)^2)", x),
                1e-6f);
    EXPECT_NEAR(at("gain(x, 0.8) + gain(1 - x, 0.8)", x), 1.0f, 1e-6f);
    EXPECT_NEAR(at("gain(gain(x, 0.8), 1 - 0.5 ^ (log(0.5) / log(0.2)))", x), x, 1e-6f);
    EXPECT_NEAR(at("smoothstep(0, 1, x) + smoothstep(1, 0, x)", x), 1.0f, 1e-6f);
    EXPECT_NEAR(at("fit(fit(x, 0, 1, -3, 8), -3, 8, 0, 1)", x), x, 1e-6f);
    EXPECT_EQ(at("floor(x * 7) + fract(x * 7)", x), x * 7.0f);
  }
}

TEST(ExpressionFunctions, ResultsThatAreNotFiniteAreZero) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(at("x * 10", infinity), 0.0f);
  EXPECT_EQ(at("x", notANumber), 0.0f);
  EXPECT_EQ(at("min(x, 3) + 1", notANumber), 1.0f);
  EXPECT_EQ(at("min(3, x) + 1", notANumber), 1.0f);
  EXPECT_EQ(at("clamp(x, 1, 2)", notANumber), 0.0f);
  EXPECT_EQ(at("exp(x) + 1", 1e3f), 1.0f);
  EXPECT_EQ(at("tan(x)", infinity), 0.0f);
  EXPECT_EQ(at("1 / x", infinity), 0.0f);
  EXPECT_EQ(at("x == x", notANumber), 0.0f);
  EXPECT_EQ(at("x != x", notANumber), 1.0f);
  EXPECT_EQ(at("x > 1e30", infinity), 1.0f);  // operators let infinity through
  EXPECT_EQ(at("(x * x) ^ 0 + 1", 1e30f), 2.0f);
}

TEST(ExpressionFunctions, MapsAreReadAtTheLocation) {
  ExpressionEnvironment environment;
  environment.findMap = [](const std::string&) { return std::make_shared<ComponentMap>(); };
  const std::pair<const char*, Vec3f> cases[] = {
      {"[map('m'), map('m', 4), map('m', 'luminance')]", {5, 5, 5}},
      {"[map('m', 'r'), map('m', 1), map(\"m\", 'a')]", {1, 2, 4}},
      {"cmap('m')", {1, 2, 3}},
  };
  MapSample location;
  ExpressionRecord record;
  for (const auto& [text, value] : cases) {
    const auto expression = Expression::compile(text, environment, ExpressionType::vector);
    record.location = &location;
    location.uv.x = 0.0f;
    EXPECT_EQ(expression.evaluateVector(record), value) << text;
    location.uv.x = 1.0f;
    EXPECT_EQ(expression.evaluateVector(record), (value + Vec3f{10, 10, 10})) << text;
    record.location = nullptr;
    EXPECT_EQ(expression.evaluateVector(record), Vec3f()) << text;
  }
}

}  // namespace
}  // namespace kestrane
