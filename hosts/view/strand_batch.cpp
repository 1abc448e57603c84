// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/strand_batch.h"

#include <algorithm>
#include <cmath>

#include "core/base/parallel.h"

namespace kestrane {

namespace {

std::uint32_t unorm8(float value) {
  return static_cast<std::uint32_t>(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f);
}

std::uint32_t snorm16(float value) {
  const auto number =
      static_cast<std::int16_t>(std::lround(std::clamp(value, -1.0f, 1.0f) * 32767));
  return static_cast<std::uint16_t>(number);
}

/// A unit vector on the faces of an octahedron, unfolded (Meyer et al. 2010).
std::uint32_t packDirection(Vec3f v) {
  const float size = std::abs(v.x) + std::abs(v.y) + std::abs(v.z);
  float x = v.x / size, y = v.y / size;
  if (v.z < 0.0f) {
    const float folded = (1.0f - std::abs(y)) * (x < 0.0f ? -1.0f : 1.0f);
    y = (1.0f - std::abs(x)) * (y < 0.0f ? -1.0f : 1.0f);
    x = folded;
  }
  return snorm16(x) | snorm16(y) << 16;
}

/// Square roots spend the eight bits where the eye sees differences.
std::uint32_t packColor(Vec3f color, float along) {
  const auto root = [](float value) { return unorm8(std::sqrt(std::max(value, 0.0f))); };
  return root(color.x) | root(color.y) << 8 | root(color.z) << 16 | unorm8(along) << 24;
}

}  // namespace

StrandBatches::StrandBatches(const StrandSet& strands, const StrandColorReader& colors,
                             bool ribbons, std::size_t stride)
    : strands_(strands), colors_(colors), ribbons_(ribbons) {
  const auto& offsets = strands.offsets();
  for (std::size_t strand = 0; strand < strands.strandCount(); strand += stride) {
    if (offsets[strand + 1] - offsets[strand] >= 2) {
      order_.push_back(static_cast<std::uint32_t>(strand));
    }
  }
}

bool StrandBatches::next(StrandBatch& batch) {
  const auto& offsets = strands_.offsets();
  const auto pointsOf = [&](std::size_t strand) {
    return std::min<std::size_t>(offsets[strand + 1] - offsets[strand], StrandBatch::mostPoints);
  };
  const std::size_t first = next_;
  std::vector<std::uint32_t> starts{0};
  while (next_ < order_.size()) {
    const std::size_t end = starts.back() + pointsOf(order_[next_]);
    if (end > StrandBatch::mostPoints) break;
    starts.push_back(static_cast<std::uint32_t>(end));
    ++next_;
  }
  const std::size_t strandCount = next_ - first;
  batch.points.resize(starts.back());
  batch.looks.resize(2 * std::size_t{starts.back()});
  const std::size_t sides = ribbons_ ? 2 : 1;
  batch.indices.resize(sides * starts.back() + strandCount);
  parallelRange(0, strandCount, 256, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      const std::size_t strand = order_[first + i];
      const std::size_t from = offsets[strand], count = pointsOf(strand);
      const Vec3f* const points = strands_.points().data() + from;
      const float* const widths = strands_.widths().data() + from;
      std::uint32_t* index = batch.indices.data() + sides * starts[i] + i;
      Vec3f color = colors_.at(strand, from);
      Vec3f tangent{0.0f, 1.0f, 0.0f};
      for (std::size_t k = 0; k < count; ++k) {
        const std::uint32_t at = starts[i] + static_cast<std::uint32_t>(k);
        const Vec3f chord = points[std::min(k + 1, count - 1)] - points[k == 0 ? 0 : k - 1];
        tangent = normalize(chord, tangent);
        if (colors_.perPoint()) color = colors_.at(strand, from + k);
        const float along = static_cast<float>(k) / static_cast<float>(count - 1);
        batch.points[at] = {points[k].x, points[k].y, points[k].z, widths[k]};
        batch.looks[2 * std::size_t{at}] = packColor(color, along);
        batch.looks[2 * std::size_t{at} + 1] = packDirection(tangent);
        *index++ = 2 * at;
        if (ribbons_) *index++ = 2 * at + 1;
      }
      *index = StrandBatch::restart;
    }
  });
  return strandCount > 0;
}

}  // namespace kestrane
