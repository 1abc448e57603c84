// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/base/array.h"
#include "core/base/lanes.h"
#include "core/data/subdivision_rules.h"

namespace kestrane::detail {

/// Refines `width` floats per coarse point through all levels into `width` floats per point of the
/// finest one. Every float is worked on by itself, in the order of the rules' reads, so that it
/// comes out the same at any width and number of threads. The scratch grows to what is needed, and
/// a later call with the same levels allocates nothing.
void refineValues(std::span<const SubdivisionRules> levels, std::span<const float> values,
                  int width, std::span<float> fine, Array<Float4>& scratch);

/// Refines values given per face corner as a surface of their own: corners are joined where one
/// vertex has one and the same value (bit by bit). Returns `width` floats per corner of the finest
/// level's faces.
std::vector<float> refineCornerValues(const PolygonFaces& faces, std::size_t vertexCount,
                                      std::span<const float> values, int width, int levels);

}  // namespace kestrane::detail
