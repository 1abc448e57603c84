// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/math_functions.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <limits>

namespace kestrane {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

/// How far a float is from the true value, in units of the float's last place.
double unitsOff(float got, double truth) {
  if (std::isnan(truth)) return std::isnan(got) ? 0.0 : 1e9;
  if (std::isinf(got) || std::fabs(truth) > FLT_MAX) {
    return got == static_cast<float>(truth) ? 0.0 : 1e9;
  }
  int exponent = 0;
  std::frexp(truth, &exponent);
  return std::fabs(got - truth) / std::ldexp(1.0, std::max(exponent - 24, -149));
}

struct Case {
  const char* name;
  float (*ours)(float);
  double (*truth)(double);
};

TEST(MathFunctions, AreWithinHalfAUnitOverAllFloats) {
  const Case cases[] = {{"sin", math::sin, std::sin},    {"cos", math::cos, std::cos},
                        {"tan", math::tan, std::tan},    {"exp", math::exp, std::exp},
                        {"log", math::log, std::log},    {"atan", math::atan, std::atan},
                        {"asin", math::asin, std::asin}, {"acos", math::acos, std::acos}};
  for (const Case& c : cases) {
    double worst = 0.0;
    float at = 0.0f;
    // A step that is coprime to every power of 2 visits all exponents and many last bits.
    for (std::uint64_t bits = 0; bits < (std::uint64_t{1} << 32); bits += 40009) {
      const float x = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
      const double off = unitsOff(c.ours(x), c.truth(x));
      if (off > worst) worst = off, at = x;
    }
    EXPECT_LT(worst, 0.505) << c.name << " at " << at;
  }
}

TEST(MathFunctions, OfTwoArgumentsTakeEverySpecialValue) {
  const float values[] = {0.0f,      -0.0f,      1.0f,       -1.0f,        2.0f,     -2.0f,
                          3.0f,      -3.0f,      0.5f,       -0.5f,        1.5f,     infinity,
                          -infinity, 1e-45f,     -1e-45f,    FLT_MAX,      -FLT_MAX, notANumber,
                          0x1p24f,   8388609.0f, 8388608.5f, -16777215.0f, 1e30f,    1e31f};
  for (const float x : values) {
    for (const float y : values) {
      const float power = math::pow(x, y);
      const double truth = std::pow(static_cast<double>(x), static_cast<double>(y));
      EXPECT_LT(unitsOff(power, truth), 0.505) << x << " ^ " << y;
      EXPECT_TRUE(std::isnan(truth) || std::signbit(power) == std::signbit(truth))
          << x << " ^ " << y;
      const float angle = math::atan2(x, y);
      const double angleTruth = std::atan2(static_cast<double>(x), static_cast<double>(y));
      EXPECT_LT(unitsOff(angle, angleTruth), 0.505) << x << ", " << y;
      EXPECT_TRUE(std::isnan(angleTruth) || std::signbit(angle) == std::signbit(angleTruth))
          << x << ", " << y;
    }
  }
}

TEST(MathFunctions, PowersAndAnglesAreWithinHalfAUnit) {
  double worstPower = 0.0, worstAngle = 0.0;
  for (int i = 0; i < 300; ++i) {
    const float x = 0.01f * static_cast<float>(i) + 0.003f;
    for (int k = -200; k <= 200; ++k) {
      const float y = 0.37f * static_cast<float>(k);
      worstPower = std::max(worstPower, unitsOff(math::pow(x, y), std::pow(double{x}, double{y})));
      worstAngle =
          std::max(worstAngle, unitsOff(math::atan2(y, x), std::atan2(double{y}, double{x})));
    }
  }
  EXPECT_LT(worstPower, 0.505);
  EXPECT_LT(worstAngle, 0.505);
}

TEST(MathFunctions, FastFormsAgreeWhereTheySayTheyFit) {
  for (const float x : {0.0f, 1.5f, -3e5f, 9.9e7f, 1e8f}) {
    ASSERT_TRUE(math::Sin::within(x) && math::Cos::within(x) && math::Tan::within(x));
    EXPECT_EQ(math::Sin::fast(x), math::sin(x));
    EXPECT_EQ(math::Cos::fast(x), math::cos(x));
    EXPECT_EQ(math::Tan::fast(x), math::tan(x));
  }
  for (const float x : {1.0001e8f, -FLT_MAX, infinity, notANumber}) {
    EXPECT_FALSE(math::Sin::within(x) || math::Cos::within(x) || math::Tan::within(x));
  }
  EXPECT_FALSE(math::Pow::within(-0.0f, 1.0f) || math::Pow::within(-1.0f, 1.0f) ||
               math::Pow::within(infinity, 1.0f) || math::Pow::within(1.0f, notANumber));
}

}  // namespace
}  // namespace kestrane
