// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// Finds the guides whose reach may cover a point, from a grid of cells that list the spheres which
/// touch them. Immutable once made; queries may run from many threads and allocate nothing.
class GuideLookup {
 public:
  GuideLookup() = default;
  /// One reach per root; a reach that is not finite covers everything.
  GuideLookup(std::span<const Vec3f> roots, std::span<const float> reaches);

  /// The numbers of the guides, ascending; some of them may not reach the point after all.
  std::span<const std::uint32_t> at(Vec3f position) const;

 private:
  std::vector<std::uint32_t> everywhere_;  // used alone where any reach is infinite
  Vec3f low_;
  float cell_ = 0.0f;
  std::int64_t size_[3] = {0, 0, 0};
  std::vector<std::uint32_t> offsets_;  // one per cell, plus one
  std::vector<std::uint32_t> guides_;
};

}  // namespace kestrane
