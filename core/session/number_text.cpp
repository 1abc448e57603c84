// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/number_text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/base/parallel.h"
#include "core/base/text.h"

namespace kestrane {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
bool isDigit(char c) {
  return static_cast<unsigned char>(c - '0') < 10;
}
const char* skipBlanks(const char* at, const char* end) {
  while (at != end && isBlank(*at)) ++at;
  return at;
}
const char* skipDigits(const char* at, const char* end) {
  while (at != end && isDigit(*at)) ++at;
  return at;
}

/// The value of a JSON number that begins at `at`, with `at` moved behind it; false for anything
/// else.
bool readNumber(const char*& at, const char* end, float& value) {
  if (end - at >= 4 && std::memcmp(at, "null", 4) == 0) {
    at += 4;
    value = 0.0f;
    return true;
  }
  const char* const first = at;
  const bool negative = at != end && *at == '-';
  if (negative) ++at;

  std::uint64_t digits = 0;  // of the number without its point; wraps after 19 of them
  const char* const whole = at;
  for (; at != end && isDigit(*at); ++at) digits = digits * 10 + (*at - '0');
  std::ptrdiff_t digitCount = at - whole;
  if (digitCount == 0 || (digitCount > 1 && *whole == '0')) return false;
  bool isInteger = true;
  std::ptrdiff_t exponent = 0;
  if (at != end && *at == '.') {
    isInteger = false;
    const char* const fraction = ++at;
    for (; at != end && isDigit(*at); ++at) digits = digits * 10 + (*at - '0');
    exponent = fraction - at;
    if (exponent == 0) return false;
    digitCount -= exponent;
  }
  if (at != end && (*at == 'e' || *at == 'E')) {
    isInteger = false;
    ++at;
    const bool down = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) ++at;
    const char* const power = at;
    at = skipDigits(at, end);
    if (at == power) return false;
    // Four digits say enough: everything beyond is left to the library.
    std::ptrdiff_t shift = 0;
    for (const char* c = power; c != at && shift < 10000; ++c) shift = shift * 10 + (*c - '0');
    exponent += down ? -shift : shift;
  }

  static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (digits == 0 && digitCount <= 19) {
    value = negative && !isInteger ? -0.0f : 0.0f;
    return true;
  }
  // With digits and power both exact as doubles, the quotient or product is the correctly rounded
  // double (Clinger 1990). It rounds on to the right float unless it lies halfway between two.
  if (digitCount <= 19 && digits < (std::uint64_t(1) << 53) && exponent >= -22 && exponent <= 22) {
    const double exact = static_cast<double>(digits);
    const double number = exponent < 0 ? exact / powers[-exponent] : exact * powers[exponent];
    const bool halfway = (std::bit_cast<std::uint64_t>(number) & 0x1FFFFFFF) == 0x10000000;
    if (!halfway && number > 1e-37) {
      value = static_cast<float>(negative ? -number : number);
      return true;
    }
  }
  const auto result = std::from_chars(first, at, value);
  if (result.ptr != at) return false;
  if (result.ec == std::errc::result_out_of_range) {
    // The library says the same of numbers too large and too small; the small ones are 0.
    if (exponent + digitCount > 0) return false;
    value = negative ? -0.0f : 0.0f;
    return true;
  }
  return result.ec == std::errc();
}

bool readNumber(const char*& at, const char* end, std::int32_t& value) {
  const char* const digits = at != end && *at == '-' ? at + 1 : at;
  if (end - digits > 1 && *digits == '0' && isDigit(digits[1])) return false;
  const auto result = std::from_chars(at, end, value);
  at = result.ptr;
  return result.ec == std::errc();
}

/// Reads exactly `count` numbers, each of them followed by a comma or, the last, by the end.
template <class Number>
bool readRun(std::string_view text, std::size_t count, Number* values) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t i = 0; i < count; ++i) {
    at = skipBlanks(at, end);
    if (!readNumber(at, end, values[i])) return false;
    at = skipBlanks(at, end);
    if (i + 1 < count && (at == end || *at++ != ',')) return false;
  }
  return at == end;
}

template <class Number>
bool readArray(std::string_view inside, const std::function<Number*(std::size_t)>& room) {
  constexpr std::size_t runBytes = 1 << 17;
  const char* const end = inside.data() + inside.size();
  if (skipBlanks(inside.data(), end) == end) return room(0), true;
  if (inside.size() < runBytes) {
    const std::size_t count = std::count(inside.begin(), inside.end(), ',') + 1;
    Number* const values = room(count);
    return values != nullptr && readRun(inside, count, values);
  }
  // Runs that begin and end at a comma, each read into the place that the counts before it give.
  struct Run {
    std::string_view text;
    std::size_t count = 0;
    std::size_t first = 0;
    bool good = false;
  };
  std::vector<Run> runs;
  for (std::size_t begin = 0; begin <= inside.size();) {
    const std::size_t comma = inside.find(',', std::min(begin + runBytes, inside.size()));
    runs.push_back({.text = inside.substr(begin, std::min(comma, inside.size()) - begin)});
    begin = std::min(comma, inside.size()) + 1;
  }
  parallelRange(0, runs.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      runs[i].count = std::count(runs[i].text.begin(), runs[i].text.end(), ',') + 1;
    }
  });
  std::size_t total = 0;
  for (Run& run : runs) {
    run.first = total;
    total += run.count;
  }
  Number* const values = room(total);
  if (values == nullptr) return false;
  parallelRange(0, runs.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      runs[i].good = readRun(runs[i].text, runs[i].count, values + runs[i].first);
    }
  });
  return std::all_of(runs.begin(), runs.end(), [](const Run& run) { return run.good; });
}

}  // namespace

char* writeNumbers(std::span<const float> values, bool continued, char* out) {
  for (const float value : values) {
    if (continued) *out++ = ',';
    continued = true;
    char* const first = out;
    out = writeNumber(out, value);
    // Above 2^24 every float is whole.
    const bool whole = std::abs(value) >= 16777216.0f ||
                       value == static_cast<float>(static_cast<std::int32_t>(value));
    if (whole && std::find(first, out, 'e') == out) {
      *out++ = '.';
      *out++ = '0';
    }
  }
  return out;
}

char* writeNumbers(std::span<const std::int32_t> values, bool continued, char* out) {
  for (const std::int32_t value : values) {
    if (continued) *out++ = ',';
    continued = true;
    out = std::to_chars(out, out + longestListed, value).ptr;
  }
  return out;
}

std::size_t firstNonFinite(std::span<const float> values) {
  constexpr std::size_t block = 4096;
  for (std::size_t begin = 0; begin < values.size(); begin += block) {
    const std::size_t end = std::min(begin + block, values.size());
    // All exponent bits set; without a branch, so that it runs at the speed of memory.
    std::uint32_t found = 0;
    for (std::size_t i = begin; i < end; ++i) {
      found |= (std::bit_cast<std::uint32_t>(values[i]) & 0x7F800000u) == 0x7F800000u;
    }
    if (found == 0) continue;
    return std::find_if(values.begin() + begin, values.begin() + end,
                        [](float value) { return !std::isfinite(value); }) -
           values.begin();
  }
  return values.size();
}

bool readNumbers(std::string_view inside, const std::function<float*(std::size_t)>& room) {
  return readArray(inside, room);
}
bool readNumbers(std::string_view inside, const std::function<std::int32_t*(std::size_t)>& room) {
  return readArray(inside, room);
}

}  // namespace kestrane
