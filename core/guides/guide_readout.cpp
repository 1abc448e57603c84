// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <stdexcept>

#include "core/base/hash.h"
#include "core/data/polyline.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

namespace {

std::uint64_t foldPoint(std::uint64_t hash, Vec3f point) {
  return hashNumber(hashNumber(hashNumber(hash, point.x), point.y), point.z);
}

std::uint64_t foldPoints(std::uint64_t hash, const std::vector<Vec3f>& points) {
  hash = hashCombine(hash, points.size());
  for (const Vec3f& point : points) hash = foldPoint(hash, point);
  return hash;
}

std::uint64_t foldFloats(std::uint64_t hash, const std::vector<float>& values) {
  hash = hashCombine(hash, values.size());
  for (const float value : values) hash = hashNumber(hash, value);
  return hash;
}

}  // namespace

std::vector<int> GuideHierarchy::groupLevels() const {
  constexpr int unknown = -1, open = -2;
  std::vector<int> levels(groups_.size(), unknown);
  std::vector<std::uint32_t> path;
  for (std::uint32_t start = 0; start < groups_.size(); ++start) {
    // Up to the first group whose level is known, then back down.
    int level = -1;
    for (std::uint32_t at = start;;) {
      if (levels[at] >= 0) {
        level = levels[at];
        break;
      }
      if (levels[at] == open) {
        throw std::runtime_error("group '" + groups_[at].name + "' is its own ancestor");
      }
      levels[at] = open;
      path.push_back(at);
      const auto parent = groupIndex_.find(groups_[at].parent);
      if (parent == groupIndex_.end()) break;
      at = parent->second;
    }
    for (; !path.empty(); path.pop_back()) levels[path.back()] = ++level;
  }
  return levels;
}

int GuideHierarchy::levelOf(std::uint32_t group) const {
  int level = -1;
  for (const GuideGroup* at = findGroup(group); at; at = findGroup(at->parent)) ++level;
  return level;
}

std::vector<int> GuideHierarchy::guideLevels() const {
  const std::vector<int> levels = groupLevels();
  std::vector<int> result(guides_.size());
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    result[i] = levels[groupIndex_.at(guides_[i].group)];
  }
  return result;
}

int GuideHierarchy::deepestLevel() const {
  const std::vector<int> levels = guideLevels();
  int deepest = -1;
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    if (guides_[i].points.size() >= 2) deepest = std::max(deepest, levels[i]);
  }
  return deepest;
}

std::vector<std::uint32_t> GuideHierarchy::withChildGroups(
    std::span<const std::uint32_t> groups) const {
  const std::unordered_set<std::uint32_t> wanted(groups.begin(), groups.end());
  const std::vector<int> levels = groupLevels();
  std::vector<std::uint32_t> byLevel(groups_.size());
  for (std::uint32_t i = 0; i < byLevel.size(); ++i) byLevel[i] = i;
  std::sort(byLevel.begin(), byLevel.end(),
            [&](std::uint32_t a, std::uint32_t b) { return levels[a] < levels[b]; });
  std::vector<char> within(groups_.size(), 0);
  for (const std::uint32_t i : byLevel) {
    const auto parent = groupIndex_.find(groups_[i].parent);
    within[i] =
        wanted.contains(groups_[i].id) || (parent != groupIndex_.end() && within[parent->second]);
  }
  std::vector<std::uint32_t> result;
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if (within[i]) result.push_back(groups_[i].id);
  }
  return result;
}

Guide GuideHierarchy::resolved(const GuideRecord& guide) const {
  Guide result;
  result.id = guide.id;
  result.group = guide.group;
  result.parent = guide.parent;
  result.root = guide.root;
  result.points = guide.points;
  result.attributes = guide.attributes;
  result.pointAttributes = guide.pointAttributes;
  // Upward, the first definition met is the nearest.
  for (const GuideRecord* above = findGuide(guide.parent); above;
       above = findGuide(above->parent)) {
    result.attributes.insert(above->attributes.begin(), above->attributes.end());
    for (const auto& [name, values] : above->pointAttributes) {
      if (result.pointAttributes.contains(name)) continue;
      result.pointAttributes.emplace(name, resampleByIndex(values, guide.points.size()));
    }
  }
  return result;
}

template <class Wanted>
GuideSet GuideHierarchy::resolvedWhere(Wanted wanted) const {
  GuideSet set;
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    if (guides_[i].points.size() >= 2 && wanted(i)) set.guides.push_back(resolved(guides_[i]));
  }
  return set;
}

GuideSet GuideHierarchy::guidesAtLevel(int level) const {
  const std::vector<int> levels = guideLevels();
  if (level < 0) level = deepestLevel();
  return resolvedWhere([&](std::size_t i) { return levels[i] == level; });
}

GuideSet GuideHierarchy::guidesOfGroup(std::uint32_t group) const {
  return resolvedWhere([&](std::size_t i) { return guides_[i].group == group; });
}

GuideSet GuideHierarchy::guidesOfGroups(std::span<const std::uint32_t> groups) const {
  std::unordered_set<std::uint32_t> seen;
  GuideSet set;
  for (const std::uint32_t group : groups) {
    if (!seen.insert(group).second) continue;
    GuideSet next = guidesOfGroup(group);
    set.guides.insert(set.guides.end(), std::make_move_iterator(next.guides.begin()),
                      std::make_move_iterator(next.guides.end()));
  }
  return set;
}

GuideSet GuideHierarchy::withoutGroups(GuideSet guides,
                                       std::span<const std::uint32_t> groups) const {
  const std::vector<std::uint32_t> list = withChildGroups(groups);
  const std::unordered_set<std::uint32_t> left(list.begin(), list.end());
  std::erase_if(guides.guides, [&](const Guide& guide) { return left.contains(guide.group); });
  return guides;
}

std::uint64_t GuideHierarchy::contentHash() const {
  std::uint64_t hash = hashCombine(groups_.size(), guides_.size());
  for (const GuideGroup& group : groups_) {
    hash = hashCombine(hash, group.id);
    hash = hashCombine(hash, group.name.size());
    hash = hashCombine(hash, group.parent);
    for (const char c : group.name) hash = hashCombine(hash, static_cast<unsigned char>(c));
  }
  for (const GuideRecord& guide : guides_) {
    hash = hashCombine(hash, guide.id);
    hash = hashCombine(hash, guide.group);
    hash = hashCombine(hash, guide.parent);
    hash = hashCombine(hash, guide.locked);
    hash = hashCombine(hash, static_cast<std::uint32_t>(guide.root.face));
    hash = hashNumber(hashNumber(hash, guide.root.u), guide.root.v);
    hash = foldPoint(hash, guide.frameUp);
    hash = foldFloats(hash, guide.tube.radius);
    hash = hashNumber(hash, guide.tube.twist);
    hash = hashCombine(hash, guide.attributes.size());
    for (const auto& [name, value] : guide.attributes) {
      hash = hashNumber(hashString(hash, name), value);
    }
    hash = hashCombine(hash, guide.pointAttributes.size());
    for (const auto& [name, values] : guide.pointAttributes) {
      hash = foldFloats(hashString(hash, name), values);
    }
    hash = foldPoints(hash, guide.points);
    hash = foldPoints(hash, guide.offsets);
    hash = foldPoints(hash, guide.rootLocal);
    hash = foldPoint(hash, guide.frameUpLocal);
  }
  return hash;
}

}  // namespace kestrane
