// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/data/guide_set.h"
#include "core/ops/clearance_field.h"
#include "core/ops/guide_binding.h"
#include "core/ops/strand_lifter.h"

namespace kestrane {

/// The guides as strands are blended out of them: evenly spaced points of their curves as offsets
/// from their roots, for one number of points. Immutable; may be read from many threads.
class GuideShapes {
 public:
  /// `normals` are the surface's at the guides' roots. With a field, each point's height is kept.
  GuideShapes(const GuideSet& guides, std::span<const Vec3f> normals, std::size_t pointCount,
              bool smooth, const ClearanceField* field);

  std::size_t pointCount() const { return count_; }
  float lengthOf(std::size_t guide) const { return lengths_[guide]; }

 private:
  friend class StrandBlender;
  std::size_t count_;
  std::vector<Vec3f> normals_;
  std::vector<float> lengths_;
  std::vector<float> offsets_;  // per guide: all x, all y, all z
  const ClearanceField* field_;
  std::vector<float> heights_;  // per guide and point; empty without a field
};

/// Blends one strand after another; holds buffers, so each thread has its own.
class StrandBlender {
 public:
  StrandBlender(const GuideShapes& shapes, const GuideBinding& binding)
      : shapes_(shapes),
        binding_(binding),
        lifter_(shapes.field_, shapes.heights_, shapes.count_, binding) {}

  /// Writes the strand's points from its root: the guides' offsets, each turned from its own
  /// surface normal to the strand's, mixed by weight; then scaled to the blended length (never by
  /// more than 2, since guides that all but cancel would throw the strand out). With a field the
  /// points are done only after finish().
  void blend(std::size_t strand, Vec3f root, Vec3f normal, bool preserveLength,
             std::span<Vec3f> out);
  /// Lifts what is still to be lifted of the strands so far.
  void finish() { lifter_.finish(); }
  /// The blended length of the strand's guides.
  float targetLength(std::size_t strand) const;

 private:
  const GuideShapes& shapes_;
  const GuideBinding& binding_;
  StrandLifter lifter_;
  std::vector<float> sums_;
};

/// Scales the points about the first so that the polyline has the target length, by a factor of 2
/// at most; a polyline of no length, or no target, stays.
void scaleToLength(std::span<Vec3f> points, float target);

}  // namespace kestrane
