// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// The tube around a guide in which its children lie.
struct GuideTube {
  std::vector<float> radius{0.1f, 0.1f};  // evenly spaced from root to tip
  float twist = 0.0f;                     // radians over the whole length

  /// The radius at the share t of the length, mixed linearly; 0 where there are no radii.
  float radiusAt(float t) const;
  bool operator==(const GuideTube&) const = default;
};

/// A named set of guides. A group with a parent group holds guides that follow the parent's.
struct GuideGroup {
  std::uint32_t id = 0;
  std::string name;          // unique within a hierarchy
  std::uint32_t parent = 0;  // 0: a root group

  bool operator==(const GuideGroup&) const = default;
};

/// One guide curve as it is edited and stored.
struct GuideRecord {
  std::uint64_t id = 0;
  std::uint32_t group = 0;
  std::uint64_t parent = 0;  // the guide of the parent group that it follows, 0: a free guide
  bool locked = false;       // a child that keeps its own points
  StrandRoot root;           // face -1: not bound to the scalp
  GuideTube tube;
  /// The up vector of the frames at the root. A following child keeps the one that it was made with
  /// wherever its parent leads it.
  Vec3f frameUp{1.0f, 0.0f, 0.0f};
  std::map<std::string, float> attributes;
  std::map<std::string, std::vector<float>> pointAttributes;  // pointCount() values each
  std::vector<Vec3f> points;                                  // root first
  std::vector<Vec3f> rootLocal;          // the points in the surface frame at the root, or empty
  Vec3f frameUpLocal{1.0f, 0.0f, 0.0f};  // frameUp in that frame; as here where rootLocal is empty
  std::vector<Vec3f> offsets;            // of a following child: side, up, tangent per point

  /// Whether the points come from the parent's curve and the offsets.
  bool follows() const { return parent != 0 && !locked; }
  /// Of a child that was read and not posed yet, the number of its offsets.
  std::size_t pointCount() const { return points.empty() ? offsets.size() : points.size(); }
  /// Forgets the place on the surface, which the next update from a scalp takes anew.
  void unbind() {
    rootLocal.clear();
    frameUpLocal = {1.0f, 0.0f, 0.0f};
  }
  bool operator==(const GuideRecord&) const = default;
};

}  // namespace kestrane
