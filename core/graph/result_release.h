// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "core/graph/graph.h"

namespace kestrane {

/// What was taken out of a node's old result before the nodes above it run again. An operator that
/// rewrites points leaves all other arrays shared with its input, and its old result would keep
/// them alive; emptied, they have one holder less, and the node that made them can write the few
/// strands that changed in place instead of copying tens of megabytes.
struct ReleasedArrays {
  bool whole = false;  // the result was the input itself
  bool points = false;
  bool widths = false;
  std::vector<std::string> strandChannels;
  std::vector<std::string> pointChannels;

  bool any() const {
    return whole || points || widths || !strandChannels.empty() || !pointChannels.empty();
  }
};

/// Takes out of the node's cached result what it shares with `input`, the cached result of its
/// first source, which is about to be made anew. The cache then counts as not there until the node
/// has run, as the result is no whole one any more; what others hold is never touched.
ReleasedArrays releaseShared(Node& node, const GraphValue& input);

/// What differs between an old and a new value of one output: null if nothing can be said.
StrandChangesPtr changedOutput(const GraphValue& before, const GraphValue& after);

/// The same where arrays were taken out of `before`: in those the new value differs as its input
/// does, given that it shares them with that input again.
StrandChangesPtr changedOutput(const GraphValue& before, const GraphValue& after,
                               const ReleasedArrays& released, const GraphValue& input,
                               const StrandChangesPtr& inputChanges);

}  // namespace kestrane
