// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/guide_sampler.h"

#include <algorithm>

namespace kestrane {

GuideSampler::GuideSampler(const GuideSet& guides, const std::string& layer) {
  std::vector<Vec3f> roots;
  for (const Guide& guide : guides.guides) {
    if (guide.points.empty()) continue;
    if (const auto found = guide.attributes.find(layer); found != guide.attributes.end()) {
      values_.push_back(found->second);
    } else if (const auto along = guide.pointAttributes.find(layer);
               along != guide.pointAttributes.end() && !along->second.empty()) {
      values_.push_back(along->second.front());
    } else {
      continue;
    }
    roots.push_back(guide.points.front());
  }
  tree_ = KdTree(roots);
}

float GuideSampler::at(Vec3f position) const {
  KdHit hits[4];
  const std::size_t found = tree_.nearest(position, hits);
  float sum = 0.0f, weights = 0.0f;
  for (std::size_t i = 0; i < found; ++i) {
    const float weight = 1.0f / std::max(hits[i].distanceSquared, 1e-12f);
    sum += weight * values_[hits[i].index];
    weights += weight;
  }
  return weights > 0.0f ? sum / weights : 0.0f;
}

}  // namespace kestrane
