// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/curl_clumps.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "core/base/parallel.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

/// The middle of strands: each of its segments runs along the mean of what the strands do over the
/// same stretch of length from their roots. Strands that have ended have no say.
class AxisSum {
 public:
  explicit AxisSum(float longest) : longest_(longest) {}

  /// A strand with a finite length above 0.
  void add(std::span<const Vec3f> points) {
    std::size_t segment = 0;
    float before = 0.0f, here = distance(points[0], points[1]);
    Vec3f last = points[0];
    for (std::size_t k = 0; k < CurlAxis::segments; ++k) {
      const float place =
          longest_ * static_cast<float>(k + 1) / static_cast<float>(CurlAxis::segments);
      while (before + here < place && segment + 2 < points.size()) {
        before += here;
        ++segment;
        here = distance(points[segment], points[segment + 1]);
      }
      const bool ended = before + here < place;
      const float share = ended ? 1.0f : here > 0.0f ? (place - before) / here : 0.0f;
      const Vec3f point = lerp(points[segment], points[segment + 1], share);
      steps_[k] += point - last;
      last = point;
      if (ended) return;
    }
  }

  std::span<const Vec3f> steps() const { return steps_; }

 private:
  float longest_;
  Vec3f steps_[CurlAxis::segments];
};

}  // namespace

Vec3f curlHint(const ScalpMesh* surface, StrandRoot root) {
  if (surface == nullptr || !surface->hasFace(root.face)) return {};
  const ScalpMesh::Triangle& corners = surface->triangles()[static_cast<std::size_t>(root.face)];
  const auto edgeTo = [&](std::size_t corner) {
    return surface->points()[static_cast<std::size_t>(corners[corner])] -
           surface->points()[static_cast<std::size_t>(corners[0])];
  };
  const Vec3f first = edgeTo(1);
  return lengthSquared(first) > 0.0f ? first : edgeTo(2);
}

CurlClumps::CurlClumps(const StrandSet& strands, std::span<const float> numbers,
                       const ScalpMesh* surface)
    : clumpOf_(strands.strandCount(), none) {
  const std::size_t count = strands.strandCount();
  std::vector<float> lengths(count);
  parallelRange(0, count, 256, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) lengths[i] = polylineLength(strands.strandPoints(i));
  });

  // Clumps are numbered in the order of their first strands.
  std::unordered_map<float, std::uint32_t> found;
  std::vector<std::uint32_t> sizes;
  for (std::size_t i = 0; i < count; ++i) {
    if (!(numbers[i] >= 0.0f) || !canCurl(lengths[i])) continue;
    const auto [entry, isNew] =
        found.try_emplace(numbers[i], static_cast<std::uint32_t>(clumps_.size()));
    if (isNew) {
      clumps_.push_back({numbers[i], 0.0f, {}, false});
      sizes.push_back(0);
    }
    clumpOf_[i] = entry->second;
    ++sizes[entry->second];
  }
  std::vector<std::uint32_t> ends(clumps_.size());
  std::uint32_t end = 0;
  for (std::size_t c = 0; c < sizes.size(); ++c) ends[c] = end += sizes[c];
  std::vector<std::uint32_t> members(end);
  std::vector<std::uint32_t> next(ends);
  for (std::size_t i = count; i-- > 0;) {
    if (clumpOf_[i] != none) members[--next[clumpOf_[i]]] = static_cast<std::uint32_t>(i);
  }

  parallelRange(0, clumps_.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t c = first; c < last; ++c) {
      Clump& clump = clumps_[c];
      const std::span<const std::uint32_t> mine(members.data() + ends[c] - sizes[c], sizes[c]);
      for (const std::uint32_t i : mine) clump.longest = std::max(clump.longest, lengths[i]);
      if (mine.size() < 2) continue;
      AxisSum sum(clump.longest);
      for (const std::uint32_t i : mine) sum.add(strands.strandPoints(i));
      Vec3f lead;
      for (std::size_t k = 0; k < mine.size() && lead == Vec3f{}; ++k) {
        lead = curlHint(surface, strands.roots()[mine[k]]);
      }
      clump.axis.length = clump.longest;
      clump.axis.frames.transport(sum.steps(), lead);
      clump.hasAxis = true;
    }
  });
}

}  // namespace kestrane
