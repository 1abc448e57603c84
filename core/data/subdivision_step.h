// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/data/subdivision.h"
#include "core/data/subdivision_rules.h"

namespace kestrane::detail {

/// A step as weights of the coarse points alone: its own point first, then each in the order of
/// first mention.
SubdivisionStep weightsOf(const SubdivisionRules& rules);

}  // namespace kestrane::detail
