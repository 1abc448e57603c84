// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Floats as decimal text.

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/base/text.h"

namespace kestrane {

namespace {

// A float is mantissa * 2^-binary with a mantissa of 24 bits. Those handled here have a `binary` of
// 0 to 52, which makes them 2^-29 (2e-9) up to 2^24; whatever is larger or smaller is left to the
// standard library. In this range, all products below are exact in 64 bits, so that the method of
// Giulietti ("The Schubfach way to render doubles", 2020) needs no tables of rounded powers.
constexpr int largestBinary = 52;
constexpr std::uint64_t smallestMantissa = std::uint64_t{1} << 23;

/// How the numbers of one exponent are scaled: by 10^decimals they become whole numbers with just
/// enough digits to tell neighbours apart, plus `shift` bits of fraction.
struct Scale {
  std::uint64_t factor = 0;  // 5^decimals
  int decimals = 0;
  int shift = 0;
};

constexpr std::uint64_t powerOf(std::uint64_t base, int exponent) {
  std::uint64_t power = 1;
  for (int i = 0; i < exponent; ++i) power *= base;
  return power;
}

/// The scale at which 10^-decimals is the greatest power of ten within `quarters` / 4 of 2^-binary:
/// the distance between the halfway points to the neighbours. 10^decimals / 2^decimals is
/// 5^decimals, which keeps the comparison in 64 bits.
constexpr Scale scaleOf(int binary, std::uint64_t quarters) {
  int decimals = 0;
  while ((quarters * powerOf(5, decimals)) < (std::uint64_t{4} << (binary - decimals))) ++decimals;
  return {powerOf(5, decimals), decimals, binary - decimals + 2};
}

constexpr auto makeScales(std::uint64_t quarters) {
  std::array<Scale, largestBinary + 1> scales{};
  for (int binary = 1; binary <= largestBinary; ++binary) {
    scales[static_cast<std::size_t>(binary)] = scaleOf(binary, quarters);
  }
  return scales;
}

constexpr auto scales = makeScales(4);
/// Below a power of two, the neighbours lie half as far apart.
constexpr auto scalesOfPowers = makeScales(3);

constexpr std::uint32_t powersOfTen[] = {1,      10,      100,      1000,      10000,
                                         100000, 1000000, 10000000, 100000000, 1000000000};

int digitCount(std::uint32_t value) {
  const int almost = std::bit_width(value | 1u) * 1233 >> 12;  // log10(2) is 0.30103
  return almost + (value >= powersOfTen[almost] ? 1 : 0);
}

/// Stores bytes, the lowest first.
void store(char* out, std::uint64_t bytes) {
  if constexpr (std::endian::native == std::endian::big) bytes = __builtin_bswap64(bytes);
  std::memcpy(out, &bytes, 8);
}

/// The digits of a number of at most nine as characters, the first digit first, zeros behind them.
/// They stay in registers, since a digit that has just been stored is slow to load as part of more.
struct Digits {
  char first = '0';
  std::uint64_t rest = 0;  // eight, the lowest byte first
  int count = 0;

  explicit Digits(std::uint32_t value) : count(digitCount(value)) {
    value *= powersOfTen[9 - count];
    first = static_cast<char>('0' + value / 100000000);
    value %= 100000000;
    // Halves of four digits, then of two, then of one, each time in all lanes at once.
    const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
    const std::uint64_t hundreds = fours * 10486 >> 20 & 0x7f0000007f;
    const std::uint64_t twos = hundreds | (fours - 100 * hundreds) << 16;
    const std::uint64_t tens = twos * 103 >> 10 & 0x0f000f000f000f;
    rest = (tens | (twos - 10 * tens) << 8) | 0x3030303030303030;
  }

  /// All nine; writes one character or so more.
  void write(char* out) const {
    *out = first;
    store(out + 1, rest);
  }
};

struct Decimal {
  std::uint32_t digits = 0;  // no zeros at the end
  int decimals = 0;
};

/// The shortest decimal of mantissa / 2^binary; above 0, not whole.
Decimal shortest(std::uint64_t mantissa, int binary) {
  const bool power = mantissa == smallestMantissa;
  const Scale& scale = (power ? scalesOfPowers : scales)[static_cast<std::size_t>(binary)];
  // Four times the number, so that the halfway points are whole too. Those round to the number
  // itself if its mantissa is even.
  const std::uint64_t closed = (mantissa & 1) ^ 1;
  const std::uint64_t exact = 4 * mantissa * scale.factor;
  const std::uint64_t least = exact - (power ? 1 : 2) * scale.factor + 1 - closed;
  const std::uint64_t most = exact + 2 * scale.factor - 1 + closed;
  const std::uint64_t floor = exact >> scale.shift;
  const std::uint64_t tens = floor / 10;
  // Which case it is follows no pattern, so there is no branch on it. At most one multiple of ten
  // lies between the halfway points; without one, the nearer of the two numbers around does.
  const bool tensFit = (10 * tens) << scale.shift >= least;
  const bool nextTensFit = (10 * tens + 10) << scale.shift <= most;
  const bool multiple = tensFit | nextTensFit;
  const bool floorFits = floor << scale.shift >= least;
  const bool nextFits = (floor + 1) << scale.shift <= most;
  const std::uint64_t half = (2 * floor + 1) << (scale.shift - 1);
  const bool nearer = exact + (floor & 1) > half;
  const bool up = floorFits == nextFits ? nearer : nextFits;
  Decimal result;
  result.digits = static_cast<std::uint32_t>(multiple ? tens + !tensFit : floor + up);
  result.decimals = scale.decimals - multiple;
  while (result.digits % 10 == 0) {
    result.digits /= 10;
    --result.decimals;
  }
  return result;
}

/// Writes up to 8 characters more than it returns the end of.
char* writeDecimal(char* out, Decimal number) {
  const Digits digits(number.digits);
  const int count = digits.count;
  const int whole = count - number.decimals;  // digits before the point
  if (whole > 0) {
    digits.write(out);
    out[whole] = '.';
    store(out + whole + 1, digits.rest >> (8 * (whole - 1)));
    return out + count + 1;
  }
  // Zeros behind the point, as long as the form with an exponent is not shorter.
  if (whole >= (count == 1 ? -2 : -3)) {
    std::memcpy(out, "0.0000", 6);
    digits.write(out + 2 - whole);
    return out + 2 - whole + count;
  }
  *out = digits.first;
  out[1] = '.';
  store(out + 2, digits.rest);
  out += count == 1 ? 1 : count + 1;
  const int exponent = 1 - whole;
  const char text[] = {'e', '-', static_cast<char>('0' + exponent / 10),
                       static_cast<char>('0' + exponent % 10)};
  std::memcpy(out, text, 4);
  return out + 4;
}

}  // namespace

// What is written is what std::to_chars writes, but for two numbers of no ordinary size.
// Not-a-number loses its sign. And readers take numbers as doubles and round them to floats, which
// is as good as reading the float itself for every float but one: its shortest text, 7.038531e-26,
// lies so close to the middle between two floats that the double is that middle. One digit more
// keeps it.
char* writeNumber(char* out, float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  const int binary = 150 - static_cast<int>(bits >> 23 & 0xff);
  if (binary < 0 || binary > largestBinary) {
    if (std::isnan(value)) value = std::abs(value);
    if ((bits & 0x7FFFFFFFu) == 0x15AE43FDu) {
      return std::to_chars(out, out + longestNumber, value, std::chars_format::scientific, 7).ptr;
    }
    return std::to_chars(out, out + longestNumber, value).ptr;
  }
  *out = '-';
  out += bits >> 31;
  const std::uint64_t mantissa = (bits & (smallestMantissa - 1)) | smallestMantissa;
  const std::uint64_t fraction = mantissa & ((std::uint64_t{1} << binary) - 1);
  if (fraction != 0) return writeDecimal(out, shortest(mantissa, binary));
  const auto whole = static_cast<std::uint32_t>(mantissa >> binary);
  if (whole % 100000 == 0) return std::to_chars(out, out + longestNumber, std::abs(value)).ptr;
  const Digits digits(whole);
  digits.write(out);
  return out + digits.count;
}

}  // namespace kestrane
