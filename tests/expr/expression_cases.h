// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "core/expr/expression.h"

namespace kestrane {

/// A map that tells which component it was asked for, and where.
class ComponentMap : public ExpressionMap {
 public:
  float sample(const MapSample& sample, MapComponent component) const override {
    return static_cast<float>(component) + 1.0f + 10.0f * sample.uv.x;
  }
};

/// A program of 62 floats of stack a level: a choice holds its options while it works out the last.
/// At 16 levels it is nearly the deepest that there may be.
inline std::string nestedChoices(int levels) {
  std::string text = "t";
  for (int i = 0; i < levels; ++i) {
    std::string choice = "choose(fract(x), ";
    for (int option = 0; option < 61; ++option) choice += option % 3 == 0 ? "y + z, " : "u, ";
    text = choice + text + " * 0.5)";
  }
  return text;
}

}  // namespace kestrane
