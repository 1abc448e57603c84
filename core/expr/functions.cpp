// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/functions.h"

namespace kestrane {

namespace {

using F = ExpressionFunction;
using C = FunctionClass;

constexpr std::array<FunctionRow, expressionFunctionCount> rows = {{
    {F::sin, "sin", 1, 1, C::math, "", 1},
    {F::cos, "cos", 1, 1, C::math, "", 1},
    {F::tan, "tan", 1, 1, C::math, "", 1},
    {F::asin, "asin", 1, 1, C::math, "", 1},
    {F::acos, "acos", 1, 1, C::math, "", 1},
    {F::atan, "atan", 1, 1, C::math, "", 1},
    {F::abs, "abs", 1, 1, C::math, "", 1},
    {F::sqrt, "sqrt", 1, 1, C::math, "", 1},
    {F::floor, "floor", 1, 1, C::math, "", 1},
    {F::ceil, "ceil", 1, 1, C::math, "", 1},
    {F::fract, "fract", 1, 1, C::math, "", 1},
    {F::exp, "exp", 1, 1, C::math, "", 1},
    {F::log, "log", 1, 1, C::math, "", 1},
    {F::sign, "sign", 1, 1, C::math, "", 1},
    {F::pow, "pow", 2, 2, C::math, "", 1},
    {F::atan2, "atan2", 2, 2, C::math, "", 1},
    {F::min, "min", 2, 2, C::math, "", 1},
    {F::max, "max", 2, 2, C::math, "", 1},
    {F::mod, "mod", 2, 2, C::math, "", 1},
    {F::step, "step", 2, 2, C::math, "", 1},
    {F::rand, "rand", 1, 1, C::random, "", 1},
    {F::clamp, "clamp", 3, 3, C::math, "", 1},
    {F::mix, "mix", 3, 3, C::math, "", 1},
    {F::smoothstep, "smoothstep", 3, 3, C::math, "", 1},
    {F::noise, "noise", 3, 3, C::noise, "", 1},
    {F::round, "round", 1, 1, C::math, "", 1},
    {F::trunc, "trunc", 1, 1, C::math, "", 1},
    {F::radians, "radians", 1, 1, C::math, "", 1},
    {F::degrees, "degrees", 1, 1, C::math, "", 1},
    {F::gamma, "gamma", 2, 2, C::math, "", 1},
    {F::bias, "bias", 2, 2, C::math, "", 1},
    {F::gain, "gain", 2, 2, C::math, "", 1},
    {F::lerp, "lerp", 3, 3, C::math, "", 1},
    {F::linearstep, "linearstep", 3, 3, C::math, "", 1},
    {F::fit, "fit", 5, 5, C::math, "", 1},
    {F::remap, "remap", 5, 5, C::math, "", 1},
    {F::hash, "hash", 1, 1, C::random, "", 1},
    {F::pick, "pick", 3, 64, C::random, "", 1},
    {F::choose, "choose", 2, 64, C::random, "", 1},
    {F::cycle, "cycle", 3, 3, C::random, "", 1},
    {F::dot, "dot", 2, 2, C::vector, "vv", 1},
    {F::cross, "cross", 2, 2, C::vector, "vv", 3},
    {F::length, "length", 1, 1, C::vector, "v", 1},
    {F::normalize, "normalize", 1, 1, C::vector, "v", 3},
    {F::distance, "distance", 2, 2, C::vector, "vv", 1},
    {F::rotate, "rotate", 3, 3, C::vector, "vvs", 3},
    {F::noiseAt, "noise", 1, 1, C::noise, "", 1},
    {F::vnoise, "vnoise", 1, 1, C::noise, "", 3},
    {F::fbm, "fbm", 1, 4, C::noise, "", 1},
    {F::vfbm, "vfbm", 1, 4, C::noise, "", 3},
    {F::turbulence, "turbulence", 1, 4, C::noise, "", 1},
    {F::cellnoise, "cellnoise", 1, 1, C::noise, "", 1},
    {F::voronoi, "voronoi", 1, 3, C::noise, "", 1},
    {F::curve, "curve", 3, 64, C::curve, "", 1},
    {F::linearcurve, "linearcurve", 3, 64, C::curve, "", 1},
    {F::spline, "spline", 2, 64, C::curve, "", 1},
    {F::map, "map", 1, 2, C::map, "", 1},
    {F::cmap, "cmap", 1, 1, C::map, "", 3},
}};

constexpr bool inOrder() {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (static_cast<std::size_t>(rows[i].code) != i) return false;
  }
  return true;
}
static_assert(inOrder());

}  // namespace

constexpr std::array<FunctionRow, expressionFunctionCount> functionTable = rows;

const FunctionRow* findFunction(std::string_view name) {
  for (const FunctionRow& row : functionTable) {
    if (row.name == name) return &row;
  }
  return nullptr;
}

}  // namespace kestrane
