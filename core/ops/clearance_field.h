// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// The signed height above a surface, near it: sampled once on a grid and mixed between, since
/// millions of points ask for it. Heights beyond the band around the surface, and where the nearest
/// surface is a border seen from outside, count as the band's. Immutable once made; may be read
/// from many threads.
class ClearanceField {
 public:
  explicit ClearanceField(const ScalpMesh& mesh);

  float heightAt(Vec3f position) const;
  /// The direction in which the height grows, unit; zero beyond the band.
  Vec3f upAt(Vec3f position) const;
  /// The largest height told.
  float band() const { return band_; }
  /// What rounding between samples may amount to.
  float tolerance() const { return 0.01f * cell_; }

 private:
  /// The heights at the corners of a grid cell, X fastest, and where in it a point lies.
  struct Cell {
    const float* corner;
    Vec3f share;
  };
  bool find(Vec3f position, Cell& cell) const;

  Vec3f low_;
  float cell_ = 1.0f;
  float perCell_ = 1.0f;  // 1 over it
  float band_ = 0.0f;
  std::int64_t size_[3] = {0, 0, 0};
  Vec3f end_;  // of the cells, counted in them
  std::vector<float> heights_;
};

}  // namespace kestrane
