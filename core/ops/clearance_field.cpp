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

Mask4 ClearanceField::find(const Vec3x4& positions, Mask4 asked, Samples& samples) const {
  Mask4 found = splatInt(0);
  for (std::size_t i = 0; i < levelCount; ++i) {
    const Mask4 here = asked & ~found & (samples.level == splatInt(static_cast<std::int32_t>(i)));
    if (setLanes(here) == 0) continue;
    const Mask4 told = findIn(levels_[i], positions, here, samples);
    found = found | told;
    // What is not told here may be so in the next grid, beyond the last one nowhere: then the next
    // point is looked for from the first one on. A mask is -1 where it is set.
    const Mask4 missed = here & ~told;
    samples.level = i + 1 < levelCount ? samples.level - missed : samples.level & ~missed;
  }
  for (std::size_t i = levelCount - 1; i > 0; --i) {
    // A finer grid that is sure to know the height knows it better.
    const Mask4 sure = found & (samples.level == splatInt(static_cast<std::int32_t>(i))) &
                       (absolute(samples.height) < splat(sureShare * levels_[i - 1].band));
    if (setLanes(sure) == 0) continue;
    samples.level = samples.level + findIn(levels_[i - 1], positions, sure, samples);
  }
  return found;
}

Mask4 ClearanceField::findIn(const Level& level, const Vec3x4& positions, Mask4 asked,
                             Samples& samples) const {
  const Float4 zero = splat(0.0f), perCell = splat(level.perCell);
  Float4 x = (positions.x - splat(level.low.x)) * perCell;
  Float4 y = (positions.y - splat(level.low.y)) * perCell;
  Float4 z = (positions.z - splat(level.low.z)) * perCell;
  // Written so that a place that is no number lies outside.
  const Mask4 inside = asked & (x >= zero) & (x < splat(level.end.x)) & (y >= zero) &
                       (y < splat(level.end.y)) & (z >= zero) & (z < splat(level.end.z));
  if (setLanes(inside) == 0) return inside;
  // Lanes that take no part read what is there.
  x = select(inside, x, zero);
  y = select(inside, y, zero);
  z = select(inside, z, zero);
  const Int4 cellX = truncated(x), cellY = truncated(y), cellZ = truncated(z);
  x = x - asFloats(cellX);
  y = y - asFloats(cellY);
  z = z - asFloats(cellZ);
  const auto row = static_cast<std::size_t>(level.size[0]);
  const auto slice = row * static_cast<std::size_t>(level.size[1]);
  std::size_t nodes[4];
  for (int k = 0; k < 4; ++k) {
    nodes[k] = static_cast<std::size_t>(cellZ[k]) * slice +
               static_cast<std::size_t>(cellY[k]) * row + static_cast<std::size_t>(cellX[k]);
  }
  const std::size_t edges[4] = {0, row, slice, slice + row};
  for (;;) {
    // Of the cell's four edges along X, Y fastest: how the height grows, and where it is at x.
    Float4 slopes[4], along[4];
    Mask4 known = inside, beyond = splatInt(0);
    for (int i = 0; i < 4; ++i) {
      const auto corners = [&](std::size_t offset) {
        return Float4{kept(level, nodes[0] + offset), kept(level, nodes[1] + offset),
                      kept(level, nodes[2] + offset), kept(level, nodes[3] + offset)};
      };
      const Float4 from = corners(edges[i]), to = corners(edges[i] + 1);
      slopes[i] = to - from;
      along[i] = from + slopes[i] * x;
      known = known & isNumber(from) & isNumber(to);
      beyond = beyond | (from > splat(FLT_MAX)) | (to > splat(FLT_MAX));
    }
    const Float4 height = lerp(lerp(along[0], along[1], y), lerp(along[2], along[3], y), z);
    const Mask4 told = inside & (absolute(height) < splat(level.band));
    const unsigned unknown = setLanes(inside & ~told & ~known & ~beyond);
    if (unknown == 0) {
      samples.height = select(told, height, samples.height);
      samples.slope = select(told,
                             {lerp(lerp(slopes[0], slopes[1], y), lerp(slopes[2], slopes[3], y), z),
                              lerp(along[1] - along[0], along[3] - along[2], z),
                              lerp(along[2] - along[0], along[3] - along[1], y)},
                             samples.slope);
      samples.cell = select(told, splat(level.cell), samples.cell);
      samples.tolerance = select(told, splat(level.tolerance), samples.tolerance);
      return told;
    }
    for (unsigned k = 0; k < 4; ++k) {
      if ((unknown >> k & 1) == 0) continue;
      // One node that knows no height settles it for the cell.
      for (const std::size_t edge : edges) {
        if (!sampleEdge(level, nodes[k] + edge)) break;
      }
    }
  }
}

bool ClearanceField::sampleEdge(const Level& level, std::size_t node) const {
  for (const std::size_t end : {node, node + 1}) {
    float height = kept(level, end);
    if (std::isnan(height)) {
      height = sampled(level, end);
      std::atomic_ref<float>(level.heights[end]).store(height, std::memory_order_relaxed);
    }
    if (std::isinf(height)) return false;
  }
  return true;
}

float ClearanceField::sampled(const Level& level, std::size_t node) const {
  const auto columns = static_cast<std::size_t>(level.size[0]);
  const auto rows = static_cast<std::size_t>(level.size[1]);
  const Vec3f number{static_cast<float>(node % columns), static_cast<float>(node / columns % rows),
                     static_cast<float>(node / columns / rows)};
  const Vec3f position = level.low + number * level.cell;
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

}  // namespace kestrane
