// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/kd_tree.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "core/base/parallel.h"
#include "core/data/box_tree.h"

namespace kestrane {

namespace {

constexpr int kLanes = 8;

/// The points of one leaf side by side. Lanes without a point hold no numbers, so that no
/// comparison accepts them.
struct alignas(64) Packet {
  float position[2][3][4];
  std::uint32_t index[kLanes];
};

/// Distance and index in one word: comparing words compares distances first, then indices.
std::uint64_t keyOf(float distanceSquared, std::uint32_t index) {
  return static_cast<std::uint64_t>(std::bit_cast<std::uint32_t>(distanceSquared)) << 32 | index;
}
std::uint64_t keyOf(KdHit hit) {
  return keyOf(hit.distanceSquared, hit.index);
}

KdHit hitOf(std::uint64_t key) {
  return {static_cast<std::uint32_t>(key),
          std::bit_cast<float>(static_cast<std::uint32_t>(key >> 32))};
}

/// The next number after one that is not negative: the first squared distance that is too far.
float justPast(float x) {
  return x < FLT_MAX ? std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) + 1) : FLT_MAX;
}

}  // namespace

struct KdTree::Tree {
  std::vector<detail::BoxNode> nodes;
  std::vector<Packet> packets;
  std::int32_t root = detail::BoxTreeShape::kNoChild;
};

KdTree::KdTree(std::span<const Vec3f> points) : size_(points.size()) {
  if (points.empty()) return;
  const detail::BoxTreeShape shape = detail::makeBoxTreeShape(points, kLanes + 1);
  auto tree = std::make_shared<Tree>();
  tree->root = shape.root;
  tree->packets.resize(shape.leafCount());
  std::vector<detail::Box> boxes(shape.leafCount());
  isolatedRange(0, boxes.size(), 4096, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      Packet& packet = tree->packets[i];
      constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
      std::fill_n(&packet.position[0][0][0], 3 * kLanes, kNone);
      const auto leaf = shape.leaf(i);
      for (std::size_t k = 0; k < leaf.size(); ++k) {
        const Vec3f point = points[leaf[k]];
        packet.index[k] = leaf[k];
        if (!isFinite(point)) continue;
        for (int axis = 0; axis < 3; ++axis) packet.position[k / 4][axis][k % 4] = point[axis];
        boxes[i].add(point);
      }
    }
  });
  detail::Box whole;
  tree->nodes = detail::fillBoxes(shape, boxes, whole);
  tree_ = std::move(tree);
}

KdHit KdTree::nearest(Vec3f position, float maxDistance) const {
  KdHit hit{0, FLT_MAX};
  nearest(position, std::span(&hit, 1), maxDistance);
  return hit;
}

std::size_t KdTree::nearest(Vec3f position, std::span<KdHit> hits, float maxDistance) const {
  if (tree_ == nullptr || hits.empty() || !isFinite(position) || !(maxDistance >= 0.0f)) return 0;
  float limit = justPast(maxDistance * maxDistance);
  std::size_t count = 0;
  const Vec3x4 positions = splat(position.x, position.y, position.z);
  detail::visitByDistance(
      tree_->nodes.data(), tree_->packets.data(), tree_->root, limit,
      [&](const detail::BoxNode& node) { return detail::boxDistances(node, positions); },
      [&](const Packet& packet) {
        alignas(16) float distances[kLanes];
        for (int half = 0; half < 2; ++half) {
          const Vec3x4 offset = load4(packet.position[half]) - positions;
          store4(distances + 4 * half, dot(offset, offset));
        }
        for (int k = 0; k < kLanes; ++k) {
          if (!(distances[k] < limit)) continue;
          std::uint64_t key = keyOf({packet.index[k], distances[k]});
          // Ripples through all slots without a branch that depends on the distances: for the dozen
          // neighbours usually asked for, cheaper than a search for the place.
          for (std::size_t place = 0; place < count; ++place) {
            const std::uint64_t here = keyOf(hits[place]);
            hits[place] = hitOf(key < here ? key : here);
            key = key < here ? here : key;
          }
          if (count < hits.size()) hits[count++] = hitOf(key);
          // Points at the last one's distance may still win by their index.
          if (count == hits.size()) limit = justPast(hits[count - 1].distanceSquared);
        }
      });
  return count;
}

}  // namespace kestrane
