// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/math_functions.h"

namespace kestrane::math::detail {

const double exp2Limits[2] = {-160.0, 160.0};

namespace {

/// The bits of 2 / pi behind its binary point.
constexpr std::uint32_t twoOverPi[] = {0xA2F9836E, 0x4E441529, 0xFC2757D1, 0xF534DDC0,
                                       0xDB629599, 0x3C439041, 0xFE5163AB};

/// 32 of those bits, from the given one on.
std::uint64_t bitsFrom(unsigned first) {
  const std::uint64_t pair = std::uint64_t{twoOverPi[first / 32]} << 32 | twoOverPi[first / 32 + 1];
  return (pair >> (32 - first % 32)) & 0xFFFFFFFFu;
}

}  // namespace

ReducedAngle reduceLargeAngle(float x) {
  // x is a whole number times 2^exponent, so bits of 2 / pi above `first` only add whole turns.
  const std::uint32_t bits = std::bit_cast<std::uint32_t>(std::fabs(x));
  const std::uint64_t whole = (bits & 0x7FFFFFu) | 0x800000u;
  const unsigned first = (bits >> 23) - 127 - 23 - 2;
  const std::uint64_t turns = ((whole * bitsFrom(first)) << 32) + whole * bitsFrom(first + 32) +
                              (whole * bitsFrom(first + 64) >> 32);
  // Two bits count quarters, the others are a fraction of one, taken to lie in -1/2 to 1/2.
  const auto fraction = static_cast<std::int64_t>(turns << 2);
  const auto quarters = static_cast<unsigned>((turns + (std::uint64_t{1} << 61)) >> 62);
  const double rest = static_cast<double>(fraction) * (halfPi * 0x1p-64);
  return x < 0.0f ? ReducedAngle{(4 - quarters) & 3, -rest} : ReducedAngle{quarters, rest};
}

namespace {

double sinOfQuarters(ReducedAngle angle) {
  const double r = angle.quarters % 2 == 0 ? angle.rest : halfPi - std::fabs(angle.rest);
  return angle.quarters < 2 ? sinOfReduced(r) : -sinOfReduced(r);
}

double cosOfQuarters(ReducedAngle angle) {
  return sinOfQuarters({(angle.quarters + 1) & 3, angle.rest});
}

}  // namespace

float sinOfLarge(float x) {
  if (!std::isfinite(x)) return static_cast<float>(nan);
  return static_cast<float>(sinOfQuarters(reduceLargeAngle(x)));
}

float cosOfLarge(float x) {
  if (!std::isfinite(x)) return static_cast<float>(nan);
  return static_cast<float>(cosOfQuarters(reduceLargeAngle(x)));
}

float tanOfLarge(float x) {
  if (!std::isfinite(x)) return static_cast<float>(nan);
  const ReducedAngle angle = reduceLargeAngle(x);
  return static_cast<float>(sinOfQuarters(angle) / cosOfQuarters(angle));
}

float powOfSpecial(float x, float y) {
  if (y == 0.0f || x == 1.0f) return 1.0f;
  if (x != x || y != y) return static_cast<float>(nan);
  // An infinite exponent is no more than one that carries every base but 1 and -1 out of range.
  const double exponent = std::fmin(std::fmax(y, -1e30), 1e30);
  const double absolute = std::fabs(static_cast<double>(x));
  const double power = absolute == 0.0 ? -1e300 : absolute > 1e200 ? 1e300 : log2InDouble(absolute);
  const auto result = static_cast<float>(exp2InDouble(exponent * power));
  // From 2^24 on every float is even.
  const double size = std::fmin(std::fabs(exponent), 0x1p+25);
  const bool whole = std::trunc(size) == size;
  const bool odd = whole && std::fmod(size, 2.0) == 1.0;
  if (x < 0.0f && !whole && absolute < 1e200) return static_cast<float>(nan);
  return odd && std::signbit(x) ? -result : result;
}

}  // namespace kestrane::math::detail
