// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>

#include "core/graph/operator.h"

namespace kestrane {

/// How much of a node's result its common parameter `affect` lets through.
enum class Affect { whole, nothing, mixed };

/// Reads the parameter of a node that has it: numbers tell by themselves, anything else mixes.
Affect readAffect(const Operator& op);

/// The output of a node mixed with its first input, by the node's parameter `affect` at each strand
/// or point. Positions, widths and channels go from the input's value to the output's; channels of
/// IDs switch at one half. An output of another layout is returned as it is, with a warning.
GraphValue mixAffect(const Operator& op, const EvalContext& context,
                     std::span<const GraphValue> inputs, const GraphValue& output);

}  // namespace kestrane
