// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cfloat>
#include <cstdint>
#include <span>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// A point of a KdTree's set and its squared distance to a query.
struct KdHit {
  std::uint32_t index = 0;
  float distanceSquared = 0.0f;
};

/// A balanced tree over points for nearest-neighbour queries. Immutable once built; queries may run
/// from many threads. Ties go to the lower index, so answers do not depend on the tree.
class KdTree {
 public:
  KdTree() = default;
  explicit KdTree(std::span<const Vec3f> points);

  std::size_t size() const;
  /// The nearest point within maxDistance; distanceSquared is FLT_MAX when there is none.
  KdHit nearest(Vec3f position, float maxDistance = FLT_MAX) const;
  /// Writes the up to hits.size() nearest points, ascending by distance; returns how many.
  std::size_t nearest(Vec3f position, std::span<KdHit> hits, float maxDistance = FLT_MAX) const;

 private:
  std::vector<Vec3f> points_;  // in tree order
  std::vector<std::uint32_t> indices_;
};

}  // namespace kestrane
