// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/guide_lookup.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

namespace kestrane {

namespace {

constexpr float endlessReach = 1e18f;
constexpr double mostCells = 1 << 20;
constexpr double mostEntries = 1 << 22;

/// The squared distance from a point to a box.
float boxDistanceSquared(Vec3f p, Vec3f low, Vec3f high) {
  const Vec3f outside = max(max(low - p, p - high), {0.0f, 0.0f, 0.0f});
  return lengthSquared(outside);
}

}  // namespace

GuideLookup::GuideLookup(std::span<const Vec3f> roots, std::span<const float> reaches) {
  // Farther than any scene: a grid of spheres that wide would be one cell, if numbers hold it.
  const bool endless = std::any_of(reaches.begin(), reaches.end(),
                                   [](float reach) { return !(reach < endlessReach); });
  const bool placed = std::all_of(roots.begin(), roots.end(), [](Vec3f p) {
    return lengthSquared(p) < endlessReach * endlessReach;
  });
  if (endless || !placed) {
    everywhere_.resize(roots.size());
    std::iota(everywhere_.begin(), everywhere_.end(), 0u);
    return;
  }
  if (roots.empty()) return;
  low_ = {FLT_MAX, FLT_MAX, FLT_MAX};
  Vec3f high{-FLT_MAX, -FLT_MAX, -FLT_MAX};
  for (std::size_t g = 0; g < roots.size(); ++g) {
    const Vec3f reach{reaches[g], reaches[g], reaches[g]};
    low_ = min(low_, roots[g] - reach);
    high = max(high, roots[g] + reach);
  }
  std::vector<float> sorted(reaches.begin(), reaches.end());
  std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2),
                   sorted.end());
  const Vec3f extent = high - low_;
  const float widest = std::max({extent.x, extent.y, extent.z, 1e-6f});
  cell_ = std::max(0.4f * sorted[sorted.size() / 2], widest / 256.0f);
  // Few wide spheres among many small ones would fill too many cells: coarser cells then.
  const auto cellsAlong = [&](float size) { return std::floor(size / cell_) + 1.0; };
  for (;; cell_ *= 1.5f) {
    const double cells = cellsAlong(extent.x) * cellsAlong(extent.y) * cellsAlong(extent.z);
    double entries = 0.0;
    for (const float reach : reaches) entries += std::pow(cellsAlong(2.0f * reach) + 1.0, 3.0);
    if (cells <= mostCells && (entries <= mostEntries || cells <= 64.0)) break;
  }
  for (int axis = 0; axis < 3; ++axis) {
    size_[axis] = static_cast<std::int64_t>(cellsAlong(extent[axis]));
  }
  const auto forEachCell = [&](std::size_t g, const auto& visit) {
    std::int64_t first[3], last[3];
    for (int axis = 0; axis < 3; ++axis) {
      const auto cellOf = [&](float place) {
        return std::clamp<std::int64_t>(
            static_cast<std::int64_t>(std::floor((place - low_[axis]) / cell_)), 0,
            size_[axis] - 1);
      };
      first[axis] = cellOf(roots[g][axis] - reaches[g]);
      last[axis] = cellOf(roots[g][axis] + reaches[g]);
    }
    // Cells a little larger than they are, so that rounding leaves no point without its guide.
    const float slack = 1e-4f * cell_;
    for (std::int64_t z = first[2]; z <= last[2]; ++z) {
      for (std::int64_t y = first[1]; y <= last[1]; ++y) {
        for (std::int64_t x = first[0]; x <= last[0]; ++x) {
          const Vec3f corner =
              low_ +
              Vec3f{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)} * cell_;
          const Vec3f box{slack, slack, slack};
          const Vec3f side{cell_, cell_, cell_};
          if (boxDistanceSquared(roots[g], corner - box, corner + side + box) >
              reaches[g] * reaches[g]) {
            continue;
          }
          visit(static_cast<std::size_t>((z * size_[1] + y) * size_[0] + x));
        }
      }
    }
  };
  offsets_.assign(static_cast<std::size_t>(size_[0] * size_[1] * size_[2]) + 1, 0);
  for (std::size_t g = 0; g < roots.size(); ++g) {
    forEachCell(g, [&](std::size_t cell) { ++offsets_[cell + 1]; });
  }
  std::partial_sum(offsets_.begin(), offsets_.end(), offsets_.begin());
  guides_.resize(offsets_.back());
  std::vector<std::uint32_t> filled(offsets_.begin(), offsets_.end() - 1);
  for (std::size_t g = 0; g < roots.size(); ++g) {
    forEachCell(g,
                [&](std::size_t cell) { guides_[filled[cell]++] = static_cast<std::uint32_t>(g); });
  }
}

std::span<const std::uint32_t> GuideLookup::at(Vec3f position) const {
  if (offsets_.empty()) return everywhere_;
  std::size_t cell = 0;
  for (int axis = 2; axis >= 0; --axis) {
    const float place = (position[axis] - low_[axis]) / cell_;
    if (!(place >= 0.0f) || place >= static_cast<float>(size_[axis])) return {};
    cell = cell * static_cast<std::size_t>(size_[axis]) + static_cast<std::size_t>(place);
  }
  return {guides_.data() + offsets_[cell], guides_.data() + offsets_[cell + 1]};
}

}  // namespace kestrane
