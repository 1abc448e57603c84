// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/frame_range.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <vector>

namespace kestrane {

std::optional<FrameRange> parseFrameRange(const std::string& text) {
  std::vector<double> numbers;
  const char* at = text.data();
  const char* const end = at + text.size();
  for (;;) {
    double number = 0.0;
    const auto [stop, error] = std::from_chars(at, end, number);
    if (error != std::errc() || !std::isfinite(number)) return std::nullopt;
    numbers.push_back(number);
    if (stop == end) break;
    if (*stop != ':') return std::nullopt;
    at = stop + 1;
  }
  if (numbers.size() < 2 || numbers.size() > 3) return std::nullopt;
  FrameRange range{numbers[0], numbers.size() == 3 ? numbers[2] : 1.0, 0};
  const double steps = (numbers[1] - range.first) / range.step;
  constexpr double most = 1e6;
  if (!(range.step > 0.0) || !(steps >= 0.0) || !(steps < most)) return std::nullopt;
  // Far from 0 numbers lie too far apart for small steps.
  const double farthest = std::max(std::abs(range.first), std::abs(numbers[1]));
  if (steps > 0.0 && range.step < 4.0 * DBL_EPSILON * farthest) return std::nullopt;
  // A step such as 0.1 does not add up to whole numbers exactly.
  range.count = static_cast<std::size_t>(std::floor(steps + 1e-6)) + 1;
  return range;
}

}  // namespace kestrane
