// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "core/data/kd_tree.h"
#include "core/data/scalp_mesh.h"
#include "core/guides/part_crossing.h"
#include "core/ops/guide_lookup.h"
#include "core/ops/surface_reach.h"

namespace kestrane {

/// Which guides every strand follows and by how much: four bytes an entry for up to 65,536 guides.
/// Immutable once made, but for the inverse, which is made at first need.
class GuideBinding {
 public:
  std::size_t begin(std::size_t strand) const { return offsets[strand]; }
  std::size_t end(std::size_t strand) const { return offsets[strand + 1]; }
  std::uint32_t guide(std::size_t entry) const { return wide ? guides32[entry] : guides16[entry]; }
  /// A stored s is the weight (s + 1) / 65536.
  float weight(std::size_t entry) const {
    return static_cast<float>(weights[entry] + 1) * (1.0f / 65536.0f);
  }

  /// The strands bound to any of the guides, ascending. Thread-safe.
  std::vector<std::uint32_t> strandsOf(std::span<const std::uint32_t> guides) const;

  bool wide = false;
  std::vector<std::uint32_t> offsets;  // per strand, plus one
  std::vector<std::uint16_t> guides16;
  std::vector<std::uint32_t> guides32;
  std::vector<std::uint16_t> weights;
  std::vector<float> distance;  // per strand, to its nearest usable guide, where a limit is set
  std::size_t guideCount = 0;

 private:
  mutable std::once_flag inverted_;
  mutable std::vector<std::uint32_t> strandOffsets_;  // per guide, plus one
  mutable std::vector<std::uint32_t> strands_;
};

/// How strands are bound.
struct BindingSettings {
  int neighbors = 3;
  float reach = 1.5f;
  float power = 2.0f;
  /// How far distances to the nearest guide are told; 0: nobody asks for them.
  float farthest = 0.0f;
};

/// The most guides that a strand follows. Where more reach it, the strongest count, each less the
/// weight of the first that does not, so that none comes or goes with a step.
inline constexpr std::size_t mostGuidesPerStrand = 32;

/// What a binding is made of. Spans must outlive the call.
struct BindingInput {
  std::span<const Vec3f> strandRoots;
  std::span<const std::int32_t> strandFaces;    // on `surface`; -1 for none
  std::span<const std::int32_t> strandRegions;  // empty without regions; -1: any
  std::span<const Vec3f> guideRoots;
  std::span<const StrandRoot> guideSurfaceRoots;  // on `surface`
  std::span<const std::int32_t> guideRegions;     // empty without regions
  const ScalpMesh* surface = nullptr;             // measure along it; null: in straight lines
  const PartCrossing* parts = nullptr;            // null: none
};

/// Binds every strand to the guides whose reach covers it, by the weights of Shepard (1968) as
/// modified by Franke and Little (Franke 1982), fading into the nearest guides' where no reach
/// covers it well. Parallel, with the same result at any number of threads.
std::shared_ptr<const GuideBinding> bindToGuides(const BindingInput& input,
                                                 const BindingSettings& settings);

}  // namespace kestrane
