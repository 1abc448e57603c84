// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/result_release.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/data/strand_diff.h"

namespace kestrane {

namespace {

ReleasedArrays sharedArrays(const StrandSet& result, const StrandSet& input) {
  ReleasedArrays shared;
  shared.points = result.pointCount() > 0 && result.sharesPointsWith(input);
  shared.widths = result.pointCount() > 0 && result.sharesWidthsWith(input);
  for (std::string& name : result.strandChannelNames()) {
    if (result.sharesStrandChannelWith(name, input)) {
      shared.strandChannels.push_back(std::move(name));
    }
  }
  for (std::string& name : result.pointChannelNames()) {
    if (result.sharesPointChannelWith(name, input)) shared.pointChannels.push_back(std::move(name));
  }
  return shared;
}

/// A copy of the set without those arrays. Sets that went through here share their empty arrays.
StrandSet without(const StrandSet& set, const ReleasedArrays& arrays) {
  static const StrandSet nothing;
  StrandSet rest = set;
  for (const std::string& name : arrays.strandChannels) rest.removeStrandChannel(name);
  for (const std::string& name : arrays.pointChannels) rest.removePointChannel(name);
  if (arrays.points) rest.sharePointsFrom(nothing);
  if (arrays.widths) rest.shareWidthsFrom(nothing);
  return rest;
}

bool sharesAll(const StrandSet& set, const StrandSet& other, const ReleasedArrays& arrays) {
  const auto all = [](const std::vector<std::string>& names, auto&& shares) {
    return std::all_of(names.begin(), names.end(), shares);
  };
  return (!arrays.points || set.sharesPointsWith(other)) &&
         (!arrays.widths || set.sharesWidthsWith(other)) &&
         all(arrays.strandChannels,
             [&](const auto& name) { return set.sharesStrandChannelWith(name, other); }) &&
         all(arrays.pointChannels,
             [&](const auto& name) { return set.sharesPointChannelWith(name, other); });
}

}  // namespace

ReleasedArrays releaseShared(Node& node, const GraphValue& input) {
  NodeCache& cache = node.cache;
  ReleasedArrays released;
  if (!cache.cached || cache.outputs.size() != 1) return released;
  StrandSetPtr result = valueAs<StrandSet>(cache.outputs[0]);
  const StrandSetPtr source = valueAs<StrandSet>(input);
  if (!result || !source) return released;
  if (result == source) {
    released.whole = true;
    cache.outputs[0] = {};
  } else if (node.op->keepsOnlyWritten() && result.use_count() == 2) {
    // Held by the cache and by us; a third holder would keep the arrays alive all the same.
    released = sharedArrays(*result, *source);
    if (released.any()) {
      cache.outputs[0] = std::make_shared<StrandSet>(without(*result, released));
    }
  }
  if (released.any()) cache.cached = false;
  return released;
}

StrandChangesPtr changedOutput(const GraphValue& before, const GraphValue& after) {
  if (before.index() == after.index() && before == after) return noStrandChanges();
  const StrandSetPtr old = valueAs<StrandSet>(before), made = valueAs<StrandSet>(after);
  return old && made ? changedStrands(*old, *made) : nullptr;
}

StrandChangesPtr changedOutput(const GraphValue& before, const GraphValue& after,
                               const ReleasedArrays& released, const GraphValue& input,
                               const StrandChangesPtr& inputChanges) {
  if (!released.any()) return changedOutput(before, after);
  const StrandSetPtr old = valueAs<StrandSet>(before), made = valueAs<StrandSet>(after);
  const StrandSetPtr source = valueAs<StrandSet>(input);
  const bool known = inputChanges && !inputChanges->all;
  if (!old || !made || !source || !known || !sharesAll(*made, *source, released)) return nullptr;
  const StrandChangesPtr own = changedStrands(*old, without(*made, released));
  if (!own || inputChanges->empty()) return own;
  auto both = std::make_shared<StrandChanges>();
  std::set_union(own->strands.begin(), own->strands.end(), inputChanges->strands.begin(),
                 inputChanges->strands.end(), std::back_inserter(both->strands));
  return both;
}

}  // namespace kestrane
