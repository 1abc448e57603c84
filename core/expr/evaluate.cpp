// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/evaluate.h"

#include "core/expr/math_rules.h"

namespace kestrane {

namespace detail {

namespace {

float channelValue(const ExpressionRecord& record, std::uint32_t entry) {
  if (entry >= record.channels.size()) return 0.0f;
  const ExpressionChannel& channel = record.channels[entry];
  const std::size_t index = channel.perPoint ? record.point : record.strand;
  return index < channel.values.size() ? channel.values[index] : 0.0f;
}

/// A function object on the arguments that lie `stride` floats apart.
template <class Function>
float applyTo(Function function, const float* a, std::size_t stride) {
  constexpr int arity = arityOf<Function>();
  if constexpr (arity == 1) return function(a[0]);
  if constexpr (arity == 2) return function(a[0], a[stride]);
  if constexpr (arity == 3) return function(a[0], a[stride], a[2 * stride]);
  if constexpr (arity == 5) {
    return function(a[0], a[stride], a[2 * stride], a[3 * stride], a[4 * stride]);
  }
}

float applyBinary(std::uint8_t code, float a, float b) {
  float result = 0.0f;
  visitBinary(static_cast<BinaryOperator>(code), [&](auto binary) { result = binary(a, b); });
  return result;
}

/// Replaces the operands at the stack's top, of which either may be a number, by a vector.
float* applyBinaryVector(const Instruction& instruction, float* top) {
  const bool leftVector = (instruction.b & 1) != 0, rightVector = (instruction.b & 2) != 0;
  const float* right = top - (rightVector ? 3 : 1);
  float* left = top - (rightVector ? 3 : 1) - (leftVector ? 3 : 1);
  float result[3];
  for (int i = 0; i < 3; ++i) {
    result[i] = applyBinary(instruction.a, left[leftVector ? i : 0], right[rightVector ? i : 0]);
  }
  for (int i = 0; i < 3; ++i) left[i] = result[i];
  return left + 3;
}

}  // namespace

void runProgram(std::span<const Instruction> program, const ExpressionTables& tables,
                const ExpressionRecord& record, float* stack) {
  using Op = ExpressionOp;
  float* top = stack;  // one past the last float
  for (const Instruction& instruction : program) {
    switch (instruction.op) {
      case Op::pushConstant:
        *top++ = instruction.value;
        break;
      case Op::pushVariable:
        *top++ = record.slots[instruction.a];
        break;
      case Op::pushChannel:
        *top++ = channelValue(record, instruction.index);
        break;
      case Op::negate:
        top[-1] = -top[-1];
        break;
      case Op::binary:
        --top;
        top[-1] = applyBinary(instruction.a, top[-1], top[0]);
        break;
      case Op::call: {
        const auto function = static_cast<ExpressionFunction>(instruction.a);
        top -= instruction.b;
        if (rowOf(function).kind == FunctionClass::math) {
          visitMath(function, [&](auto rule) { *top = finiteOrZero(applyTo(rule, top, 1)); });
          ++top;
        } else {
          callFunction(instruction, tables, {record.seed, record.location}, top, top);
          top += rowOf(function).width;
        }
        break;
      }
      case Op::select:
        top -= 2;
        top[-1] = top[-1] != 0.0f ? top[0] : top[1];
        break;
      case Op::negateVector:
        for (int i = 1; i <= 3; ++i) top[-i] = -top[-i];
        break;
      case Op::binaryVector:
        top = applyBinaryVector(instruction, top);
        break;
      case Op::selectVector: {
        top -= 4;
        const float* chosen = top[-3] != 0.0f ? top - 2 : top + 1;
        for (int i = 0; i < 3; ++i) top[i - 3] = chosen[i];
        break;
      }
      case Op::callPerComponent:
        top -= instruction.b;
        visitMath(static_cast<ExpressionFunction>(instruction.a), [&](auto rule) {
          for (int i = 0; i < 3; ++i) top[i] = finiteOrZero(applyTo(rule, top + i, 3));
        });
        top += 3;
        break;
      case Op::component:
        top -= 2;
        top[-1] = top[instruction.a - 1];
        break;
      case Op::splat:
        top[0] = top[1] = top[-1];
        top += 2;
        break;
    }
  }
}

namespace {

/// Runs on a stack of the size that the program calls for, and hands the value's floats over.
template <class Take>
void runOnStack(const Expression& expression, const ExpressionRecord& record, Take&& take) {
  if (expression.stackDepth() <= usualStack) {
    float stack[usualStack];
    runProgram(expression.instructions(), expression.tables(), record, stack);
    take(stack);
  } else {
    float stack[deepestStack];
    runProgram(expression.instructions(), expression.tables(), record, stack);
    take(stack);
  }
}

}  // namespace

}  // namespace detail

float Expression::evaluate(const ExpressionRecord& record) const {
  float result = 0.0f;
  detail::runOnStack(*this, record,
                     [&](const float* stack) { result = detail::finiteOrZero(stack[0]); });
  return result;
}

Vec3f Expression::evaluateVector(const ExpressionRecord& record) const {
  Vec3f result;
  detail::runOnStack(*this, record, [&](const float* stack) {
    const int step = type_ == ExpressionType::vector ? 1 : 0;
    for (int i = 0; i < 3; ++i) result[i] = detail::finiteOrZero(stack[i * step]);
  });
  return result;
}

}  // namespace kestrane
