// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace kestrane {

/// What one instruction of a compiled expression does to the stack of floats. A vector is three
/// floats on it. The numbers are fixed: other machines run the same programs.
enum class ExpressionOp : std::uint8_t {
  pushConstant,      // pushes value
  pushVariable,      // a: slot of the record
  pushChannel,       // index: entry of the channel table
  negate,            // flips the sign of the top
  binary,            // a: BinaryOperator; pops two, pushes one
  call,              // a: function, b: floats popped, index: curve or map; pushes the result
  select,            // condition, then, else: leaves then where the condition is not 0
  negateVector,      //
  binaryVector,      // a: BinaryOperator; b: bit 0 the left is a vector, bit 1 the right
  selectVector,      // condition, then-vector, else-vector
  callPerComponent,  // a: function of numbers, b: floats popped; all arguments are vectors
  component,         // a: 0 to 2; replaces a vector by that component
  splat,             // makes the top a vector of three equal floats
};

enum class BinaryOperator : std::uint8_t {
  add,
  subtract,
  multiply,
  divide,  // by 0 gives 0
  power,
  less,
  lessOrEqual,
  greater,
  greaterOrEqual,
  equal,
  notEqual,
};

struct Instruction {
  ExpressionOp op = ExpressionOp::pushConstant;
  std::uint8_t a = 0;
  std::uint8_t b = 0;
  std::uint8_t spare = 0;
  std::uint32_t index = 0;
  float value = 0.0f;
};
static_assert(sizeof(Instruction) == 12 && std::is_trivially_copyable_v<Instruction>);

/// The variables that every expression can read, in the order of the record's slots.
enum class ExpressionSlot : std::uint8_t {
  u,
  v,
  x,
  y,
  z,
  nx,
  ny,
  nz,
  rand,
  index,
  length,
  longest,
  reach,
  straightness,
  lift,
  tipx,
  tipy,
  tipz,
  t,
  pt,
  px,
  py,
  pz,
  pointIndex,
  frame,
  time,
};

inline constexpr std::size_t expressionSlotCount = 26;

/// Whether it differs between the points of a strand.
constexpr bool isPointSlot(ExpressionSlot slot) {
  return slot >= ExpressionSlot::t && slot <= ExpressionSlot::pointIndex;
}

inline constexpr std::array<std::string_view, expressionSlotCount> expressionSlotNames = {
    "u",    "v",    "x",          "y",      "z",       "nx",    "ny",
    "nz",   "rand", "index",      "length", "longest", "reach", "straightness",
    "lift", "tipx", "tipy",       "tipz",   "t",       "pt",    "px",
    "py",   "pz",   "pointIndex", "frame",  "time"};

}  // namespace kestrane
