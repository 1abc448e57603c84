// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// The signed height above a surface, sampled on grids and mixed between, since millions of points
/// ask for it. Near the surface the grid is fine; each further grid is coarser and reaches farther,
/// as the height has less detail there. Blocks of a grid are sampled when somebody first asks for a
/// height in them: hair covers a small part of the space around a body. May be read from many
/// threads.
class ClearanceField {
 public:
  /// A grid cell's corners and where in it a point lies.
  class Sample {
   public:
    float height() const { return height_; }
    /// The direction in which the height grows, unit.
    Vec3f up() const;
    /// What rounding between the grid's nodes may amount to.
    float tolerance() const { return tolerance_; }

   private:
    friend class ClearanceField;
    const float* corner_ = nullptr;  // of a block, X fastest
    Vec3f share_;
    float height_ = 0.0f;
    float tolerance_ = 0.0f;
  };

  /// Keeps the mesh.
  explicit ClearanceField(ScalpMeshPtr mesh);
  ~ClearanceField();
  ClearanceField(const ClearanceField&) = delete;
  ClearanceField& operator=(const ClearanceField&) = delete;

  /// False where there is nothing to tell: beside a border, where the nearest surface says nothing
  /// of above or below; farther away than the mesh is large; and where a coordinate is no number.
  bool find(Vec3f position, Sample& sample) const {
    for (const Level& level : levels_) {
      if (findIn(level, position, sample)) return true;
    }
    return false;
  }

 private:
  static constexpr std::int32_t blockCells = 8;
  static constexpr std::int32_t blockRow = blockCells + 1;  // nodes; blocks share their faces
  static constexpr std::int32_t blockSlice = blockRow * blockRow;
  /// Heights at a block's nodes. Infinite ones are beyond the level's band, or not known.
  struct Block {
    float heights[blockSlice * blockRow];
  };
  struct Level {
    Vec3f low;
    float cell = 1.0f, perCell = 0.0f;
    float band = 0.0f;  // the largest height that this level tells
    float tolerance = 0.0f;
    Vec3f end;  // of the cells, counted in them
    std::int32_t blocks[3] = {0, 0, 0};
    std::unique_ptr<std::atomic<const Block*>[]> made;  // null where nobody has asked yet
  };
  static constexpr std::size_t levelCount = 5;

  bool findIn(const Level& level, Vec3f position, Sample& sample) const;
  const Block* make(const Level& level, std::size_t index) const;
  const Block* sampled(const Level& level, Vec3f low) const;
  float heightFrom(Vec3f position, const SurfaceHit& hit, float band) const;

  ScalpMeshPtr mesh_;
  Level levels_[levelCount];
};

inline bool ClearanceField::findIn(const Level& level, Vec3f position, Sample& sample) const {
  const Vec3f at = (position - level.low) * level.perCell;
  // Written so that a place that is no number lies outside.
  const bool inside = (at.x >= 0.0f) & (at.y >= 0.0f) & (at.z >= 0.0f) & (at.x < level.end.x) &
                      (at.y < level.end.y) & (at.z < level.end.z);
  if (!inside) return false;
  const auto x = static_cast<std::int32_t>(at.x), y = static_cast<std::int32_t>(at.y),
             z = static_cast<std::int32_t>(at.z);
  const auto index = static_cast<std::size_t>(
      (z / blockCells * level.blocks[1] + y / blockCells) * level.blocks[0] + x / blockCells);
  const Block* block = level.made[index].load(std::memory_order_acquire);
  if (block == nullptr) block = make(level, index);
  const float* c =
      block->heights + (z % blockCells * blockRow + y % blockCells) * blockRow + x % blockCells;
  const Vec3f share{at.x - static_cast<float>(x), at.y - static_cast<float>(y),
                    at.z - static_cast<float>(z)};
  const auto along = [&](std::int32_t offset) { return lerp(c[offset], c[offset + 1], share.x); };
  const float height =
      lerp(lerp(along(0), along(blockRow), share.y),
           lerp(along(blockSlice), along(blockSlice + blockRow), share.y), share.z);
  // A corner beyond the band leaves no number, or an infinite one.
  if (!(std::abs(height) < level.band)) return false;
  sample.corner_ = c;
  sample.share_ = share;
  sample.height_ = height;
  sample.tolerance_ = level.tolerance;
  return true;
}

}  // namespace kestrane
