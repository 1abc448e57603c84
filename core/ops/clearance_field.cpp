// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

namespace kestrane {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float unasked = std::numeric_limits<float>::quiet_NaN();
constexpr float cellsAlongDiagonal = 144.0f;
constexpr float bandCells = 8.0f;
constexpr float freeShare = 0.125f;
// From one level to the next: the cells that tell a height are at most a quarter of it wide.
constexpr float coarser = 2.0f;
constexpr float toleratedShare = 0.01f;
// The share of a grid's band within which all corners of a cell are within it, too.
constexpr float sureShare = 0.75f;

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
  freeHeight_ = diagonal * freeShare;
  float cell = diagonal / cellsAlongDiagonal;
  for (Level& level : levels_) {
    level.cell = cell;
    level.perCell = 1.0f / cell;
    level.band = bandCells * cell;
    level.tolerance = toleratedShare * cell;
    const float margin = level.band + cell;
    level.low = Float4{low.x, low.y, low.z, 0.0f} - splat(margin);
    float end[4] = {};
    std::size_t nodes = 1;
    for (int axis = 0; axis < 3; ++axis) {
      end[axis] = std::ceil((high[axis] - low[axis] + 2.0f * margin) / cell);
      level.size[axis] = static_cast<std::int32_t>(end[axis]) + 1;
      nodes *= static_cast<std::size_t>(level.size[axis]);
    }
    level.end = load4(end);
    level.heights.assign(nodes, unasked);
    cell *= coarser;
  }
  // What queries need is made here, once, and not by the first of many threads.
  mesh_->closestPoint({});
}

bool ClearanceField::find(Vec3f position, Sample& sample) const {
  std::size_t level = sample.level_;
  while (!findIn(levels_[level], position, sample)) {
    if (++level < levelCount) continue;
    sample.level_ = 0;
    return false;
  }
  // A finer grid that is sure to know the height knows it better.
  while (level > 0 && std::abs(sample.height_) < sureShare * levels_[level - 1].band) {
    if (!findIn(levels_[level - 1], position, sample)) {
      findIn(levels_[level], position, sample);
      break;
    }
    --level;
  }
  sample.level_ = level;
  return true;
}

bool ClearanceField::findIn(const Level& level, Vec3f position, Sample& sample) const {
  const Float4 at =
      (Float4{position.x, position.y, position.z, 0.0f} - level.low) * splat(level.perCell);
  // Written so that a place that is no number lies outside.
  const Mask4 inside = (at >= splat(0.0f)) & (at < level.end);
  if (!(inside[0] & inside[1] & inside[2])) return false;
  const auto x = static_cast<std::int32_t>(at[0]), y = static_cast<std::int32_t>(at[1]),
             z = static_cast<std::int32_t>(at[2]);
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
    sample.along_ = from + sample.slope_ * splat(at[0] - static_cast<float>(x));
    sample.y_ = at[1] - static_cast<float>(y);
    sample.z_ = at[2] - static_cast<float>(z);
    const Float4 a = sample.along_;
    sample.height_ = lerp(lerp(a[0], a[1], sample.y_), lerp(a[2], a[3], sample.y_), sample.z_);
    if (std::abs(sample.height_) < level.band) {
      sample.cell_ = level.cell;
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
  const Vec3f position = Vec3f{level.low[0], level.low[1], level.low[2]} + number * level.cell;
  return heightAt(position, level.band);
}

float ClearanceField::heightAt(Vec3f position, float within) const {
  const SurfaceHit hit = mesh_->closestPoint(position, within);
  if (hit.root.face < 0) return infinity;
  // On the surface only rounding is left to tell above from below.
  if (hit.distance < levels_[0].tolerance * 0.01f) return 0.0f;
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
