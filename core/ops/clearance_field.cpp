// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include <algorithm>
#include <cfloat>
#include <limits>

namespace kestrane {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float cellsAlongDiagonal = 144.0f;
constexpr float bandCells = 8.0f;
// From one level to the next: the cells that tell a height are then at most a quarter of it wide.
constexpr float coarser = 2.0f;
// Shares of a cell. Off the surface a mix of heights always lies above the true one, by more where
// cells are wide.
constexpr float tolerance = 0.01f, coarseTolerance = 0.03f;

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
    level.tolerance = cell * (&level == levels_ ? tolerance : coarseTolerance);
    const float margin = level.band + cell;
    level.low = low - Vec3f{margin, margin, margin};
    std::size_t blocks = 1;
    for (int axis = 0; axis < 3; ++axis) {
      const float cells = std::ceil((high[axis] - low[axis] + 2.0f * margin) / cell);
      level.end[axis] = cells;
      level.blocks[axis] = (static_cast<std::int32_t>(cells) + blockCells - 1) / blockCells;
      blocks *= static_cast<std::size_t>(level.blocks[axis]);
    }
    level.made = std::make_unique<std::atomic<const Block*>[]>(blocks);
    cell *= coarser;
  }
  // What queries need is made here, once, and not under the first of many threads.
  mesh_->closestPoint({});
}

ClearanceField::~ClearanceField() {
  for (Level& level : levels_) {
    if (!level.made) continue;
    const auto blocks =
        static_cast<std::size_t>(level.blocks[0] * level.blocks[1] * level.blocks[2]);
    for (std::size_t i = 0; i < blocks; ++i) delete level.made[i].load();
  }
}

/// Threads that come to the same block at once each make it; they make the same, and one is kept.
const ClearanceField::Block* ClearanceField::make(const Level& level, std::size_t index) const {
  const auto columns = static_cast<std::size_t>(level.blocks[0]);
  const auto rows = static_cast<std::size_t>(level.blocks[1]);
  const Vec3f number{static_cast<float>(index % columns),
                     static_cast<float>(index / columns % rows),
                     static_cast<float>(index / columns / rows)};
  const Vec3f low = level.low + number * (level.cell * static_cast<float>(blockCells));
  const Block* block = sampled(level, low);
  const Block* other = nullptr;
  if (level.made[index].compare_exchange_strong(other, block, std::memory_order_acq_rel)) {
    return block;
  }
  delete block;
  return other;
}

const ClearanceField::Block* ClearanceField::sampled(const Level& level, Vec3f low) const {
  auto block = std::make_unique<Block>();
  const float size = level.cell * static_cast<float>(blockCells);
  const Vec3f middle = low + Vec3f{size, size, size} * 0.5f;
  const float radius = 0.5f * size * 1.7320508f;
  const SurfaceHit far = mesh_->closestPoint(middle, level.band + radius * 1.001f);
  if (far.root.face < 0) {
    std::fill(std::begin(block->heights), std::end(block->heights), infinity);
    return block.release();
  }
  float* out = block->heights;
  for (std::int32_t z = 0; z < blockRow; ++z) {
    for (std::int32_t y = 0; y < blockRow; ++y) {
      // Along a row one node's distance bounds the next one's.
      float within = far.distance + radius * 1.001f;
      for (std::int32_t x = 0; x < blockRow; ++x) {
        const Vec3f p =
            low +
            Vec3f{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)} * level.cell;
        const SurfaceHit hit = mesh_->closestPoint(p, within);
        *out++ = heightFrom(p, hit, level.band);
        if (hit.root.face >= 0) within = hit.distance + level.cell * 1.001f;
      }
    }
  }
  return block.release();
}

float ClearanceField::heightFrom(Vec3f position, const SurfaceHit& hit, float band) const {
  if (hit.root.face < 0 || hit.distance >= band) return infinity;
  const float up = dot(position - hit.position, mesh_->normalAt(hit.root));
  // Beside a border the nearest point says nothing of above or below.
  if (std::abs(up) < 0.5f * hit.distance) return infinity;
  return std::copysign(hit.distance, up);
}

Vec3f ClearanceField::Sample::up() const {
  const float* c = corner_;
  const float x = share_.x, y = share_.y, z = share_.z;
  // The slopes of the mix that the height is.
  const auto slopeX = [&](std::int32_t offset) { return c[offset + 1] - c[offset]; };
  const auto alongX = [&](std::int32_t offset) { return lerp(c[offset], c[offset + 1], x); };
  return normalize(
      {lerp(lerp(slopeX(0), slopeX(blockRow), y),
            lerp(slopeX(blockSlice), slopeX(blockSlice + blockRow), y), z),
       lerp(alongX(blockRow) - alongX(0), alongX(blockSlice + blockRow) - alongX(blockSlice), z),
       lerp(alongX(blockSlice) - alongX(0), alongX(blockSlice + blockRow) - alongX(blockRow), y)});
}

}  // namespace kestrane
