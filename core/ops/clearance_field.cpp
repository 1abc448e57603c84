// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <limits>

namespace kestrane {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float unasked = std::numeric_limits<float>::quiet_NaN();
constexpr float cellsAlongDiagonal = 144.0f;
constexpr float bandCells = 8.0f;
// From one level to the next: the cells that tell a height are at most a quarter of it wide.
constexpr float coarser = 2.0f;
constexpr float toleratedShare = 0.01f;
// By how much a caller's bound may be wrong: heights are mixed, not exact.
constexpr float boundSlack = 1.25f;

}  // namespace

ClearanceField::ClearanceField(ScalpMeshPtr mesh) : mesh_(std::move(mesh)) {
  Vec3f low{FLT_MAX, FLT_MAX, FLT_MAX}, high{-FLT_MAX, -FLT_MAX, -FLT_MAX};
  for (const Vec3f p : mesh_->points()) {
    if (!isFinite(p)) continue;
    low = min(low, p);
    high = max(high, p);
  }
  const float diagonal = distance(low, high);
  if (mesh_->triangleCount() == 0 || !std::isfinite(diagonal) || !(diagonal > 0.0f)) return;
  float cell = diagonal / cellsAlongDiagonal;
  for (Level& level : levels_) {
    level.cell = cell;
    level.perCell = 1.0f / cell;
    level.band = bandCells * cell;
    level.tolerance = toleratedShare * cell;
    const float margin = level.band + cell;
    level.low = low - Vec3f{margin, margin, margin};
    std::size_t nodes = 1;
    for (int axis = 0; axis < 3; ++axis) {
      level.end[axis] = std::ceil((high[axis] - low[axis] + 2.0f * margin) / cell);
      level.size[axis] = static_cast<std::int32_t>(level.end[axis]) + 1;
      nodes *= static_cast<std::size_t>(level.size[axis]);
    }
    level.heights.assign(nodes, unasked);
    cell *= coarser;
  }
  // What queries need is made here, once, and not by the first of many threads.
  mesh_->closestPoint({});
}

bool ClearanceField::find(Vec3f position, Sample& sample, float atLeast) const {
  for (const Level& level : levels_) {
    if (atLeast < level.band * boundSlack && findIn(level, position, sample)) return true;
  }
  return false;
}

bool ClearanceField::findIn(const Level& level, Vec3f position, Sample& sample) const {
  const Vec3f at = (position - level.low) * level.perCell;
  // Written so that a place that is no number lies outside.
  const bool inside = (at.x >= 0.0f) & (at.y >= 0.0f) & (at.z >= 0.0f) & (at.x < level.end.x) &
                      (at.y < level.end.y) & (at.z < level.end.z);
  if (!inside) return false;
  const auto x = static_cast<std::int32_t>(at.x), y = static_cast<std::int32_t>(at.y),
             z = static_cast<std::int32_t>(at.z);
  const auto row = static_cast<std::size_t>(level.size[0]);
  const auto slice = row * static_cast<std::size_t>(level.size[1]);
  const std::size_t node = static_cast<std::size_t>(z) * slice + static_cast<std::size_t>(y) * row +
                           static_cast<std::size_t>(x);
  // The cell's four edges along X, Y fastest.
  const std::size_t edges[4] = {node, node + row, node + slice, node + slice + row};
  for (;;) {
    // Relaxed: threads that come to a node at once find the same height, so that either may keep
    // it.
    const auto at4 = [&](std::size_t offset) {
      const auto kept = [&](std::size_t edge) {
        return std::atomic_ref<float>(level.heights[edge + offset]).load(std::memory_order_relaxed);
      };
      return Float4{kept(edges[0]), kept(edges[1]), kept(edges[2]), kept(edges[3])};
    };
    const Float4 from = at4(0), to = at4(1);
    sample.slope_ = to - from;
    sample.along_ = from + sample.slope_ * splat(at.x - static_cast<float>(x));
    sample.y_ = at.y - static_cast<float>(y);
    sample.z_ = at.z - static_cast<float>(z);
    const Float4 a = sample.along_;
    sample.height_ = lerp(lerp(a[0], a[1], sample.y_), lerp(a[2], a[3], sample.y_), sample.z_);
    if (std::abs(sample.height_) < level.band) {
      sample.tolerance_ = level.tolerance;
      return true;
    }
    bool known = true;
    for (int k = 0; k < 4; ++k) known = known && from[k] == from[k] && to[k] == to[k];
    if (known) return false;
    for (const std::size_t edge : edges) sampleEdge(level, edge);
  }
}

void ClearanceField::sampleEdge(const Level& level, std::size_t node) const {
  for (const std::size_t end : {node, node + 1}) {
    const std::atomic_ref<float> kept(level.heights[end]);
    if (std::isnan(kept.load(std::memory_order_relaxed))) {
      kept.store(sampled(level, end), std::memory_order_relaxed);
    }
  }
}

float ClearanceField::sampled(const Level& level, std::size_t node) const {
  const auto columns = static_cast<std::size_t>(level.size[0]);
  const auto rows = static_cast<std::size_t>(level.size[1]);
  const Vec3f number{static_cast<float>(node % columns), static_cast<float>(node / columns % rows),
                     static_cast<float>(node / columns / rows)};
  const Vec3f position = level.low + number * level.cell;
  const SurfaceHit hit = mesh_->closestPoint(position, level.band);
  if (hit.root.face < 0) return infinity;
  const float up = dot(position - hit.position, mesh_->normalAt(hit.root));
  // Beside a border the nearest point says nothing of above or below.
  if (!(std::abs(up) >= 0.5f * hit.distance)) return infinity;
  return std::copysign(hit.distance, up);
}

/// The slopes of the mix that the height is.
Vec3f ClearanceField::Sample::up() const {
  const Float4 s = slope_, a = along_;
  return normalize({lerp(lerp(s[0], s[1], y_), lerp(s[2], s[3], y_), z_),
                    lerp(a[1] - a[0], a[3] - a[2], z_), lerp(a[2] - a[0], a[3] - a[1], y_)});
}

}  // namespace kestrane
