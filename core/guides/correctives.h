// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "core/guides/guide_hierarchy.h"

namespace kestrane {

/// Sculpted guide offsets that fade in and out around a time.
struct CorrectiveLayer {
  struct WeightKey {
    double time = 0.0;
    float weight = 0.0f;
    bool operator==(const WeightKey&) const = default;
  };

  std::string name;         // unique in the list
  double time = 0.0;        // where it was sculpted and has its full weight
  double fadeIn = 0.0;      // time span of the fade before `time`, 0: none
  double fadeOut = 0.0;     // and after it
  bool holdBefore = false;  // full weight at all times before `time`
  bool holdAfter = false;   // and after it
  float weight = 1.0f;
  bool enabled = true;
  std::int32_t slot = 0;
  std::vector<WeightKey> weightCurve;  // by time; where there are keys they alone are the weight
  /// Per guide, offsets of its points in their frames: side, up, tangent.
  std::map<std::uint64_t, std::vector<Vec3f>> offsets;

  bool operator==(const CorrectiveLayer&) const = default;
};

struct CorrectiveData {
  std::vector<CorrectiveLayer> layers;

  bool operator==(const CorrectiveData&) const = default;
};

/// An empty text is empty data. Throws with the reason for an unsound text: std::runtime_error, or
/// std::invalid_argument and std::out_of_range for a guide ID that is no number.
CorrectiveData correctivesFromJson(std::string_view text);
std::string correctivesToJson(const CorrectiveData& data);

/// How much the layer counts at a time.
float layerWeightAt(const CorrectiveLayer& layer, double time);

/// Moves the hierarchy's guides by all layers at a time, parents first; children follow their
/// moved parents, drawn onto the scalp where one is given. Guides in `leaveOut` take no offsets of
/// their own. Throws std::invalid_argument, with nothing changed, where offsets are out of all
/// range.
void applyCorrectives(std::span<const CorrectiveLayer> layers, GuideHierarchy& hierarchy,
                      double time, const std::unordered_set<std::uint64_t>* leaveOut = nullptr,
                      const ScalpMesh* scalp = nullptr);

/// Records into the named layer, which is added where it lacks, what was sculpted at a time:
/// applied to `before`, the guides without correctives, the layers then give `sculpted`. Throws
/// std::invalid_argument, with nothing changed, where the layer has no weight at this time.
void sculptIntoLayer(CorrectiveData& data, std::string_view layerName, double time,
                     const GuideHierarchy& before, const GuideHierarchy& sculpted,
                     const ScalpMesh* scalp = nullptr);

}  // namespace kestrane
