// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/random_rules.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>

#include "core/base/hash.h"

namespace kestrane::detail {

namespace {

/// The bits that stand for a number: one pattern for both zeros and one for every not-a-number,
/// whose bits differ between machines.
std::uint64_t keyOf(float x) {
  if (x != x) return 0x7FC00000u;
  return std::bit_cast<std::uint32_t>(x == 0.0f ? 0.0f : x);
}

/// As a whole number, within a range that sums and differences of two keep to; 0 for no number.
double bounded(float x) {
  return x == x ? std::clamp(static_cast<double>(x), -1e9, 1e9) : 0.0;
}

struct WholeRange {
  std::int64_t lo, hi;

  WholeRange(float a, float b) : lo(std::llround(bounded(a))), hi(std::llround(bounded(b))) {
    if (lo > hi) std::swap(lo, hi);
  }
  std::int64_t count() const { return hi - lo + 1; }
};

double positive(float weight) {
  return weight > 0.0f ? static_cast<double>(std::min(weight, FLT_MAX)) : 0.0;
}

}  // namespace

float randomOf(float x, std::uint64_t seed) {
  return unitFloat(hashCombine(mix64(seed), keyOf(x)));
}

float hashOf(float x) {
  return unitFloat(hashCombine(0xEE83BFC8A6DE0083u, keyOf(x)));
}

float pickOf(float x, float lo, float hi, const float* weights, int weightCount) {
  const WholeRange range(lo, hi);
  const double r = unitFloat(hashCombine(0x98034C1D6DB70AD7u, keyOf(x)));
  const auto evenly = [&](double share, std::int64_t count) {
    const auto step = static_cast<std::int64_t>(std::floor(share));
    return std::clamp<std::int64_t>(step, 0, count - 1);
  };
  if (weightCount == 0) {
    return static_cast<float>(range.lo +
                              evenly(static_cast<double>(range.count()) * r, range.count()));
  }
  const std::int64_t listed = std::min<std::int64_t>(weightCount, range.count());
  const std::int64_t unlisted = range.count() - listed;
  double total = static_cast<double>(unlisted);
  for (std::int64_t i = 0; i < listed; ++i) total += positive(weights[i]);
  if (!(total > 0.0)) return static_cast<float>(range.lo);
  double left = r * total;
  std::int64_t last = 0;  // of those with a weight
  for (std::int64_t i = 0; i < listed; ++i) {
    const double weight = positive(weights[i]);
    if (weight > left) return static_cast<float>(range.lo + i);
    left -= weight;
    if (weight > 0.0) last = i;
  }
  // Past the list every step weighs 1, so that the walk needs no steps.
  if (unlisted > 0) return static_cast<float>(range.lo + listed + evenly(left, unlisted));
  return static_cast<float>(range.lo + last);
}

float chooseOf(float x, const float* options, int optionCount) {
  if (x >= 1.0f) return options[optionCount - 1];
  if (!(x > 0.0f)) return options[0];
  const auto step = static_cast<int>(static_cast<float>(optionCount) * x);
  return options[std::min(step, optionCount - 1)];
}

float cycleOf(float x, float lo, float hi) {
  const WholeRange range(lo, hi);
  const auto step = static_cast<std::int64_t>(std::floor(bounded(x))) - range.lo;
  const std::int64_t turned = step % range.count();
  return static_cast<float>(range.lo + (turned < 0 ? turned + range.count() : turned));
}

}  // namespace kestrane::detail
