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
  perCell_ = 1.0f / cell_;
  band_ = bandCells * cell_;
  const float margin = band_ + cell_;
  low_ = low - Vec3f{margin, margin, margin};
  for (int axis = 0; axis < 3; ++axis) {
    size_[axis] =
        static_cast<std::int64_t>(std::ceil((high[axis] - low[axis] + 2.0f * margin) / cell_)) + 1;
  }
  end_ = {static_cast<float>(size_[0] - 1), static_cast<float>(size_[1] - 1),
          static_cast<float>(size_[2] - 1)};
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

bool ClearanceField::find(Vec3f position, Cell& cell) const {
  const Vec3f at = (position - low_) * perCell_;
  // Written so that a place that is no number lies outside.
  const bool inside = (at.x >= 0.0f) & (at.y >= 0.0f) & (at.z >= 0.0f) & (at.x < end_.x) &
                      (at.y < end_.y) & (at.z < end_.z);
  if (!inside) return false;
  const auto x = static_cast<std::int32_t>(at.x), y = static_cast<std::int32_t>(at.y),
             z = static_cast<std::int32_t>(at.z);
  cell.corner = heights_.data() + (z * size_[1] + y) * size_[0] + x;
  cell.share = {at.x - static_cast<float>(x), at.y - static_cast<float>(y),
                at.z - static_cast<float>(z)};
  return true;
}

float ClearanceField::heightAt(Vec3f position) const {
  Cell cell;
  if (!find(position, cell)) return band_;
  const std::int64_t row = size_[0], slice = size_[0] * size_[1];
  const auto along = [&](std::int64_t offset) {
    return lerp(cell.corner[offset], cell.corner[offset + 1], cell.share.x);
  };
  return lerp(lerp(along(0), along(row), cell.share.y),
              lerp(along(slice), along(slice + row), cell.share.y), cell.share.z);
}

Vec3f ClearanceField::upAt(Vec3f position) const {
  Cell cell;
  if (!find(position, cell)) return {};
  const std::int64_t row = size_[0], slice = size_[0] * size_[1];
  const float* c = cell.corner;
  const float x = cell.share.x, y = cell.share.y, z = cell.share.z;
  // The slopes of the mix that heightAt is.
  const auto slopeX = [&](std::int64_t offset) { return c[offset + 1] - c[offset]; };
  const auto alongX = [&](std::int64_t offset) { return lerp(c[offset], c[offset + 1], x); };
  return normalize(
      {lerp(lerp(slopeX(0), slopeX(row), y), lerp(slopeX(slice), slopeX(slice + row), y), z),
       lerp(alongX(row) - alongX(0), alongX(slice + row) - alongX(slice), z),
       lerp(alongX(slice) - alongX(0), alongX(slice + row) - alongX(row), y)});
}

}  // namespace kestrane
