// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/guide_set.h"

#include <algorithm>
#include <unordered_map>

#include "core/base/hash.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

std::uint64_t foldValues(std::uint64_t hash, const std::vector<float>& values) {
  hash = hashCombine(hash, values.size());
  for (const float value : values) hash = hashNumber(hash, value);
  return hash;
}

bool allZero(const float* values, std::size_t count) {
  return std::all_of(values, values + count, [](float value) { return value == 0.0f; });
}

/// Finds the guide that a strand was made from: mostly the one of the same index.
class GuideFinder {
 public:
  explicit GuideFinder(const GuideSet& guides) : guides_(guides.guides) {
    // The first of guides that wrongly share an ID is the one that counts.
    for (std::size_t i = 0; i < guides_.size(); ++i) byId_.emplace(guides_[i].id, i);
  }
  const Guide* find(std::uint64_t id, std::size_t index) const {
    if (index < guides_.size() && guides_[index].id == id) return &guides_[index];
    const auto found = byId_.find(id);
    return found == byId_.end() ? nullptr : &guides_[found->second];
  }

 private:
  const std::vector<Guide>& guides_;
  std::unordered_map<std::uint64_t, std::size_t> byId_;
};

}  // namespace

std::uint64_t contentHash(const GuideSet& guides) {
  std::uint64_t hash = mix64(guides.guides.size());
  for (const Guide& guide : guides.guides) {
    hash = hashCombine(hash, guide.id);
    hash = hashCombine(hash, guide.group);
    hash = hashCombine(hash, guide.parent);
    hash = hashCombine(hash, static_cast<std::uint32_t>(guide.root.face));
    hash = hashNumber(hashNumber(hash, guide.root.u), guide.root.v);
    hash = hashCombine(hash, guide.points.size());
    for (const Vec3f p : guide.points) {
      hash = hashNumber(hashNumber(hashNumber(hash, p.x), p.y), p.z);
    }
    hash = hashCombine(hash, guide.attributes.size());
    for (const auto& [name, value] : guide.attributes) {
      hash = hashNumber(hashString(hash, name), value);
    }
    hash = hashCombine(hash, guide.pointAttributes.size());
    for (const auto& [name, values] : guide.pointAttributes) {
      hash = foldValues(hashString(hash, name), values);
    }
  }
  return hash;
}

StrandSet strandsFromGuides(const GuideSet& guides) {
  StrandSet strands;
  std::vector<std::uint32_t> counts;
  counts.reserve(guides.guides.size());
  for (const Guide& guide : guides.guides) {
    counts.push_back(static_cast<std::uint32_t>(guide.points.size()));
  }
  strands.resizeFromCounts(counts, StrandSet::keepPoints);
  auto& ids = strands.mutableIds();
  auto& roots = strands.mutableRoots();
  auto& points = strands.mutablePoints();
  const auto& starts = strands.offsets();
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const Guide& guide = guides.guides[i];
    ids[i] = guide.id;
    roots[i] = guide.root;
    std::copy(guide.points.begin(), guide.points.end(), points.begin() + starts[i]);
    for (const auto& [name, value] : guide.attributes) {
      if (strands.strandChannel(name) == nullptr) strands.addStrandChannel(name, 0.0f);
      (*strands.mutableStrandChannel(name))[i] = value;
    }
    for (const auto& [name, values] : guide.pointAttributes) {
      if (strands.pointChannel(name) == nullptr) strands.addPointChannel(name, 0.0f);
      float* to = strands.mutablePointChannel(name)->data() + starts[i];
      if (values.size() == counts[i]) {
        std::copy(values.begin(), values.end(), to);
      } else {
        const std::vector<float> fitted = resampleByIndex(values, counts[i]);
        std::copy(fitted.begin(), fitted.end(), to);
      }
    }
  }
  return strands;
}

GuideSet guidesFromStrands(const StrandSet& strands, const GuideSet& source) {
  const GuideFinder finder(source);
  const auto strandNames = strands.strandChannelNames();
  const auto pointNames = strands.pointChannelNames();
  GuideSet made;
  made.guides.resize(strands.strandCount());
  for (std::size_t i = 0; i < made.guides.size(); ++i) {
    Guide& guide = made.guides[i];
    guide.id = strands.ids()[i];
    guide.root = strands.roots()[i];
    const auto points = strands.strandPoints(i);
    guide.points.assign(points.begin(), points.end());
    const Guide* old = finder.find(guide.id, i);
    if (old != nullptr) {
      guide.group = old->group;
      guide.parent = old->parent;
    }
    for (const std::string& name : strandNames) {
      const float value = (*strands.strandChannel(name))[i];
      const bool had = old != nullptr && old->attributes.contains(name);
      if (had || value != 0.0f) guide.attributes.emplace(name, value);
    }
    for (const std::string& name : pointNames) {
      const float* values = strands.pointChannel(name)->data() + strands.offsets()[i];
      const bool had = old != nullptr && old->pointAttributes.contains(name);
      if (had || !allZero(values, points.size())) {
        guide.pointAttributes.emplace(name, std::vector<float>(values, values + points.size()));
      }
    }
  }
  return made;
}

}  // namespace kestrane
