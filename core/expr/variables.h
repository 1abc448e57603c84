// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// One of a node's own variables, which its expression reads as $name and, of a vector, $name.x.
/// Its value is fixed when the expression compiles.
struct ExpressionVariable {
  std::string name;
  bool isVector = false;
  Vec3f value;          // a number stands in x
  std::string control;  // the host's control that sets it; empty for none
  std::string unit;     // length, width, density or perLength where it measures something
};

using ExpressionVariables = std::vector<ExpressionVariable>;

/// Reads variables from a JSON object such as {"amount": 0.5, "center": [0, 1, 0], "sway":
/// {"value": 0.5, "control": "wind"}, "gap": {"value": 2, "unit": "length"}}, in the order written.
/// An empty text has none. Throws ExpressionError with a sentence that names the variable.
ExpressionVariables parseExpressionVariables(std::string_view json);

}  // namespace kestrane
