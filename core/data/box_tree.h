// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <bit>
#include <cfloat>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "core/base/lanes.h"
#include "core/base/vec.h"

namespace kestrane::detail {

/// The structure of a balanced tree over items that have a centre each, without their boxes: every
/// range of at least `leafLimit` items is split at its middle index along the axis on which its
/// centres spread farthest, so the depth is bound by the logarithm of the count. Two splits make
/// one node of up to four children. A child number of 0 or more is a node, always later than its
/// parent; a negative one is leaf ~number.
struct BoxTreeShape {
  static constexpr std::int32_t kNoChild = INT32_MAX;

  std::int32_t root = kNoChild;  // kNoChild: no items
  std::vector<std::array<std::int32_t, 4>> children;
  std::vector<std::uint32_t> order;       // item numbers, leaf by leaf, ascending within a leaf
  std::vector<std::uint32_t> leafStarts;  // into `order`, one per leaf, plus one

  std::size_t leafCount() const { return leafStarts.empty() ? 0 : leafStarts.size() - 1; }
  std::span<const std::uint32_t> leaf(std::size_t number) const {
    return std::span(order).subspan(leafStarts[number],
                                    leafStarts[number + 1] - leafStarts[number]);
  }
};

/// The shape over these centres; ones that are not finite count as the origin. Equal centres are
/// told apart by item number, so the shape is the same at every thread count and with every
/// standard library. Runs isolated loops: callable under a lock.
BoxTreeShape makeBoxTreeShape(std::span<const Vec3f> centers, std::size_t leafLimit);

/// A box from its lowest to its highest corner; as made, it is empty and is far from everything.
struct Box {
  Vec3f low{FLT_MAX, FLT_MAX, FLT_MAX};
  Vec3f high{-FLT_MAX, -FLT_MAX, -FLT_MAX};

  void add(Vec3f point) { low = min(low, point), high = max(high, point); }
  void add(const Box& box) { low = min(low, box.low), high = max(high, box.high); }
};

/// The boxes of up to four children side by side, two cache lines in all.
struct alignas(64) BoxNode {
  float low[3][4];
  float high[3][4];
  std::int32_t child[4];
};

/// The nodes with their boxes, bottom-up from the boxes of the leaves; `whole` becomes the box of
/// all. Only boxes of finite extent, or empty ones.
std::vector<BoxNode> fillBoxes(const BoxTreeShape& shape, std::span<const Box> leafBoxes,
                               Box& whole);

/// The squared distances from a point to the four boxes; 0 inside.
inline Float4 boxDistances(const BoxNode& node, const Vec3x4& point) {
  const Vec3x4 below = load4(node.low) - point, above = point - load4(node.high);
  const Float4 zero = splat(0.0f);
  const Vec3x4 outside{higher(higher(below.x, above.x), zero),
                       higher(higher(below.y, above.y), zero),
                       higher(higher(below.z, above.z), zero)};
  return dot(outside, outside);
}

/// Visits the leaves of a tree, the children of a node by ascending distance, and skips all that is
/// not nearer than `limit`, which visit(leaf) may lower. `leaves` holds what belongs to each leaf.
/// nodeDistances(node) gives a Float4 of numbers of 0 or more. Ties go to the lower child first.
/// Allocates nothing.
template <class Leaf, class NodeDistances, class Visit>
inline void visitByDistance(const BoxNode* nodes, const Leaf* leaves, std::int32_t root,
                            const float& limit, NodeDistances&& nodeDistances, Visit&& visit) {
  // A distance's bits and a child number in one word: distances are never negative, so the words
  // sort as the distances do. 4^16 leaves hold every item number, and a node leaves 3 children
  // behind on the way down.
  std::uint64_t stack[3 * 16 + 8];
  std::size_t size = 0;
  std::int32_t at = root;
  if (at == BoxTreeShape::kNoChild) return;
  for (;;) {
    if (at < 0) {
      visit(leaves[~at]);
    } else {
      const BoxNode& node = nodes[at];
      alignas(16) float distances[4];
      store4(distances, nodeDistances(node));
      std::uint64_t keys[4];
      std::size_t count = 0;
      for (int k = 0; k < 4; ++k) {
        const std::uint64_t key =
            static_cast<std::uint64_t>(std::bit_cast<std::uint32_t>(distances[k])) << 32 |
            static_cast<std::uint32_t>(node.child[k]);
        const bool near = distances[k] < limit;
        keys[k] = near ? key : 0;
        count += near;
      }
      // Descending, so that the nearest comes off the stack first and what is too far, 0, stays
      // above its end.
      const auto order = [&keys](int a, int b) {
        const std::uint64_t high = keys[a] > keys[b] ? keys[a] : keys[b];
        keys[b] = keys[a] > keys[b] ? keys[b] : keys[a];
        keys[a] = high;
      };
      order(0, 1), order(2, 3), order(0, 2), order(1, 3), order(1, 2);
      for (int k = 0; k < 4; ++k) stack[size + k] = keys[k];
      // Most of these will be visited, and their memory can be on its way while the first is.
      for (std::size_t k = 0; k < count; ++k) {
        const auto child = static_cast<std::int32_t>(static_cast<std::uint32_t>(keys[k]));
        if (child < 0) {
          prefetch(leaves[~child]);
        } else {
          prefetch(nodes[child]);
        }
      }
      size += count;
    }
    std::uint64_t next;
    do {
      if (size == 0) return;
      next = stack[--size];
    } while (!(std::bit_cast<float>(static_cast<std::uint32_t>(next >> 32)) < limit));
    at = static_cast<std::int32_t>(static_cast<std::uint32_t>(next));
  }
}

}  // namespace kestrane::detail
