// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

/// Edits of who follows whom.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numbers>

#include "core/base/hash.h"
#include "core/guides/guide_checks.h"
#include "core/guides/guide_frames.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

namespace {

constexpr float childTubeShare = 0.35f;

GuideTube scaledTube(const GuideTube& tube, float scale, float twist) {
  GuideTube scaled{tube.radius, twist};
  for (float& radius : scaled.radius) radius *= scale;
  return scaled;
}

/// The offsets of one generated child; all of its draws come from its ID.
std::vector<Vec3f> generatedOffsets(std::uint64_t id, std::size_t pointCount,
                                    const ChildSettings& settings) {
  constexpr std::uint64_t step = 0x9E3779B97F4A7C15u;
  const std::uint64_t stream = mix64(id) + step;
  float draws[4];
  for (std::uint64_t j = 0; j < 4; ++j) draws[j] = unitFloat(mix64(stream + j * step));
  const float reach = std::sqrt(draws[0]);
  const float angle = 2.0f * std::numbers::pi_v<float> * draws[1];
  const Vec3f direction{std::cos(angle), std::sin(angle), 0.0f};
  const Vec3f root = direction * (reach * settings.rootSpread);
  const Vec3f shake{2.0f * draws[3] - 1.0f, 2.0f * draws[2] - 1.0f, 0.0f};
  const Vec3f tip = direction * (reach * settings.tipSpread) + shake * settings.jitter;

  std::vector<Vec3f> offsets(pointCount);
  for (std::size_t i = 0; i < pointCount; ++i) {
    const float t = static_cast<float>(i) / static_cast<float>(pointCount - 1);
    const Vec3f offset = lerp(root, tip, t);
    const float c = std::cos(t * settings.twist), s = std::sin(t * settings.twist);
    offsets[i] = {c * offset.x - s * offset.y, s * offset.x + c * offset.y, 0.0f};
  }
  return offsets;
}

}  // namespace

std::uint64_t GuideHierarchy::addChildGuide(std::uint32_t group, std::uint64_t parent,
                                            std::vector<Vec3f> points,
                                            std::optional<GuideTube> tube) {
  const GuideGroup* home = findGroup(group);
  if (!home || home->parent == 0) throw std::invalid_argument("addChildGuide: not a child group");
  const GuideRecord* leader = findGuide(parent);
  if (!leader || leader->group != home->parent) {
    throw std::invalid_argument("addChildGuide: the parent must be in the group's parent group");
  }
  if (points.size() < 2) {
    throw std::invalid_argument("addChildGuide: a guide needs at least 2 points");
  }
  detail::requireFinite(points, "addChildGuide");
  if (tube) detail::requireFinite(*tube, "addChildGuide");
  GuideRecord guide;
  guide.offsets = offsetsUnder(parent, points, "addChildGuide");
  guide.id = allocateGuideId();
  guide.group = group;
  guide.parent = parent;
  guide.tube =
      tube ? std::move(*tube) : scaledTube(leader->tube, childTubeShare, leader->tube.twist);
  guide.frameUp = frameUpFor(points);
  guide.points = std::move(points);
  const std::uint64_t id = guide.id;
  append(std::move(guide));
  return id;
}

std::uint32_t GuideHierarchy::generateChildren(
    std::uint32_t parentGroup, std::string_view name, const ChildSettings& settings,
    std::optional<std::span<const std::uint64_t>> parents) {
  if (!findGroup(parentGroup)) {
    throw std::invalid_argument("generateChildren: unknown parent group");
  }
  std::vector<std::uint64_t> leaders;
  if (parents) {
    std::unordered_set<std::uint64_t> seen;
    for (const std::uint64_t id : *parents) {
      const GuideRecord* guide = findGuide(id);
      if (!guide || guide->group != parentGroup) {
        throw std::invalid_argument("generateChildren: guide " + std::to_string(id) +
                                    " is not in the parent group");
      }
      if (seen.insert(id).second) leaders.push_back(id);
    }
  } else {
    for (const GuideRecord& guide : guides_) {
      if (guide.group == parentGroup) leaders.push_back(guide.id);
    }
  }
  const GuideGroup* existing = findGroupNamed(name);
  if (existing && existing->parent != parentGroup) {
    throw std::invalid_argument("generateChildren: group '" + std::string(name) +
                                "' belongs to another parent group");
  }
  const float numbers[] = {settings.rootSpread, settings.tipSpread, settings.twist, settings.jitter,
                           settings.tubeScale};
  detail::requireFinite(numbers, "generateChildren");

  const std::unordered_set<std::uint64_t> replaced(leaders.begin(), leaders.end());
  std::vector<char> removed(guides_.size(), 0);
  for (std::size_t i = 0; existing && i < guides_.size(); ++i) {
    removed[i] = guides_[i].group == existing->id && replaced.contains(guides_[i].parent);
  }
  markDescendants(removed);

  std::vector<GuideRecord> children;
  std::unordered_set<std::uint64_t> childIds;
  const auto isTaken = [&](std::uint64_t id) {
    const auto found = guideIndex_.find(id);
    return id == 0 || childIds.contains(id) ||
           (found != guideIndex_.end() && !removed[found->second]);
  };
  for (const std::uint64_t leaderId : leaders) {
    const GuideRecord& leader = *findGuide(leaderId);
    if (leader.points.size() < 2) continue;
    const FollowedCurve curve = followedCurve(leader, leader.points.size());
    const GuideTube tube = scaledTube(leader.tube, settings.tubeScale, 0.0f);
    detail::requireFinite(tube, "generateChildren");
    const std::uint64_t family = hashCombine(mix64(leaderId), settings.seed);
    for (int k = 0; k < settings.count; ++k) {
      GuideRecord child;
      child.id = hashCombine(family, static_cast<std::uint64_t>(k));
      while (isTaken(child.id)) child.id = mix64(child.id);
      child.parent = leaderId;
      child.tube = tube;
      child.offsets = generatedOffsets(child.id, leader.points.size(), settings);
      detail::requireFinite(child.offsets, "generateChildren");
      if (!poseChild(child, leader.tube, curve, nullptr)) {
        throw std::invalid_argument("generateChildren: the children are too far from the parent");
      }
      child.frameUp = frameUpFor(child.points);
      childIds.insert(child.id);
      children.push_back(std::move(child));
    }
  }

  const std::uint32_t childGroup = existing ? existing->id : addGroup(name, parentGroup);
  removeMarked(removed);
  for (GuideRecord& child : children) {
    child.group = childGroup;
    append(std::move(child));
  }
  return childGroup;
}

void GuideHierarchy::place(std::span<const Placement> placements, const char* operation) {
  std::vector<std::vector<Vec3f>> offsets(placements.size());
  for (std::size_t i = 0; i < placements.size(); ++i) {
    const auto& [index, parent, locked] = placements[i];
    if (parent == 0 || locked) continue;
    const GuideRecord& guide = guides_[index];
    // A child that was read and never posed has its shape in its offsets alone.
    offsets[i] =
        guide.points.empty() ? guide.offsets : offsetsUnder(parent, guide.points, operation);
  }
  for (std::size_t i = 0; i < placements.size(); ++i) {
    GuideRecord& guide = guides_[placements[i].index];
    guide.parent = placements[i].parent;
    guide.locked = placements[i].locked;
    guide.offsets = std::move(offsets[i]);
    guide.unbind();
    if (guide.pointCount() == 0) guide.pointAttributes.clear();
  }
}

void GuideHierarchy::reparent(std::span<const std::uint64_t> ids, std::uint64_t newParent) {
  const GuideRecord* leader = findGuide(newParent);
  if (!leader) throw std::invalid_argument("reparent: unknown parent guide");
  std::vector<Placement> placements;
  for (const std::uint64_t id : ids) {
    const GuideRecord& guide = requireGuide(id, "reparent");
    if (findGroup(guide.group)->parent != leader->group) {
      throw std::invalid_argument("reparent: the new parent must be in the guide's parent group");
    }
    placements.push_back({guideIndex_.at(id), newParent, guide.locked});
  }
  place(placements, "reparent");
}

void GuideHierarchy::promoteGroup(std::uint32_t group) {
  GuideGroup* promoted = groupAt(group);
  if (!promoted) throw std::invalid_argument("promoteGroup: unknown group");
  if (promoted->parent == 0) {
    throw std::invalid_argument("promoteGroup: '" + promoted->name + "' is already a root group");
  }
  std::vector<Placement> placements;
  for (std::uint32_t i = 0; i < guides_.size(); ++i) {
    if (guides_[i].group != group) continue;
    const GuideRecord* parent = findGuide(guides_[i].parent);
    const bool stays = parent && findGuide(parent->parent);
    placements.push_back({i, stays ? parent->parent : 0, stays && guides_[i].locked});
  }
  place(placements, "promoteGroup");
  promoted->parent = findGroup(promoted->parent)->parent;
}

void GuideHierarchy::demoteGroup(std::uint32_t group, std::uint32_t newParent) {
  GuideGroup* demoted = groupAt(group);
  const GuideGroup* above = findGroup(newParent);
  if (!demoted || !above) throw std::invalid_argument("demoteGroup: unknown group");
  if (group == newParent || demoted->parent != above->parent) {
    throw std::invalid_argument("demoteGroup: the new parent group must be a sibling of '" +
                                demoted->name + "'");
  }
  std::vector<const GuideRecord*> leaders;
  for (const GuideRecord& guide : guides_) {
    if (guide.group == newParent && !guide.points.empty()) leaders.push_back(&guide);
  }
  if (leaders.empty()) {
    throw std::invalid_argument("demoteGroup: '" + above->name + "' has no guides to follow");
  }
  std::vector<Placement> placements;
  for (std::uint32_t i = 0; i < guides_.size(); ++i) {
    const GuideRecord& guide = guides_[i];
    if (guide.group != group) continue;
    const GuideRecord* nearest = leaders.front();
    if (!guide.points.empty()) {
      float best = FLT_MAX;
      for (const GuideRecord* leader : leaders) {
        const float reach = distance(leader->points[0], guide.points[0]);
        if (reach < best) {
          best = reach;
          nearest = leader;
        }
      }
    }
    placements.push_back({i, nearest->id, guide.parent != 0 && guide.locked});
  }
  place(placements, "demoteGroup");
  demoted->parent = newParent;
}

void GuideHierarchy::setLocked(std::span<const std::uint64_t> ids, bool locked) {
  std::vector<Placement> placements;
  for (const std::uint64_t id : ids) {
    const GuideRecord& guide = requireGuide(id, "setLocked");
    if (guide.parent == 0 || guide.points.empty() || guide.locked == locked) continue;
    placements.push_back({guideIndex_.at(id), guide.parent, locked});
  }
  place(placements, "setLocked");
}

}  // namespace kestrane
