// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/blue_noise.h"

#include <atomic>
#include <cmath>
#include <limits>

#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/data/kd_tree.h"
#include "core/data/surface_walk.h"

namespace kestrane {

namespace {

constexpr int passes = 30;
constexpr int passesPerSearch = 4;
constexpr std::size_t neighborCount = 13;  // the root itself among them
constexpr std::size_t grain = 256;
// A set in which no root moves by more than this share of its radius is at rest.
constexpr float restShare = 0.005f;

class Relaxation {
 public:
  Relaxation(const ScalpMesh& mesh, std::span<const StrandRoot> roots, std::span<const float> radii,
             std::uint64_t seed)
      : mesh_(mesh),
        border_(mesh),
        radii_(radii),
        seed_(seed),
        roots_(roots.begin(), roots.end()),
        nextRoots_(roots.size()),
        positions_(roots.size()),
        nextPositions_(roots.size()),
        neighbors_(roots.size() * neighborCount),
        borderEdges_(roots.size(), -1) {
    parallelRange(0, roots_.size(), grain, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) positions_[i] = mesh_.positionAt(roots_[i]);
    });
  }

  std::vector<StrandRoot> run() {
    for (int pass = 0; pass < passes; ++pass) {
      if (pass % passesPerSearch == 0) findNeighbors();
      std::atomic<bool> moved = false;
      parallelRange(0, roots_.size(), grain, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
          if (moveRoot(i)) moved.store(true, std::memory_order_relaxed);
        }
      });
      roots_.swap(nextRoots_);
      positions_.swap(nextPositions_);
      if (!moved) break;
    }
    return std::move(roots_);
  }

 private:
  void findNeighbors() {
    const KdTree tree(positions_);
    parallelRange(0, roots_.size(), grain, [&](std::size_t first, std::size_t last) {
      KdHit hits[neighborCount];
      for (std::size_t i = first; i < last; ++i) {
        std::uint32_t* out = neighbors_.data() + i * neighborCount;
        const std::size_t found = tree.nearest(positions_[i], hits);
        for (std::size_t k = 0; k < neighborCount; ++k) {
          out[k] = k < found ? hits[k].index : static_cast<std::uint32_t>(i);
        }
        // Until the next search a root moves by half its radius per pass at most, and a border acts
        // from within a radius.
        borderEdges_[i] = -1;
        if (radii_[i] > 0.0f && std::isfinite(radii_[i]) && !border_.edges().empty()) {
          borderEdges_[i] = border_.nearest(positions_[i], 3.1f * radii_[i]).edge;
        }
      }
    });
  }

  /// Whether the root moved by more than a small share of its radius.
  bool moveRoot(std::size_t i) {
    nextRoots_[i] = roots_[i];
    nextPositions_[i] = positions_[i];
    const float radius = radii_[i];
    if (!(radius > 0.0f) || !std::isfinite(radius)) return false;
    const Vec3f normal = mesh_.normalAt(roots_[i]);
    Vec3f force = neighborForce(i, normal) + borderForce(i);
    force -= normal * dot(force, normal);
    Vec3f step = force * (0.6f * radius);
    const float size = length(step);
    const float most = 0.5f * radius;
    if (size > most) step *= most / size;
    if (!(size > 0.0f)) return false;
    nextRoots_[i] = walkOnSurface(mesh_, roots_[i], step);
    nextPositions_[i] = mesh_.positionAt(nextRoots_[i]);
    return distance(nextPositions_[i], positions_[i]) > restShare * radius;
  }

  Vec3f neighborForce(std::size_t i, Vec3f normal) const {
    Vec3f force{};
    const std::uint32_t* neighbors = neighbors_.data() + i * neighborCount;
    for (std::size_t k = 0; k < neighborCount; ++k) {
      const std::size_t j = neighbors[k];
      if (j == i || !(radii_[j] > 0.0f)) continue;
      const float reach = radii_[i] + radii_[j];
      const Vec3f apart = positions_[i] - positions_[j];
      const float squared = lengthSquared(apart);
      if (!(squared < reach * reach)) continue;
      const float d = std::sqrt(squared);
      Vec3f direction;
      if (d > 1e-6f * reach) {
        direction = apart / d;
      } else {
        // Two roots on one spot part at random.
        const Vec3f tangent = anyPerpendicular(normal);
        direction = tangent * (unitFloat(mix64(i)) - 0.5f) +
                    cross(normal, tangent) * (unitFloat(mix64(seed_ + i)) - 0.5f);
      }
      const float weight = (1.0f - d / reach) * (1.0f - d / reach);
      force += direction * weight;
    }
    return force;
  }

  /// A border pushes like a root mirrored in it, which holds roots at half a spacing from it.
  Vec3f borderForce(std::size_t i) const {
    if (borderEdges_[i] < 0) return {};
    const SurfaceBorder::Edge& edge = border_.edges()[static_cast<std::size_t>(borderEdges_[i])];
    const Vec3f along = edge.to - edge.from;
    const float share = std::clamp(
        dot(positions_[i] - edge.from, along) / std::max(lengthSquared(along), 1e-30f), 0.0f, 1.0f);
    const float d = 2.0f * distance(positions_[i], edge.from + along * share);
    const float reach = 2.0f * radii_[i];
    if (!(d < reach)) return {};
    return edge.inward * ((1.0f - d / reach) * (1.0f - d / reach));
  }

  const ScalpMesh& mesh_;
  const SurfaceBorder border_;
  std::span<const float> radii_;
  std::uint64_t seed_;
  std::vector<StrandRoot> roots_, nextRoots_;
  std::vector<Vec3f> positions_, nextPositions_;
  std::vector<std::uint32_t> neighbors_;
  std::vector<std::int32_t> borderEdges_;
};

}  // namespace

float evenSpacing(double density) {
  return density > 0.0 ? static_cast<float>(1.0746 / std::sqrt(density))
                       : std::numeric_limits<float>::infinity();
}

std::vector<StrandRoot> relaxRoots(const ScalpMesh& mesh, std::span<const StrandRoot> roots,
                                   std::span<const float> radii, std::uint64_t seed) {
  if (roots.size() < 2) return {roots.begin(), roots.end()};
  return Relaxation(mesh, roots, radii, seed).run();
}

}  // namespace kestrane
