// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <string>

#include "core/graph/operator.h"

namespace kestrane {

/// Compares what an operator made incrementally with a full evaluation by a fresh operator of its
/// type, and its change records with what really differs from the previous outputs. Throws
/// GraphError with the first fault found, under the node's name.
void checkIncremental(const Operator& op, const std::string& nodeName, const EvalContext& context,
                      std::span<const GraphValue> inputs, std::span<const GraphValue> previous,
                      std::span<const GraphValue> results,
                      std::span<const StrandChangesPtr> changes);

}  // namespace kestrane
