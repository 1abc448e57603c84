// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "core/data/guide_set.h"
#include "core/data/kd_tree.h"

namespace kestrane {

/// Reads a layer painted on guides anywhere near them: the mean of the nearest guides that carry
/// it, weighted by nearness. A layer along the guides counts with its root value. Immutable; may be
/// read from many threads.
class GuideSampler {
 public:
  GuideSampler(const GuideSet& guides, const std::string& layer);

  /// Whether no guide carries the layer; at() then gives 0.
  bool empty() const { return values_.empty(); }
  float at(Vec3f position) const;

 private:
  KdTree tree_;
  std::vector<float> values_;
};

}  // namespace kestrane
