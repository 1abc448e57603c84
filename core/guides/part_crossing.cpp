// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/part_crossing.h"

#include <algorithm>
#include <cmath>

namespace kestrane {

namespace {

constexpr std::uint32_t segmentsPerLeaf = 8;

}  // namespace

PartCrossing::PartCrossing(const PartData& data, const ScalpMesh& scalp) {
  std::vector<Run> runs;
  for (const Part& part : data.parts) {
    const auto first = static_cast<std::uint32_t>(posts_.size());
    for (const StrandRoot& point : part.points) {
      if (scalp.hasFace(point.face)) {
        posts_.push_back({scalp.positionAt(point), scalp.normalAt(point)});
      }
    }
    const auto end = static_cast<std::uint32_t>(posts_.size());
    for (std::uint32_t at = first; at + 1 < end; at += segmentsPerLeaf) {
      runs.push_back({at, std::min(segmentsPerLeaf, end - 1 - at)});
    }
  }
  if (!runs.empty()) addNodes(runs, 0, runs.size());
}

void PartCrossing::addNodes(const std::vector<Run>& runs, std::size_t begin, std::size_t end) {
  const std::size_t place = nodes_.size();
  nodes_.emplace_back();
  Node node{};
  if (end - begin == 1) {
    const Run run = runs[begin];
    node.first = run.first;
    node.count = run.count;
    node.low = node.high = posts_[run.first].position;
    float longest = 0.0f;
    for (std::uint32_t i = run.first; i < run.first + run.count; ++i) {
      const Vec3f next = posts_[i + 1].position;
      longest = std::max(longest, distance(posts_[i].position, next));
      node.low = min(node.low, next);
      node.high = max(node.high, next);
    }
    const Vec3f margin = Vec3f{0.5f, 0.5f, 0.5f} * longest;
    node.low -= margin;
    node.high += margin;
  } else {
    const std::size_t middle = begin + (end - begin) / 2;
    addNodes(runs, begin, middle);
    const std::size_t second = nodes_.size();
    addNodes(runs, middle, end);
    node.low = min(nodes_[place + 1].low, nodes_[second].low);
    node.high = max(nodes_[place + 1].high, nodes_[second].high);
  }
  node.next = static_cast<std::uint32_t>(nodes_.size());
  nodes_[place] = node;
}

bool PartCrossing::crosses(Vec3f from, Vec3f to) const {
  const Vec3f way = to - from;
  const float halfLength = 0.5f * length(way);
  const Vec3f margin = Vec3f{halfLength, halfLength, halfLength};
  const Vec3f low = min(from, to) - margin, high = max(from, to) + margin;
  for (std::size_t i = 0; i < nodes_.size();) {
    const Node& node = nodes_[i];
    const bool apart = node.low.x > high.x || node.high.x < low.x || node.low.y > high.y ||
                       node.high.y < low.y || node.low.z > high.z || node.high.z < low.z;
    if (apart) {
      i = node.next;
      continue;
    }
    if (node.count > 0 && crossesRun(node, from, way, halfLength)) return true;
    ++i;
  }
  return false;
}

bool PartCrossing::crossesRun(const Node& leaf, Vec3f from, Vec3f way, float halfLength) const {
  // The plane through the segment and a post's normal has the post's own normal line in it where
  // this is 0; posts on either side of it have curtain between them that the plane cuts.
  const auto sideOf = [&](const Post& post) {
    return dot(cross(way, post.normal), post.position - from);
  };
  float before = sideOf(posts_[leaf.first]);
  for (std::uint32_t i = leaf.first; i < leaf.first + leaf.count; ++i) {
    const float side = before, nextSide = sideOf(posts_[i + 1]);
    before = nextSide;
    // Zero counts as one of the sides, so that a cut through a post is found exactly once.
    if ((side >= 0.0f) == (nextSide >= 0.0f)) continue;
    const Post &a = posts_[i], &b = posts_[i + 1];
    const float s = side / (side - nextSide);
    const Vec3f normal = lerp(a.normal, b.normal, s);
    const Vec3f away = lerp(a.position, b.position, s) - from;
    // Where the segment and the normal line meet: away + height * normal = share * way, solved in
    // the plane that both span.
    const float ww = lengthSquared(way), wn = dot(way, normal), nn = lengthSquared(normal);
    const float aw = dot(away, way), an = dot(away, normal);
    const float area = ww * nn - wn * wn;
    if (!(area > 1e-12f * ww * nn)) continue;
    const float share = (aw * nn - an * wn) / area;
    const float height = (aw * wn - an * ww) / area * std::sqrt(nn);
    const float limit = halfLength + 0.5f * distance(a.position, b.position);
    if (share > 0.0f && share < 1.0f && std::abs(height) <= limit) return true;
  }
  return false;
}

}  // namespace kestrane
