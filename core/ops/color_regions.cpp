// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/color_regions.h"

#include <algorithm>
#include <cmath>

#include "core/base/parallel.h"
#include "core/data/kd_tree.h"

namespace kestrane {

namespace {

// Two colours nearer than this are one region.
constexpr float sameColor = 1e-3f;
// How far a strand's colour may lie from a region's, or from the mix of two.
constexpr float nearColor = 0.05f;
// Soft paint lies between regions' colours that are near it; of many others there is no need to try
// every two.
constexpr std::size_t mostMixed = 8;

/// The region of a colour. One that lies between two regions' is soft paint and joins the nearer;
/// one off every line between two is a region of its own that no guide is rooted on.
std::int32_t regionOf(Vec3f color, const KdTree& tree, std::span<const Vec3f> colors) {
  KdHit hits[mostMixed];
  const std::size_t found = tree.nearest(color, hits);
  if (found == 0) return -1;
  const auto region = static_cast<std::int32_t>(hits[0].index);
  if (std::sqrt(hits[0].distanceSquared) <= nearColor) return region;
  for (std::size_t i = 0; i < found; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const Vec3f from = colors[hits[i].index], way = colors[hits[j].index] - from;
      const float t = std::clamp(dot(color - from, way) / lengthSquared(way), 0.0f, 1.0f);
      if (distance(color, from + way * t) <= nearColor) return region;
    }
  }
  return -1;
}

}  // namespace

ColorRegions findColorRegions(const ColorMap& map, std::span<const StrandRoot> guides,
                              std::span<const StrandRoot> strands) {
  ColorRegions regions;
  std::vector<Vec3f> colors;
  for (const StrandRoot root : guides) {
    const Vec3f color = map.at(root);
    auto same = std::find_if(colors.begin(), colors.end(),
                             [&](Vec3f other) { return distance(color, other) <= sameColor; });
    if (same == colors.end()) same = colors.insert(same, color);
    regions.ofGuides.push_back(static_cast<std::int32_t>(same - colors.begin()));
  }
  const KdTree tree(colors);
  regions.ofStrands.resize(strands.size());
  parallelRange(0, strands.size(), 256, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      regions.ofStrands[i] = regionOf(map.at(strands[i]), tree, colors);
    }
  });
  return regions;
}

}  // namespace kestrane
