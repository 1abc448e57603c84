// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"
#include "core/ops/curl_kernel.h"

namespace kestrane {

/// Where curls begin: the surface's tangent at a root, along the triangle's first edge (the second
/// where that has no length); zero without a triangle. The smooth normal has no say in it, as that
/// depends on the triangles around: a strand whose own triangle stays keeps its curl.
Vec3f curlHint(const ScalpMesh* surface, StrandRoot root);

/// The clumps that strands curl in, and the middle of each. Made before a parallel loop; immutable.
class CurlClumps {
 public:
  /// By each strand's number. A strand whose number is below 0 or none is in no clump, nor is one
  /// that cannot curl. A clump's plane is that of its first strand with a root on the surface.
  CurlClumps(const StrandSet& strands, std::span<const float> numbers, const ScalpMesh* surface);

  struct Clump {
    float number = 0.0f;
    float longest = 0.0f;  // the length of its longest strand
    /// Without frames for a clump of one strand, which is its own middle.
    CurlAxis axis;
    bool hasAxis = false;
  };
  /// Null for a strand in no clump.
  const Clump* of(std::size_t strand) const {
    return clumpOf_[strand] == none ? nullptr : &clumps_[clumpOf_[strand]];
  }

 private:
  static constexpr std::uint32_t none = UINT32_MAX;

  std::vector<std::uint32_t> clumpOf_;  // per strand
  std::vector<Clump> clumps_;
};

}  // namespace kestrane
