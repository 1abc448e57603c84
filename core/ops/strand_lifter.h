// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/ops/clearance_field.h"
#include "core/ops/guide_binding.h"

namespace kestrane {

/// Lifts strands where they sink nearer to the skin than their guides are. Each point waits for the
/// one before it, so four strands go side by side: a strand is lifted once three others have come
/// after it, or at the end.
class StrandLifter {
 public:
  /// `heights` are those that the guides' points ask of strands, guide after guide, as many each as
  /// strands have points. Without a field nothing is lifted.
  StrandLifter(const ClearanceField* field, std::span<const float> heights, std::size_t pointCount,
               const GuideBinding& binding)
      : field_(field), heights_(heights), count_(pointCount), binding_(binding) {}

  /// The points must stay where they are until they are lifted.
  void add(std::size_t strand, std::span<Vec3f> points);
  /// Lifts what is still waiting.
  void finish();

 private:
  static constexpr std::size_t mostWaiting = 4;

  void lift();
  /// The guides' heights at every point, blended like their shapes.
  void blendHeights(std::size_t strand, float* out) const;

  const ClearanceField* field_;
  std::span<const float> heights_;
  std::size_t count_;
  const GuideBinding& binding_;
  std::size_t waiting_ = 0;
  std::size_t strands_[mostWaiting] = {};
  Vec3f* points_[mostWaiting] = {};
  std::vector<float> wanted_;  // heights: per waiting strand, per point
};

}  // namespace kestrane
