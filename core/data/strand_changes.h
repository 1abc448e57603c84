// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace kestrane {

/// What an evaluation changed against an earlier result. A null pointer to one means that
/// everything may have changed; an empty record that nothing did.
struct StrandChanges {
  bool all = false;
  std::vector<std::uint32_t> strands;  // ascending indices of the strands that changed

  bool empty() const { return !all && strands.empty(); }
};

using StrandChangesPtr = std::shared_ptr<const StrandChanges>;

/// The one shared record of no change.
const StrandChangesPtr& noStrandChanges();

}  // namespace kestrane
