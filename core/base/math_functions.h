// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

/// Transcendental functions of floats that give the same bits on every machine, whatever its C
/// library, and that a compiler can vectorise: no tables, no branches but selects, arithmetic in
/// double precision with one rounding at the end. Errors stay below 0.505 units in the last place.
/// Special values are those of the C functions of the same names.
///
/// Argument reduction after Cody and Waite (1980), for large angles Payne and Hanek (1983); the
/// polynomials are minimax fits (Remez 1934) of relative error 2^-32 or less over the reduced
/// range.
namespace kestrane::math {

namespace detail {

inline constexpr double nan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double halfPi = 0x1.921fb54442d18p+0;

// Added and taken away again, it leaves the nearest whole number; in between, the low bits of the
// sum hold that number in two's complement.
inline constexpr double rounder = 0x1.8p+52;

/// sin(r) for |r| up to half of pi.
inline double sinOfReduced(double r) {
  const double z = r * r;
  const double p = -0.16666666626107972521 +
                   z * (0.0083333311067842029806 +
                        z * (-0.00019840867965033356691 +
                             z * (2.7525371528072029894e-6 + z * -2.3888676660927334828e-8)));
  return r + r * z * p;
}

/// x less n times half of pi, which is split so that the first two products are exact.
inline double lessQuarters(double x, double n) {
  return ((x - n * 0x1.921fb54p+0) - n * 0x1.10b46p-30) - n * 0x1.1a62633145c07p-54;
}

/// The value with its sign flipped where the lowest bit of `bits` is set.
inline double negatedIfOdd(double value, std::uint64_t bits) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(value) ^ (bits << 63));
}

/// The value, which is not negative, with the sign of another (of -0 too).
inline double withSignOf(double value, double sign) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(value) |
                               (std::bit_cast<std::uint64_t>(sign) & (std::uint64_t{1} << 63)));
}

inline double sinInDouble(double x) {
  const double shifted = x * (0.5 / halfPi) + rounder;
  const double r = lessQuarters(x, 2.0 * (shifted - rounder));
  return negatedIfOdd(sinOfReduced(r), std::bit_cast<std::uint64_t>(shifted));
}

inline double cosInDouble(double x) {
  const double shifted = (x * (0.5 / halfPi) - 0.5) + rounder;
  const double r = lessQuarters(x, 2.0 * (shifted - rounder) + 1.0);
  return negatedIfOdd(-sinOfReduced(r), std::bit_cast<std::uint64_t>(shifted));
}

/// -160 and 160. Where a compiler sees them, it works out both ends' results beforehand and then
/// selects them at the end, which takes longer than to limit the argument.
extern const double exp2Limits[2];

/// 2 to the t; 0 and infinity where a float's range ends.
inline double exp2InDouble(double t) {
  t = t < exp2Limits[0] ? exp2Limits[0] : t;
  t = t > exp2Limits[1] ? exp2Limits[1] : t;
  const double shifted = t + rounder;
  const double f = t - (shifted - rounder);
  const double p =
      0.69314718381687888346 +
      f * (0.24022650920781706047 +
           f * (0.055504003752727057578 +
                f * (0.0096180569194716398995 +
                     f * (0.0013341951037986872811 +
                          f * (0.00015461367622671287176 + f * 0.00001335982370468030145)))));
  const std::uint64_t exponent = (std::bit_cast<std::uint64_t>(shifted) + 1023) << 52;
  return (1.0 + f * p) * std::bit_cast<double>(exponent);
}

/// The binary logarithm of a positive finite x that came from a float (no denormal double).
inline double log2InDouble(double x) {
  // x = 2^e m with m between the square roots of 1/2 and 2, where the series in s is at its best.
  constexpr std::uint64_t lowest = 0x3FE6A09E667F3BCDu;
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(x);
  const std::uint64_t biased = (bits - lowest) + (std::uint64_t{1024} << 52);
  const double m =
      std::bit_cast<double>(bits - (biased & 0xFFF0000000000000u) + (std::uint64_t{1024} << 52));
  // The exponent, written into the low bits of 2^52, becomes a number without a conversion.
  const double e = std::bit_cast<double>((biased >> 52) | 0x4330000000000000u) - (0x1p+52 + 1024.0);
  const double s = (m - 1.0) / (m + 1.0);
  const double z = s * s;
  const double p = 2.8853900817778500113 +
                   z * (0.96179669411330657036 +
                        z * (0.57707794237676276078 +
                             z * (0.41220925105959982929 +
                                  z * (0.31990575480837863861 + z * 0.28289928605227604387))));
  return e + s * p;
}

inline double atan2InDouble(double y, double x) {
  // A bound beyond every float stands for infinity, so that quotients of infinities come out.
  double a = std::fabs(y), b = std::fabs(x);
  a = a > 1e200 ? 1e200 : a;
  b = b > 1e200 ? 1e200 : b;
  const double low = a < b ? a : b;
  const double high = a < b ? b : a;
  // tan(pi / 8) splits the octant; above it the angle is taken from its middle.
  const bool upper = low > 0.41421356237309503 * high;
  const double above = upper ? low - high : low;
  const double below = upper ? low + high : high;
  const double u = above / (below == 0.0 ? 1.0 : below);
  const double z = u * u;
  const double p = -0.33333332499114468391 +
                   z * (0.19999903907072197397 +
                        z * (-0.14282007738669085021 +
                             z * (0.11044691483191683162 +
                                  z * (-0.08476269071146701528 + z * 0.047440493332433297707))));
  double angle = u + u * z * p;
  angle = upper ? angle + 0.5 * halfPi : angle;
  angle = a > b ? halfPi - angle : angle;
  angle = withSignOf(1.0, x) < 0.0 ? 2.0 * halfPi - angle : angle;
  angle = withSignOf(angle, y);
  angle = x == x ? angle : nan;
  return y == y ? angle : nan;
}

/// An angle beyond the fast reduction: the nearest multiple of half of pi (modulo 4) and the rest.
struct ReducedAngle {
  unsigned quarters;
  double rest;
};
ReducedAngle reduceLargeAngle(float x);
float sinOfLarge(float x);
float cosOfLarge(float x);
float tanOfLarge(float x);
/// Any power, such as those of negative numbers.
float powOfSpecial(float x, float y);

}  // namespace detail

/// Functions as objects: `fast` is the branch-free form, right for arguments that are `within` it;
/// the call itself takes any. A loop runs `fast` over a whole block and then mends the elements
/// that are not within. Angles are in radians.
struct Sin {
  static bool within(float x) { return std::fabs(x) <= 1e8f; }
  static float fast(float x) { return static_cast<float>(detail::sinInDouble(x)); }
  float operator()(float x) const { return within(x) ? fast(x) : detail::sinOfLarge(x); }
};
struct Cos {
  static bool within(float x) { return std::fabs(x) <= 1e8f; }
  static float fast(float x) { return static_cast<float>(detail::cosInDouble(x)); }
  float operator()(float x) const { return within(x) ? fast(x) : detail::cosOfLarge(x); }
};
struct Tan {
  static bool within(float x) { return std::fabs(x) <= 1e8f; }
  static float fast(float x) {
    return static_cast<float>(detail::sinInDouble(x) / detail::cosInDouble(x));
  }
  float operator()(float x) const { return within(x) ? fast(x) : detail::tanOfLarge(x); }
};

/// Powers; `fast` is for bases from 0 to the largest float and finite exponents.
struct Pow {
  static bool within(float x, float y) {
    return std::bit_cast<std::uint32_t>(x) < 0x7F800000u && std::fabs(y) <= 1e30f;
  }
  static float fast(float x, float y) {
    // A logarithm of 0 that every exponent but 0 carries out of range.
    const double power = x > 0.0f ? detail::log2InDouble(x) : -1e300;
    return static_cast<float>(detail::exp2InDouble(y * power));
  }
  float operator()(float x, float y) const {
    return within(x, y) ? fast(x, y) : detail::powOfSpecial(x, y);
  }
};

inline float sin(float x) {
  return Sin()(x);
}
inline float cos(float x) {
  return Cos()(x);
}
inline float tan(float x) {
  return Tan()(x);
}

inline float exp(float x) {
  return static_cast<float>(detail::exp2InDouble(x * 0x1.71547652b82fep+0));
}

/// The natural logarithm: minus infinity at 0, not a number below.
inline float log(float x) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const double wide = x;
  double result = detail::log2InDouble(wide) * 0x1.62e42fefa39efp-1;
  result = wide < infinity ? result : wide;  // infinity and not-a-number stay
  result = wide == 0.0 ? -infinity : result;
  return static_cast<float>(wide < 0.0 ? detail::nan : result);
}

inline float pow(float x, float y) {
  return Pow()(x, y);
}

/// The angle of the direction (x, y), -pi to pi; 0 without a direction.
inline float atan2(float y, float x) {
  return static_cast<float>(detail::atan2InDouble(y, x));
}
inline float atan(float x) {
  return static_cast<float>(detail::atan2InDouble(x, 1.0));
}
/// Not a number outside -1 to 1.
inline float asin(float x) {
  const double wide = x;
  return static_cast<float>(detail::atan2InDouble(wide, std::sqrt((1.0 - wide) * (1.0 + wide))));
}
inline float acos(float x) {
  const double wide = x;
  return static_cast<float>(detail::atan2InDouble(std::sqrt((1.0 - wide) * (1.0 + wide)), wide));
}

}  // namespace kestrane::math
