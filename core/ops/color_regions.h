// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/ops/color_map.h"

namespace kestrane {

/// Regions painted in colours: one per colour that a guide is rooted on, numbered in the order of
/// its first guide. -1: a colour that no guide is rooted on.
struct ColorRegions {
  std::vector<std::int32_t> ofGuides, ofStrands;
};
ColorRegions findColorRegions(const ColorMap& map, std::span<const StrandRoot> guides,
                              std::span<const StrandRoot> strands);

}  // namespace kestrane
