// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

#include "core/base/lanes.h"

// In every file that includes this, the checks are of the form of lanes that the file has chosen.
namespace kestrane {
namespace {

/// The same bits, or both not a number.
bool sameFloat(float a, float b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

/// Every operation on four lanes gives in each what it gives for single floats.
void expectLanesAreFourFloats() {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const float values[] = {0.0f,   -0.0f, 1.0f,   -1.5f,     0.1f,       3.0f,
                          1e-40f, 1e38f, -1e38f, kInfinity, -kInfinity, kNan};
  constexpr int kCount = std::size(values);
  const Float4 one = splat(1.0f), zero = splat(0.0f);
  for (int i = 0; i < kCount; ++i) {
    for (int j = 0; j < kCount; ++j) {
      float left[4], right[4];
      for (int k = 0; k < 4; ++k) {
        left[k] = values[(i + k) % kCount];
        right[k] = values[(j + 3 * k) % kCount];
      }
      const Float4 a = load4(left), b = load4(right);
      const Vec3x4 p{a, b, one}, q{b, a, splat(0.5f)};
      const Float4 chosen = select((a < b) | ((a > zero) & (b >= zero)), a, b);
      const Vec3x4 sum = p + q, difference = p - q, scaled = a * q;
      for (int k = 0; k < 4; ++k) {
        const float x = left[k], y = right[k];
        const struct {
          const char* operation;
          float found, wanted;
        } cases[] = {
            {"load", a[k], x},
            {"+", (a + b)[k], x + y},
            {"-", (a - b)[k], x - y},
            {"*", (a * b)[k], x * y},
            {"/", (a / b)[k], x / y},
            {"<", select(a < b, one, zero)[k], x < y ? 1.0f : 0.0f},
            {">", select(a > b, one, zero)[k], x > y ? 1.0f : 0.0f},
            {"<=", select(a <= b, one, zero)[k], x <= y ? 1.0f : 0.0f},
            {">=", select(a >= b, one, zero)[k], x >= y ? 1.0f : 0.0f},
            {"select", chosen[k], x < y || (x > 0.0f && y >= 0.0f) ? x : y},
            {"lower", lower(a, b)[k], x < y ? x : y},
            {"higher", higher(a, b)[k], x > y ? x : y},
            {"vector +", sum.z[k], 1.5f},
            {"vector -", difference.y[k], y - x},
            {"vector *", scaled.x[k], x * y},
            {"dot", dot(p, q)[k], x * y + y * x + 0.5f},
        };
        for (const auto& c : cases) {
          EXPECT_PRED2(sameFloat, c.found, c.wanted) << x << " " << c.operation << " " << y;
        }
      }
      unsigned below = 0;
      for (int k = 0; k < 4; ++k) below |= left[k] < right[k] ? 1u << k : 0u;
      EXPECT_EQ(setLanes(a < b), below);
      float stored[4] = {};
      store4(stored, b);
      EXPECT_EQ(std::memcmp(stored, right, sizeof(stored)), 0);
    }
  }
}

/// Points go into lanes and out of them in the arrangements that the names say.
void expectPointsGoIntoLanes() {
  const Vec3f points[5] = {{0, 1, 2}, {3, 4, 5}, {6, 7, 8}, {9, 10, 11}, {12, 13, 14}};
  const Vec3x4 four = loadFour(points);
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ((Vec3f{four.x[k], four.y[k], four.z[k]}), points[k]);
  }
  const auto [first, second] = loadPair(points[1]);
  EXPECT_EQ(firstThree(first), points[1]);
  EXPECT_EQ(firstThree(second), points[2]);

  const float rows[3][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
  const Vec3x4 turned = columns(load4(rows[0]), load4(rows[1]), load4(rows[2]));
  EXPECT_EQ(firstThree(turned.x), (Vec3f{1, 5, 9}));
  EXPECT_EQ(firstThree(turned.y), (Vec3f{2, 6, 10}));
  EXPECT_EQ(firstThree(turned.z), (Vec3f{3, 7, 11}));

  Vec3f out[2] = {{-1, -2, -3}, {-4, -5, -6}};
  storeOverNext(out[0], load4(rows[0]));
  EXPECT_EQ(out[0], (Vec3f{1, 2, 3}));
  EXPECT_EQ(out[1].y, -5.0f);

  const float numbers[4] = {-3.75f, -0.5f, 0.5f, 1e6f};
  const Int4 whole = truncated(load4(numbers));
  const float wanted[4] = {-3.0f, 0.0f, 0.0f, 1e6f};
  for (int k = 0; k < 4; ++k) EXPECT_EQ(asFloats(whole)[k], wanted[k]);
  EXPECT_EQ(absolute(load4(numbers))[0], 3.75f);
}

}  // namespace
}  // namespace kestrane
