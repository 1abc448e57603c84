// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cfloat>
#include <cstdint>
#include <memory>
#include <span>

#include "core/base/vec.h"

namespace kestrane {

/// A point of a KdTree's set and its squared distance to a query.
struct KdHit {
  std::uint32_t index = 0;
  float distanceSquared = 0.0f;
};

/// A balanced tree over points for nearest-neighbour queries (Bentley 1975), with the boxes of the
/// points instead of the splitting planes: on a surface they leave out far more. Immutable once
/// built, and cheap to copy; queries may run from many threads and allocate nothing. Ties go to the
/// lower index, so answers do not depend on the tree. Points that are not finite are never found,
/// and a query that is not finite, or a negative distance, finds nothing. The points themselves are
/// not needed after the build.
class KdTree {
 public:
  KdTree() = default;
  /// Builds in parallel; callable under a lock.
  explicit KdTree(std::span<const Vec3f> points);

  std::size_t size() const { return size_; }
  /// The nearest point within maxDistance; distanceSquared is FLT_MAX when there is none.
  KdHit nearest(Vec3f position, float maxDistance = FLT_MAX) const;
  /// Writes the up to hits.size() nearest points, ascending by distance; returns how many.
  std::size_t nearest(Vec3f position, std::span<KdHit> hits, float maxDistance = FLT_MAX) const;

 private:
  struct Tree;
  std::shared_ptr<const Tree> tree_;  // null without points
  std::size_t size_ = 0;
};

}  // namespace kestrane
