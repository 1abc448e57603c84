// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>

#include "core/data/polyline.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

namespace {

/// On which side of the plane a guide's root lies: 1, -1, or 0 within a tolerance of it.
int mirrorSide(const GuideRecord& guide, int axis, float center) {
  const Vec3f root = guide.points[0];
  const float away = root[axis] - center;
  const float size = std::max({std::abs(root.x), std::abs(root.y), std::abs(root.z)});
  // A center that is not a number leaves every guide on the plane.
  if (!((polylineLength(guide.points) + size) * 1e-5f < std::abs(away))) return 0;
  return away > 0.0f ? 1 : -1;
}

std::vector<Vec3f> mirroredPoints(std::vector<Vec3f> points, int axis, float center) {
  for (Vec3f& point : points) point[axis] = 2.0f * center - point[axis];
  return points;
}

/// Copies are added one by one, so that a plane far out must be refused before the first.
void requireMirrorable(const std::vector<GuideRecord>& guides, int axis, float center,
                       const char* operation) {
  for (const GuideRecord& guide : guides) {
    for (const Vec3f& point : guide.points) {
      if (!std::isfinite(2.0f * center - point[axis])) {
        throw std::invalid_argument(std::string(operation) +
                                    ": the mirrored points must be finite numbers");
      }
    }
  }
}

}  // namespace

std::vector<std::vector<std::uint64_t>> GuideHierarchy::clearFarSide(
    std::span<const std::uint32_t> groups, int axis, float center, bool fromNegative) {
  std::unordered_map<std::uint32_t, std::size_t> places;
  for (std::size_t g = 0; g < groups.size(); ++g) places.emplace(groups[g], g);
  const int side = fromNegative ? -1 : 1;
  std::vector<std::vector<std::uint64_t>> sources(groups.size());
  std::vector<char> removed(guides_.size(), 0);
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    const GuideRecord& guide = guides_[i];
    const auto place = places.find(guide.group);
    if (place == places.end() || guide.points.empty()) continue;
    const int found = mirrorSide(guide, axis, center);
    if (found == side) sources[place->second].push_back(guide.id);
    removed[i] = found == -side;
  }
  markDescendants(removed);
  removeMarked(removed);
  return sources;
}

std::uint64_t GuideHierarchy::addMirrored(const GuideRecord& source, int axis, float center) {
  GuideRecord copy;
  copy.id = allocateGuideId();
  copy.group = source.group;
  copy.tube = source.tube;
  copy.attributes = source.attributes;
  copy.pointAttributes = source.pointAttributes;
  copy.points = mirroredPoints(source.points, axis, center);
  copy.frameUp = source.frameUp;
  copy.frameUp[axis] = -copy.frameUp[axis];
  const std::uint64_t id = copy.id;
  append(std::move(copy));
  return id;
}

std::vector<std::uint64_t> GuideHierarchy::mirrorGroup(std::uint32_t group, int axis, float center,
                                                       bool fromNegative) {
  const GuideGroup* mirrored = findGroup(group);
  if (!mirrored) throw std::invalid_argument("mirrorGroup: unknown group");
  if (mirrored->parent != 0) {
    throw std::invalid_argument("mirrorGroup: mirror root groups (then regenerate children)");
  }
  if (axis < 0 || axis > 2) throw std::invalid_argument("mirrorGroup: axis must be 0, 1 or 2");
  requireMirrorable(guides_, axis, center, "mirrorGroup");
  const auto sources = clearFarSide(std::span(&group, 1), axis, center, fromNegative);
  std::vector<std::uint64_t> copies;
  for (const std::uint64_t id : sources[0]) {
    copies.push_back(addMirrored(GuideRecord(*findGuide(id)), axis, center));
  }
  return copies;
}

std::vector<std::uint64_t> GuideHierarchy::mirrorAll(int axis, float center, bool fromNegative) {
  if (axis < 0 || axis > 2) throw std::invalid_argument("mirrorAll: axis must be 0, 1 or 2");
  requireMirrorable(guides_, axis, center, "mirrorAll");
  // On a copy, since a child may be refused half way.
  GuideHierarchy mirrored = *this;
  std::vector<std::uint64_t> made = mirrored.mirrorFamilies(axis, center, fromNegative);
  *this = std::move(mirrored);
  return made;
}

std::vector<std::uint64_t> GuideHierarchy::mirrorFamilies(int axis, float center,
                                                          bool fromNegative) {
  std::vector<std::uint32_t> roots;
  for (const GuideGroup& group : groups_) {
    if (group.parent == 0) roots.push_back(group.id);
  }
  const auto sourcesOfGroups = clearFarSide(roots, axis, center, fromNegative);
  std::unordered_map<std::uint64_t, std::vector<std::uint64_t>> children;
  for (const GuideRecord& guide : guides_) {
    if (guide.parent != 0) children[guide.parent].push_back(guide.id);
  }
  // Depth first on a stack of our own: groups may be nested deeper than calls may be.
  struct Pending {
    std::uint64_t source;
    std::uint64_t mirroredParent;
  };
  std::vector<Pending> open;
  const auto pushChildren = [&](std::uint64_t source, std::uint64_t copy) {
    const auto family = children.find(source);
    if (family == children.end()) return;
    for (auto child = family->second.rbegin(); child != family->second.rend(); ++child) {
      open.push_back({*child, copy});
    }
  };
  std::vector<std::uint64_t> made;
  for (const std::vector<std::uint64_t>& sources : sourcesOfGroups) {
    std::vector<std::uint64_t> copies;
    for (const std::uint64_t id : sources) {
      copies.push_back(addMirrored(GuideRecord(*findGuide(id)), axis, center));
    }
    made.insert(made.end(), copies.begin(), copies.end());
    for (std::size_t i = sources.size(); i-- > 0;) pushChildren(sources[i], copies[i]);
    while (!open.empty()) {
      const Pending next = open.back();
      open.pop_back();
      const GuideRecord source = *findGuide(next.source);
      if (source.points.size() < 2) continue;
      const std::uint64_t copy =
          addChildGuide(source.group, next.mirroredParent,
                        mirroredPoints(source.points, axis, center), source.tube);
      GuideRecord& record = *guideAt(copy);
      record.attributes = source.attributes;
      record.pointAttributes = source.pointAttributes;
      if (source.locked) setLocked(std::span(&copy, 1), true);
      made.push_back(copy);
      pushChildren(next.source, copy);
    }
  }
  return made;
}

}  // namespace kestrane
