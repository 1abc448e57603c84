// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/expr/expression.h"

namespace kestrane::detail {

/// The floats of stack that most programs do with, and the most that any may take: a compile
/// refuses what needs more.
inline constexpr std::size_t usualStack = 128;
inline constexpr std::size_t deepestStack = 1024;

/// What functions read beside their arguments.
struct CallContext {
  std::uint64_t seed = 0;
  const MapSample* location = nullptr;
};

/// Runs any function but those of numbers (class math) on an instruction's b arguments, and writes
/// as many floats as its row is wide. Results are finite. The arguments may lie where the result
/// goes.
void callFunction(const Instruction& call, const ExpressionTables& tables,
                  const CallContext& context, const float* arguments, float* result);

/// Runs a program on a stack that is deep enough for it; the value is left at its bottom.
void runProgram(std::span<const Instruction> program, const ExpressionTables& tables,
                const ExpressionRecord& record, float* stack);

}  // namespace kestrane::detail
