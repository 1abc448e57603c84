// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>

#include "core/base/array.h"
#include "core/base/lanes.h"
#include "core/data/scalp_mesh.h"

namespace kestrane {

/// The signed height above a surface, near it, sampled on grids and mixed between, since millions
/// of points ask for it. Near the surface the grid is fine; each further grid is coarser and
/// reaches farther, as the height has less detail there. A node is sampled when somebody first asks
/// for a height beside it: hair covers a small part of the space around a body. May be read from
/// many threads.
class ClearanceField {
 public:
  /// The grid cell that a point lies in.
  class Sample {
   public:
    float height() const { return height_; }
    /// The direction in which the height grows, unit.
    Vec3f up() const;
    /// The width of the grid's cells here, over which the height is all but linear.
    float cell() const { return cell_; }
    /// What mixing between nodes may amount to.
    float tolerance() const { return tolerance_; }

   private:
    friend class ClearanceField;
    Float4 slope_{}, along_{};  // of the cell's four edges along X: the slope, and the height in it
    float y_ = 0.0f, z_ = 0.0f;
    float height_ = 0.0f;
    float cell_ = 0.0f;
    float tolerance_ = 0.0f;
    std::size_t level_ = 0;
  };

  /// Keeps the mesh.
  explicit ClearanceField(ScalpMeshPtr mesh);

  /// The height above which hair hangs free of the skin, so that more of it means nothing: an
  /// eighth of the mesh's diagonal.
  float freeHeight() const { return freeHeight_; }

  /// False where there is nothing to tell: beside a border, where the nearest surface says nothing
  /// of above or below; well beyond the free height; and where a coordinate is no number.
  /// Looks first where `sample` was found last, and may answer from the coarser of two grids there:
  /// walk along each curve with a sample of its own, which begins at the surface.
  bool find(Vec3f position, Sample& sample) const;

  /// The height itself, by a query of the mesh; infinite where there is nothing to tell, or where
  /// the mesh is farther than `within`.
  float heightAt(Vec3f position, float within = FLT_MAX) const;

 private:
  struct Level {
    Float4 low{};  // the fourth lane of these is not used
    float cell = 1.0f, perCell = 0.0f;
    float band = 0.0f;  // the largest height that this level tells
    float tolerance = 0.0f;
    Float4 end{};  // of the cells, counted in them; none where there is no mesh
    std::int32_t size[3] = {0, 0, 0};
    /// Heights at the nodes, X fastest: not a number where nobody has asked, infinite where it is
    /// beyond the band or unknown. A mix with either tells no height.
    mutable Array<float> heights;
  };
  static constexpr std::size_t levelCount = 3;

  bool findIn(const Level& level, Vec3f position, Sample& sample) const;
  void sampleEdge(const Level& level, std::size_t node) const;
  float sampled(const Level& level, std::size_t node) const;

  ScalpMeshPtr mesh_;
  float freeHeight_ = 0.0f;
  Level levels_[levelCount];
};

}  // namespace kestrane
