// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
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
  /// What the grids tell of four points, one a lane.
  struct Samples {
    Float4 height{};
    Vec3x4 slope{};  // how the height grows along each axis
    Float4 cell{};   // the width of the grid's cells here, over which heights are all but linear
    Float4 tolerance{};  // what mixing between nodes may amount to
    Int4 level{};        // of the grid in which the lane's curve was found last
  };

  /// Keeps the mesh.
  explicit ClearanceField(ScalpMeshPtr mesh);

  /// The height above which hair hangs free of the skin, so that more of it means nothing: an
  /// eighth of the mesh's diagonal.
  float freeHeight() const { return freeHeight_; }

  /// Looks up the lanes asked for, and gives those of them of which something is told: all but
  /// what lies beside a border, where the nearest surface says nothing of above or below, what is
  /// well beyond the free height, and what has a coordinate that is no number. Looks first in the
  /// grid where the lane was found last, and may answer from the coarser of two grids there: walk
  /// along each curve in a lane of its own, with samples that begin at the surface.
  Mask4 find(const Vec3x4& positions, Mask4 asked, Samples& samples) const;

  /// The height itself, by a query of the mesh; infinite where there is nothing to tell, or where
  /// the mesh is farther than `within`.
  float heightAt(Vec3f position, float within = FLT_MAX) const;

 private:
  struct Level {
    Vec3f low;
    float cell = 1.0f, perCell = 0.0f;
    float band = 0.0f;  // the largest height that this level tells
    float tolerance = 0.0f;
    Vec3f end;  // of the cells, counted in them; none where there is no mesh
    std::int32_t size[3] = {0, 0, 0};
    /// Heights at the nodes, X fastest: not a number where nobody has asked, infinite where it is
    /// beyond the band or unknown. A mix with either tells no height.
    mutable Array<float> heights;
  };
  static constexpr std::size_t levelCount = 3;

  Mask4 findIn(const Level& level, const Vec3x4& positions, Mask4 asked, Samples& samples) const;
  /// The height at a node as far as it is known. Relaxed: threads that come to a node at once find
  /// the same height, so that either may keep it.
  static float kept(const Level& level, std::size_t node) {
    return std::atomic_ref<float>(level.heights[node]).load(std::memory_order_relaxed);
  }
  /// Asks for the heights of a node and the next one along X; false once one tells none.
  bool sampleEdge(const Level& level, std::size_t node) const;
  float sampled(const Level& level, std::size_t node) const;

  ScalpMeshPtr mesh_;
  float freeHeight_ = 0.0f;
  Level levels_[levelCount];
};

}  // namespace kestrane
