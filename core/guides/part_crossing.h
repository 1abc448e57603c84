// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "core/guides/parts.h"

namespace kestrane {

/// Answers, for very many pairs of surface points, whether the way from one to the other crosses a
/// part.
///
/// Each part stands on the scalp as a curtain: its polyline, drawn out along the surface normals at
/// its points to both sides of the skin. The straight segment between two surface points crosses
/// the part where it runs through the curtain, strictly between its ends. A straight segment dips
/// under a curved scalp by at most half its length, and a part's own segments do the same, so the
/// curtain counts to half the length of both together above and below the part and no further: what
/// lies on the far side of the head is not parted by it. Beyond its ends a part parts nothing.
///
/// Immutable once made; queries may run from many threads and allocate nothing.
class PartCrossing {
 public:
  PartCrossing() = default;
  /// Points whose face the scalp lacks are left out of their part.
  PartCrossing(const PartData& data, const ScalpMesh& scalp);

  /// True where no query could cross anything.
  bool empty() const { return nodes_.empty(); }
  bool crosses(Vec3f from, Vec3f to) const;

 private:
  struct Post {
    Vec3f position;
    Vec3f normal;
  };
  /// A box tree in the order of a walk from the top, each node before all below it. The box holds
  /// the posts and, around them, half of their longest segment.
  struct Node {
    Vec3f low;
    Vec3f high;
    std::uint32_t next;   // the node to go on with after skipping this one
    std::uint32_t first;  // of a leaf: its first post
    std::uint32_t count;  // of a leaf: its number of segments; 0 for an inner node
  };
  struct Run {
    std::uint32_t first;
    std::uint32_t count;
  };

  void addNodes(const std::vector<Run>& runs, std::size_t begin, std::size_t end);
  bool crossesRun(const Node& leaf, Vec3f from, Vec3f way, float halfLength) const;

  std::vector<Post> posts_;
  std::vector<Node> nodes_;
};

}  // namespace kestrane
