// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// How far points of a surface lie from some seeds along the surface. Distances run along edges,
/// and straight across the two triangles of an edge, which overrates them by some percent; a point
/// whose way along the surface is no longer than that explains counts as being at its straight
/// distance, so that a smooth surface gives straight distances and only a fold, an ear or the far
/// side of a thin shell gives more. Immutable once made; may be read from many threads.
class SurfaceReach {
 public:
  /// One seed per root, and how far to follow each (infinite: everywhere).
  SurfaceReach(const ScalpMesh& mesh, std::span<const StrandRoot> seeds,
               std::span<const float> limits);

  /// What one triangle knows: the seeds that reach it, for repeated questions about points in it.
  class Face {
   public:
    std::int32_t face = -1;
    /// Whether any seed lies on the same piece of the surface.
    bool hasSeeds() const { return hasSeeds_; }

   private:
    friend class SurfaceReach;
    struct Seed {
      std::uint32_t seed;
      bool beside;  // the seed's triangle shares a corner with this one
      float corners[3];
    };
    std::vector<Seed> seeds_;  // ascending
    std::uint32_t piece_ = 0;
    bool hasSeeds_ = false;
  };
  void enter(std::int32_t face, Face& out) const;

  /// The distance from a seed to a point of the entered triangle whose straight distance is given:
  /// at least the limit where it lies beyond that, and infinite on another piece of the surface.
  float distanceTo(const Face& face, Vec3f position, std::uint32_t seed, float straight) const;

 private:
  std::uint32_t pieceOf(std::int32_t face) const;

  struct Entry {
    std::uint32_t seed;
    float distance;
  };

  const ScalpMesh& mesh_;
  std::vector<StrandRoot> seeds_;
  std::vector<float> limits_;          // per seed
  std::vector<std::uint32_t> pieces_;  // per vertex: the lowest vertex of its piece of the surface
  std::vector<char> seeded_;           // per vertex: whether its piece, if it names one, has a seed
  std::vector<float> slack_;           // per seed: half its triangle's longest edge
  std::vector<std::uint32_t> offsets_;  // per vertex, plus one
  std::vector<Entry> entries_;          // ascending by seed within a vertex
};

}  // namespace kestrane
