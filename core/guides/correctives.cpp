// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/correctives.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "core/data/polyline.h"
#include "core/guides/guide_frames.h"

namespace kestrane {

namespace {

constexpr double sameTime = 1e-6;
/// Below this weight a stroke would be stored scaled up beyond use.
constexpr float leastSculptWeight = 0.001f;
/// How far a point must move, as a share of its guide's length, to count as sculpted.
constexpr float leastSculptShare = 0.0001f;

double smoothstep(double x) {
  x = std::clamp(x, 0.0, 1.0);
  return x * x * (3.0 - 2.0 * x);
}

float faded(const CorrectiveLayer& layer, double away, double fade) {
  if (fade > 0.0) {
    return static_cast<float>(static_cast<double>(layer.weight) * smoothstep(1.0 - away / fade));
  }
  return away < sameTime ? layer.weight : 0.0f;
}

float keyedWeight(const std::vector<CorrectiveLayer::WeightKey>& keys, double time) {
  const auto above = std::upper_bound(
      keys.begin(), keys.end(), time,
      [](double t, const CorrectiveLayer::WeightKey& key) { return t < key.time; });
  if (above == keys.begin()) return keys.front().weight;
  if (above == keys.end()) return keys.back().weight;
  const auto& below = *std::prev(above);
  const double share = (time - below.time) / (above->time - below.time);
  return static_cast<float>(below.weight + (above->weight - below.weight) * share);
}

/// A layer that counts at the time at hand.
struct ActiveLayer {
  const CorrectiveLayer* layer;
  float weight;
};

std::vector<ActiveLayer> activeLayers(std::span<const CorrectiveLayer> layers, double time) {
  std::vector<ActiveLayer> active;
  for (const CorrectiveLayer& layer : layers) {
    const float weight = layerWeightAt(layer, time);
    if (weight > 0.0f) active.push_back({&layer, weight});
  }
  return active;
}

/// The guide's points moved by all layers; empty where none has offsets for it.
std::vector<Vec3f> movedPoints(const GuideRecord& guide, std::span<const ActiveLayer> active) {
  std::vector<Vec3f> points;
  std::vector<GuideFrame> frames;
  for (const auto& [layer, weight] : active) {
    const auto found = layer->offsets.find(guide.id);
    if (found == layer->offsets.end() || found->second.empty()) continue;
    if (points.empty()) {
      points = guide.points;
      frames = guideFrames(guide.points, guide.frameUp);
    }
    const std::size_t count = std::min(found->second.size(), points.size());
    for (std::size_t i = 0; i < count; ++i) {
      points[i] += frames[i].toWorld(found->second[i]) * weight;
    }
  }
  return points;
}

/// Walks the guides level by level. What was moved on one level is known on the next, where the
/// children that follow it are posed again first.
class LevelWalk {
 public:
  LevelWalk(GuideHierarchy& hierarchy, const ScalpMesh* scalp)
      : hierarchy_(hierarchy), scalp_(scalp) {
    const std::vector<int> levels = hierarchy.guideLevels();
    for (std::uint32_t i = 0; i < levels.size(); ++i) {
      const auto level = static_cast<std::size_t>(levels[i]);
      if (level >= levels_.size()) levels_.resize(level + 1);
      levels_[level].push_back(i);
    }
  }

  /// Calls visit(guide) for the guides of 2 or more points, parents first; it returns the points
  /// that the guide takes, or none for a guide that stays.
  template <class Visit>
  void run(Visit visit) {
    for (const std::vector<std::uint32_t>& level : levels_) {
      std::vector<std::uint64_t> following;
      for (const std::uint32_t i : level) {
        const GuideRecord& guide = hierarchy_.guides()[i];
        if (guide.follows() && moved_.contains(guide.parent)) following.push_back(guide.id);
      }
      if (!following.empty()) hierarchy_.updateFromScalp(scalp_, following);
      moved_.insert(following.begin(), following.end());
      for (const std::uint32_t i : level) {
        const GuideRecord& guide = hierarchy_.guides()[i];
        if (guide.points.size() < 2) continue;
        std::vector<Vec3f> points = visit(guide);
        if (points.empty()) continue;
        moved_.insert(guide.id);
        hierarchy_.setPoints(guide.id, std::move(points));
      }
    }
  }

 private:
  GuideHierarchy& hierarchy_;
  const ScalpMesh* scalp_;
  /// Indices in guides(), which setPoints and posing leave as they are.
  std::vector<std::vector<std::uint32_t>> levels_;
  std::unordered_set<std::uint64_t> moved_;
};

}  // namespace

float layerWeightAt(const CorrectiveLayer& layer, double time) {
  if (!layer.enabled) return 0.0f;
  if (!layer.weightCurve.empty()) return keyedWeight(layer.weightCurve, time);
  if (time < layer.time && !layer.holdBefore) {
    return faded(layer, layer.time - time, layer.fadeIn);
  }
  if (time > layer.time && !layer.holdAfter) {
    return faded(layer, time - layer.time, layer.fadeOut);
  }
  return layer.weight;
}

void applyCorrectives(std::span<const CorrectiveLayer> layers, GuideHierarchy& hierarchy,
                      double time, const std::unordered_set<std::uint64_t>* leaveOut,
                      const ScalpMesh* scalp) {
  const std::vector<ActiveLayer> active = activeLayers(layers, time);
  if (active.empty()) return;
  // On a copy, since offsets without bounds may throw guides out of the numbers' range half way.
  GuideHierarchy posed = hierarchy;
  LevelWalk(posed, scalp).run([&](const GuideRecord& guide) -> std::vector<Vec3f> {
    if (leaveOut && leaveOut->contains(guide.id)) return {};
    return movedPoints(guide, active);
  });
  hierarchy = std::move(posed);
}

void sculptIntoLayer(CorrectiveData& data, std::string_view layerName, double time,
                     const GuideHierarchy& before, const GuideHierarchy& sculpted,
                     const ScalpMesh* scalp) {
  std::vector<CorrectiveLayer> layers = data.layers;
  auto found = std::find_if(layers.begin(), layers.end(),
                            [&](const CorrectiveLayer& layer) { return layer.name == layerName; });
  if (found == layers.end()) {
    CorrectiveLayer layer;
    layer.name = layerName;
    layer.time = time;
    for (const CorrectiveLayer& other : layers) {
      if (other.slot < INT32_MAX) layer.slot = std::max(layer.slot, other.slot + 1);
    }
    found = layers.insert(layers.end(), std::move(layer));
  }
  CorrectiveLayer& target = *found;
  const float weight = layerWeightAt(target, time);
  if (!(weight >= leastSculptWeight)) {
    throw std::invalid_argument("corrective layer '" + target.name +
                                "' has no weight on this frame: raise its weight (and key it) to "
                                "sculpt here");
  }
  // The target is among the active layers, so that what is added to it counts at once for the
  // children on the levels below.
  const std::vector<ActiveLayer> active = activeLayers(layers, time);
  GuideHierarchy rebuilt = before;
  LevelWalk(rebuilt, scalp).run([&](const GuideRecord& guide) {
    std::vector<Vec3f> moved = movedPoints(guide, active);
    const GuideRecord* wanted = sculpted.findGuide(guide.id);
    if (!wanted || wanted->points.size() != guide.points.size()) return moved;
    const std::vector<Vec3f>& current = moved.empty() ? guide.points : moved;
    const float least = polylineLength(current) * leastSculptShare;
    bool changed = false;
    for (std::size_t i = 0; i < current.size(); ++i) {
      changed = changed || distance(current[i], wanted->points[i]) > least;
    }
    if (!changed) return moved;
    const std::vector<GuideFrame> frames = guideFrames(guide.points, guide.frameUp);
    std::vector<Vec3f>& offsets = target.offsets[guide.id];
    offsets.resize(std::max(offsets.size(), current.size()));
    for (std::size_t i = 0; i < current.size(); ++i) {
      offsets[i] += frames[i].toLocal(wanted->points[i] - current[i]) / weight;
    }
    return movedPoints(guide, active);
  });
  data.layers = std::move(layers);
}

}  // namespace kestrane
