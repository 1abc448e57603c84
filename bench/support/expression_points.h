// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cmath>
#include <vector>

#include "core/expr/expression.h"

namespace kestrane {

inline constexpr const char* benchFormula = "clamp(sin(x*6.28)*0.5+0.5,0,1)*mix(u,v,t)+pow(t,1.5)";
/// The points of 10k strands.
inline constexpr std::int64_t benchFormulaPoints = 10'000 * 17;

/// Points of strands: x and t vary per point, u and v per strand.
struct ExpressionPoints {
  std::vector<float> u, v, x, t;

  explicit ExpressionPoints(std::size_t count) : u(count), v(count), x(count), t(count) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto strand = static_cast<float>(i / 17);
      t[i] = static_cast<float>(i % 17) / 16.0f;
      u[i] = strand * 0.37f - static_cast<float>(static_cast<int>(strand * 0.37f));
      v[i] = 1.0f - u[i];
      x[i] = strand * 0.013f + t[i];
    }
  }
  std::size_t size() const { return u.size(); }
  ExpressionBlock block() const {
    ExpressionBlock block;
    block.count = u.size();
    block[ExpressionSlot::u] = u.data();
    block[ExpressionSlot::v] = v.data();
    block[ExpressionSlot::x] = x.data();
    block[ExpressionSlot::t] = t.data();
    return block;
  }
  ExpressionRecord record(std::size_t i) const {
    ExpressionRecord record;
    record[ExpressionSlot::u] = u[i];
    record[ExpressionSlot::v] = v[i];
    record[ExpressionSlot::x] = x[i];
    record[ExpressionSlot::t] = t[i];
    return record;
  }
};

/// Whether somebody else's values of the formula are ours, to a relative 1e-4.
template <class Value>
bool sameFormulaValues(const ExpressionPoints& points, const std::vector<Value>& values) {
  const Expression expression = Expression::compile(benchFormula);
  for (std::size_t i = 0; i < points.size(); i += 97) {
    const float ours = expression.evaluate(points.record(i));
    // Written so that a value that is no number counts as another.
    if (!(std::abs(static_cast<float>(values[i]) - ours) <= 1e-4f * (1.0f + std::abs(ours)))) {
      return false;
    }
  }
  return true;
}

}  // namespace kestrane
