// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace kestrane {

/// The functions of the expression language; a function's number is its code in instructions.
enum class ExpressionFunction : std::uint8_t {
  sin,
  cos,
  tan,
  asin,
  acos,
  atan,
  abs,
  sqrt,
  floor,
  ceil,
  fract,
  exp,
  log,
  sign,
  pow,
  atan2,
  min,
  max,
  mod,
  step,
  rand,
  clamp,
  mix,
  smoothstep,
  noise,
  round,
  trunc,
  radians,
  degrees,
  gamma,
  bias,
  gain,
  lerp,
  linearstep,
  fit,
  remap,
  hash,
  pick,
  choose,
  cycle,
  dot,
  cross,
  length,
  normalize,
  distance,
  rotate,
  noiseAt,
  vnoise,
  fbm,
  vfbm,
  turbulence,
  cellnoise,
  voronoi,
  curve,
  linearcurve,
  spline,
  map,
  cmap,
};

enum class FunctionClass : std::uint8_t {
  math,    // numbers, or vectors taken per component
  random,  // numbers
  vector,  // as the pattern says
  noise,   // a point, then numbers
  curve,   // a number, then keys fixed at compile time
  map,     // a map's name
};

struct FunctionRow {
  ExpressionFunction code;
  std::string_view name;
  std::uint8_t least;  // arguments
  std::uint8_t most;
  FunctionClass kind;
  std::string_view pattern;  // a letter per leading argument: v vector, s number
  std::uint8_t width;        // floats of the result
};

inline constexpr std::size_t expressionFunctionCount = 58;
extern const std::array<FunctionRow, expressionFunctionCount> functionTable;

inline const FunctionRow& rowOf(ExpressionFunction function) {
  return functionTable[static_cast<std::size_t>(function)];
}

/// The first row of that name, or null. The row of `noise` at a point comes second.
const FunctionRow* findFunction(std::string_view name);

}  // namespace kestrane
