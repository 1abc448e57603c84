// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cfloat>
#include <cmath>
#include <type_traits>

#include "core/base/math_functions.h"
#include "core/expr/functions.h"
#include "core/expr/instruction.h"

/// The arithmetic of expressions on numbers: each operator and function of numbers once, as a
/// function object that both the evaluation of one element and that of blocks apply. They are
/// written as selects, not branches, so that loops over them vectorise.
namespace kestrane::detail {

inline float finiteOrZero(float x) {
  return std::fabs(x) <= FLT_MAX ? x : 0.0f;
}

// From 2^23 on every float is whole, and a conversion to an integer may not fit. The sign is put
// back since a compiler may take an instruction that keeps it, and a zero's sign shows in atan2.
inline float truncated(float x) {
  const bool fractional = std::fabs(x) < 0x1p23f;
  const auto whole = static_cast<float>(static_cast<std::int32_t>(fractional ? x : 0.0f));
  return std::copysign(fractional ? whole : x, x);
}
inline float floored(float x) {
  const float whole = truncated(x);
  return whole > x ? whole - 1.0f : whole;
}
inline float raised(float x) {
  const float whole = truncated(x);
  return whole < x ? whole + 1.0f : whole;
}
/// Halves go away from zero.
inline float rounded(float x) {
  const float whole = truncated(x);
  const float up = x - whole >= 0.5f ? whole + 1.0f : whole;
  return whole - x >= 0.5f ? whole - 1.0f : up;
}

// Not-a-number comes through from either side.
inline float smaller(float a, float b) {
  const float least = a < b ? a : b;
  return a == a ? least : a;
}
inline float larger(float a, float b) {
  const float most = a > b ? a : b;
  return a == a ? most : a;
}
inline float clamped(float x, float a, float b) {
  return smaller(larger(x, smaller(a, b)), larger(a, b));
}
inline float divided(float a, float b) {
  return b == 0.0f ? 0.0f : a / b;
}
inline float biased(float x, float b) {
  const float power = math::pow(x, math::log(b) / -0.69314718f);
  const float inside = b >= 1.0f ? 1.0f : power;
  return x > 0.0f && b > 0.0f ? inside : 0.0f;
}
/// Where x lies between a and b, 0 to 1; a step where they are equal.
inline float shareBetween(float a, float b, float x) {
  const float share = clamped((x - a) / (b - a), 0.0f, 1.0f);
  const float edge = a > x ? 0.0f : 1.0f;
  return a == b ? edge : share;
}
inline float refitted(float x, float a, float b, float c, float d) {
  const float result = c + (x - a) / (b - a) * (d - c);
  return a == b ? c : result;
}

/// Calls visit with the object of a function of numbers (a row of class math).
template <class Visitor>
void visitMath(ExpressionFunction function, Visitor&& visit) {
  using F = ExpressionFunction;
  switch (function) {
    case F::sin:
      return visit(math::Sin());
    case F::cos:
      return visit(math::Cos());
    case F::tan:
      return visit(math::Tan());
    case F::asin:
      return visit([](float x) { return math::asin(clamped(x, -1.0f, 1.0f)); });
    case F::acos:
      return visit([](float x) { return math::acos(clamped(x, -1.0f, 1.0f)); });
    case F::atan:
      return visit([](float x) { return math::atan(x); });
    case F::abs:
      return visit([](float x) { return std::fabs(x); });
    case F::sqrt:
      return visit([](float x) { return std::sqrt(x < 0.0f ? 0.0f : x); });
    case F::floor:
      return visit([](float x) { return floored(x); });
    case F::ceil:
      return visit([](float x) { return raised(x); });
    case F::fract:
      return visit([](float x) { return x - floored(x); });
    case F::exp:
      return visit([](float x) { return math::exp(x); });
    case F::log:
      return visit([](float x) {
        const float result = math::log(x);
        return x <= 0.0f ? 0.0f : result;
      });
    case F::sign:
      return visit([](float x) {
        const float negative = x < 0.0f ? -1.0f : 0.0f;
        return x > 0.0f ? 1.0f : negative;
      });
    case F::pow:
      return visit(math::Pow());
    case F::atan2:
      return visit([](float y, float x) { return math::atan2(y, x); });
    case F::min:
      return visit([](float a, float b) { return smaller(a, b); });
    case F::max:
      return visit([](float a, float b) { return larger(a, b); });
    case F::mod:
      return visit([](float x, float y) {
        const float result = x - floored(x / y) * y;
        return y == 0.0f ? 0.0f : result;
      });
    case F::step:
      return visit([](float edge, float x) { return edge > x ? 0.0f : 1.0f; });
    case F::clamp:
      return visit([](float x, float a, float b) { return clamped(x, a, b); });
    case F::mix:
    case F::lerp:
      return visit([](float a, float b, float t) { return a + (b - a) * t; });
    case F::smoothstep:
      return visit([](float a, float b, float x) {
        const float t = shareBetween(a, b, x);
        return t * t * (3.0f - 2.0f * t);
      });
    case F::round:
      return visit([](float x) { return rounded(x); });
    case F::trunc:
      return visit([](float x) { return truncated(x); });
    case F::radians:
      return visit([](float x) { return x * 0.017453292f; });
    case F::degrees:
      return visit([](float x) { return x * 57.295776f; });
    case F::gamma:
      return visit([](float x, float g) {
        const float power = math::pow(x, 1.0f / g);
        return x > 0.0f && g > 0.0f ? power : 0.0f;
      });
    case F::bias:
      return visit([](float x, float b) { return biased(x, b); });
    case F::gain:
      return visit([](float x, float g) {
        const bool low = x < 0.5f;
        const float half = biased(low ? 2.0f * x : 2.0f - 2.0f * x, 1.0f - g) / 2.0f;
        return low ? half : 1.0f - half;
      });
    case F::linearstep:
      return visit([](float a, float b, float x) { return shareBetween(a, b, x); });
    case F::fit:
      return visit(
          [](float x, float a, float b, float c, float d) { return refitted(x, a, b, c, d); });
    case F::remap:
      return visit([](float x, float a, float b, float c, float d) {
        return clamped(refitted(x, a, b, c, d), c, d);
      });
    default:
      return;
  }
}

/// Calls visit with the object of an operator on two numbers.
template <class Visitor>
void visitBinary(BinaryOperator binary, Visitor&& visit) {
  using B = BinaryOperator;
  switch (binary) {
    case B::add:
      return visit([](float a, float b) { return a + b; });
    case B::subtract:
      return visit([](float a, float b) { return a - b; });
    case B::multiply:
      return visit([](float a, float b) { return a * b; });
    case B::divide:
      return visit([](float a, float b) { return divided(a, b); });
    case B::power:
      return visit(math::Pow());
    case B::less:
      return visit([](float a, float b) { return a < b ? 1.0f : 0.0f; });
    case B::lessOrEqual:
      return visit([](float a, float b) { return a <= b ? 1.0f : 0.0f; });
    case B::greater:
      return visit([](float a, float b) { return a > b ? 1.0f : 0.0f; });
    case B::greaterOrEqual:
      return visit([](float a, float b) { return a >= b ? 1.0f : 0.0f; });
    case B::equal:
      return visit([](float a, float b) { return a == b ? 1.0f : 0.0f; });
    case B::notEqual:
      return visit([](float a, float b) { return a != b ? 1.0f : 0.0f; });
  }
}

/// How many numbers a function object takes.
template <class Function>
constexpr int arityOf() {
  if constexpr (std::is_invocable_v<Function, float>) return 1;
  if constexpr (std::is_invocable_v<Function, float, float>) return 2;
  if constexpr (std::is_invocable_v<Function, float, float, float>) return 3;
  return 5;
}

}  // namespace kestrane::detail
