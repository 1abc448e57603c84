// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// A direction set by hand at a point of the scalp.
struct FlowPin {
  StrandRoot point;
  Vec3f direction;         // components on the point's two tangents; the third is 0
  std::int32_t line = -1;  // the pin line that it belongs to, -1 for a lone pin
  std::int32_t seq = 0;    // its place along that line

  bool operator==(const FlowPin&) const = default;
};

/// A point of the scalp around which the field turns.
struct FlowSink {
  StrandRoot point;
  float angle = 0.0f;   // degrees between the field and the way outward
  float radius = 0.0f;  // how far it reaches

  bool operator==(const FlowSink&) const = default;
};

/// What a direction field over the scalp follows.
struct FlowData {
  std::vector<FlowPin> pins;
  std::vector<FlowSink> sinks;

  bool operator==(const FlowData&) const = default;
};

/// An empty text is empty data. Throws std::runtime_error with the reason for an unsound text.
FlowData flowFromJson(std::string_view text);
std::string flowToJson(const FlowData& flow);

/// A lone pin that aims along a direction of the world, laid into the surface. Throws
/// std::invalid_argument for a point off the scalp and for a direction along the normal.
FlowPin makePin(const ScalpMesh& scalp, StrandRoot point, Vec3f direction);

/// The turn, in degrees, that a kind word stands for: whorl, whorlcw, converge or part. Throws
/// std::invalid_argument for any other.
float sinkAngle(std::string_view kind);

}  // namespace kestrane
