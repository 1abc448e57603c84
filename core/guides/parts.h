// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// A parting drawn on the scalp.
struct Part {
  std::string name;                // unique in the list
  std::vector<StrandRoot> points;  // in stroke order

  bool operator==(const Part&) const = default;
};

struct PartData {
  std::vector<Part> parts;

  bool operator==(const PartData&) const = default;
};

/// An empty text is empty data. Throws std::runtime_error with the reason for an unsound text.
PartData partsFromJson(std::string_view text);
std::string partsToJson(const PartData& data);

/// Adds a stroke as a part of at most max(2, pointCount) points on the scalp, evenly spaced along
/// it. The name, "part" where none is given, takes a number where it is in use; returns what it
/// became. Throws std::invalid_argument, with nothing changed, for a stroke that is too short or
/// finds no scalp.
std::string addPart(PartData& data, std::string_view name, std::span<const Vec3f> stroke,
                    const ScalpMesh& scalp, int pointCount);

}  // namespace kestrane
