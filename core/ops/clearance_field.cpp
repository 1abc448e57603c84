// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "core/base/parallel.h"

namespace kestrane {

namespace {

constexpr float cellsAlongDiagonal = 144.0f;
constexpr float bandCells = 8.0f;

}  // namespace

ClearanceField::ClearanceField(const ScalpMesh& mesh) {
  Vec3f low{FLT_MAX, FLT_MAX, FLT_MAX}, high{-FLT_MAX, -FLT_MAX, -FLT_MAX};
  for (const Vec3f p : mesh.points()) {
    if (!isFinite(p)) continue;
    low = min(low, p);
    high = max(high, p);
  }
  const float diagonal = distance(low, high);
  if (mesh.triangleCount() == 0 || !std::isfinite(diagonal) || !(diagonal > 0.0f)) return;
  cell_ = diagonal / cellsAlongDiagonal;
  band_ = bandCells * cell_;
  const float margin = band_ + cell_;
  low_ = low - Vec3f{margin, margin, margin};
  for (int axis = 0; axis < 3; ++axis) {
    size_[axis] =
        static_cast<std::int64_t>(std::ceil((high[axis] - low[axis] + 2.0f * margin) / cell_)) + 1;
  }
  const std::size_t rows = static_cast<std::size_t>(size_[1] * size_[2]);
  const auto columns = static_cast<std::size_t>(size_[0]);
  heights_.assign(rows * columns, band_);
  parallelRange(0, rows, 8, [&](std::size_t first, std::size_t last) {
    for (std::size_t row = first; row < last; ++row) {
      const auto y = static_cast<std::int64_t>(row) % size_[1];
      const auto z = static_cast<std::int64_t>(row) / size_[1];
      for (std::size_t x = 0; x < columns;) {
        const Vec3f p =
            low_ +
            Vec3f{static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)} * cell_;
        const SurfaceHit hit = mesh.closestPoint(p);
        if (hit.root.face < 0) {
          ++x;
          continue;
        }
        const float up = dot(p - hit.position, mesh.normalAt(hit.root));
        // Beside a border the nearest point says nothing of above or below.
        const bool beside = std::abs(up) < 0.5f * hit.distance;
        const float height = beside ? band_ : std::copysign(std::min(hit.distance, band_), up);
        // Far from the surface its distance tells how many nodes need no look.
        const std::size_t alike =
            1 + static_cast<std::size_t>(std::max(hit.distance - band_, 0.0f) / cell_);
        for (const std::size_t end = std::min(x + alike, columns); x < end; ++x) {
          heights_[row * columns + x] = height;
        }
      }
    }
  });
}

bool ClearanceField::find(Vec3f position, Place& place) const {
  const Vec3f at = (position - low_) / cell_;
  for (int axis = 0; axis < 3; ++axis) {
    if (!(at[axis] >= 0.0f) || at[axis] >= static_cast<float>(size_[axis] - 1)) return false;
  }
  const auto x = static_cast<std::int64_t>(at.x), y = static_cast<std::int64_t>(at.y),
             z = static_cast<std::int64_t>(at.z);
  place.node = static_cast<std::size_t>((z * size_[1] + y) * size_[0] + x);
  place.x = at.x - static_cast<float>(x);
  place.y = at.y - static_cast<float>(y);
  place.z = at.z - static_cast<float>(z);
  return true;
}

float ClearanceField::heightAt(Vec3f position) const {
  Place place;
  if (!find(position, place)) return band_;
  const float* corner = heights_.data() + place.node;
  const std::size_t row = static_cast<std::size_t>(size_[0]);
  const std::size_t slice = row * static_cast<std::size_t>(size_[1]);
  const auto along = [&](std::size_t offset) {
    return lerp(corner[offset], corner[offset + 1], place.x);
  };
  return lerp(lerp(along(0), along(row), place.y), lerp(along(slice), along(slice + row), place.y),
              place.z);
}

Vec3f ClearanceField::upAt(Vec3f position) const {
  const float step = 0.5f * cell_;
  const auto slope = [&](Vec3f way) { return heightAt(position + way) - heightAt(position - way); };
  return normalize({slope({step, 0, 0}), slope({0, step, 0}), slope({0, 0, step})});
}

}  // namespace kestrane
