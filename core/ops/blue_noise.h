// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// The spacing of an even spread of a density (strands per unit area): that of a hexagonal lattice,
/// sqrt(2 / (sqrt(3) density)). Infinite for a density of 0.
float evenSpacing(double density);

/// Moves roots over the surface until they are evenly spread (blue noise): roots closer than the
/// sum of their radii push each other apart, and borders hold them at half a spacing. A root of
/// radius 0 neither pushes nor moves. Fewer than 2 roots stay. Parallel, with the same result at
/// any number of threads.
std::vector<StrandRoot> relaxRoots(const ScalpMesh& mesh, std::span<const StrandRoot> roots,
                                   std::span<const float> radii, std::uint64_t seed);

}  // namespace kestrane
