// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/guide_hierarchy.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "core/data/polyline.h"
#include "core/guides/guide_checks.h"
#include "core/guides/guide_frames.h"

namespace kestrane {

const GuideGroup* GuideHierarchy::findGroup(std::uint32_t id) const {
  const auto found = groupIndex_.find(id);
  return found == groupIndex_.end() ? nullptr : &groups_[found->second];
}

const GuideGroup* GuideHierarchy::findGroupNamed(std::string_view name) const {
  const auto found = std::find_if(groups_.begin(), groups_.end(),
                                  [&](const GuideGroup& group) { return group.name == name; });
  return found == groups_.end() ? nullptr : &*found;
}

const GuideRecord* GuideHierarchy::findGuide(std::uint64_t id) const {
  const auto found = guideIndex_.find(id);
  return found == guideIndex_.end() ? nullptr : &guides_[found->second];
}

GuideGroup* GuideHierarchy::groupAt(std::uint32_t id) {
  return const_cast<GuideGroup*>(findGroup(id));
}

GuideRecord* GuideHierarchy::guideAt(std::uint64_t id) {
  return const_cast<GuideRecord*>(findGuide(id));
}

const GuideRecord& GuideHierarchy::requireGuide(std::uint64_t id, const char* operation) const {
  const GuideRecord* guide = findGuide(id);
  if (!guide) throw std::invalid_argument(std::string(operation) + ": unknown guide");
  return *guide;
}

std::uint64_t GuideHierarchy::allocateGuideId() {
  // The counter wraps after the largest ID, which a document may hold.
  std::uint64_t id = nextGuideId_++;
  while (id == 0 || guideIndex_.contains(id)) id = nextGuideId_++;
  return id;
}

std::uint32_t GuideHierarchy::allocateGroupId() {
  std::uint32_t id = nextGroupId_++;
  while (id == 0 || groupIndex_.contains(id)) id = nextGroupId_++;
  return id;
}

void GuideHierarchy::append(GuideRecord guide) {
  guideIndex_.emplace(guide.id, static_cast<std::uint32_t>(guides_.size()));
  guides_.push_back(std::move(guide));
}

void GuideHierarchy::rebuildGuideIndex() {
  guideIndex_.clear();
  guideIndex_.reserve(guides_.size());
  for (std::uint32_t i = 0; i < guides_.size(); ++i) guideIndex_.emplace(guides_[i].id, i);
}

std::uint32_t GuideHierarchy::addGroup(std::string_view name, std::uint32_t parent) {
  if (parent != 0 && !findGroup(parent)) {
    throw std::invalid_argument("addGroup: unknown parent group");
  }
  if (findGroupNamed(name)) {
    throw std::invalid_argument("addGroup: group '" + std::string(name) + "' exists");
  }
  const std::uint32_t id = allocateGroupId();
  groupIndex_.emplace(id, static_cast<std::uint32_t>(groups_.size()));
  groups_.push_back({id, std::string(name), parent});
  return id;
}

void GuideHierarchy::renameGroup(std::uint32_t group, std::string_view name) {
  if (name.empty()) throw std::invalid_argument("a guide group needs a name");
  const GuideGroup* holder = findGroupNamed(name);
  if (holder && holder->id != group) {
    throw std::invalid_argument("a guide group named '" + std::string(name) + "' exists");
  }
  GuideGroup* renamed = groupAt(group);
  if (!renamed) throw std::invalid_argument("no such guide group");
  renamed->name = name;
}

void GuideHierarchy::removeGroups(std::span<const std::uint32_t> groups) {
  const std::vector<std::uint32_t> list = withChildGroups(groups);
  const std::unordered_set<std::uint32_t> gone(list.begin(), list.end());
  std::erase_if(groups_, [&](const GuideGroup& group) { return gone.contains(group.id); });
  groupIndex_.clear();
  for (std::uint32_t i = 0; i < groups_.size(); ++i) groupIndex_.emplace(groups_[i].id, i);
  // Guides that follow one of a removed group are in groups below it, so none is left behind.
  std::erase_if(guides_, [&](const GuideRecord& guide) { return gone.contains(guide.group); });
  rebuildGuideIndex();
}

std::uint64_t GuideHierarchy::addGuide(std::uint32_t group, std::vector<Vec3f> points,
                                       GuideTube tube, std::uint64_t wantedId) {
  const GuideGroup* home = findGroup(group);
  if (!home) throw std::invalid_argument("addGuide: unknown group");
  if (home->parent != 0) {
    throw std::invalid_argument("addGuide: primary guides belong in root groups");
  }
  if (wantedId != 0 && findGuide(wantedId)) {
    throw std::invalid_argument("addGuide: duplicate guide id");
  }
  detail::requireFinite(points, "addGuide");
  detail::requireFinite(tube, "addGuide");
  GuideRecord guide;
  guide.id = wantedId != 0 ? wantedId : allocateGuideId();
  guide.group = group;
  guide.tube = std::move(tube);
  guide.frameUp = frameUpFor(points);
  guide.points = std::move(points);
  const std::uint64_t id = guide.id;
  append(std::move(guide));
  return id;
}

void GuideHierarchy::markDescendants(std::vector<char>& marked) const {
  std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> children;
  for (std::uint32_t i = 0; i < guides_.size(); ++i) {
    if (guides_[i].parent != 0) children[guides_[i].parent].push_back(i);
  }
  std::vector<std::uint32_t> open;
  for (std::uint32_t i = 0; i < guides_.size(); ++i) {
    if (marked[i]) open.push_back(i);
  }
  while (!open.empty()) {
    const auto family = children.find(guides_[open.back()].id);
    open.pop_back();
    if (family == children.end()) continue;
    for (const std::uint32_t child : family->second) {
      if (!marked[child]) open.push_back(child);
      marked[child] = 1;
    }
  }
}

std::vector<std::uint64_t> GuideHierarchy::descendantsOf(std::span<const std::uint64_t> ids) const {
  std::vector<char> marked(guides_.size(), 0);
  for (const std::uint64_t id : ids) {
    if (const auto found = guideIndex_.find(id); found != guideIndex_.end()) {
      marked[found->second] = 1;
    }
  }
  const std::unordered_set<std::uint64_t> seeds(ids.begin(), ids.end());
  markDescendants(marked);
  std::vector<std::uint64_t> below;
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    if (marked[i] && !seeds.contains(guides_[i].id)) below.push_back(guides_[i].id);
  }
  return below;
}

void GuideHierarchy::removeMarked(const std::vector<char>& marked) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    if (marked[i]) continue;
    if (kept != i) guides_[kept] = std::move(guides_[i]);
    ++kept;
  }
  guides_.resize(kept);
  rebuildGuideIndex();
}

void GuideHierarchy::removeGuides(std::span<const std::uint64_t> ids) {
  std::vector<char> marked(guides_.size(), 0);
  for (const std::uint64_t id : ids) {
    if (const auto found = guideIndex_.find(id); found != guideIndex_.end()) {
      marked[found->second] = 1;
    }
  }
  markDescendants(marked);
  removeMarked(marked);
}

std::vector<Vec3f> GuideHierarchy::offsetsUnder(std::uint64_t parent, std::span<const Vec3f> points,
                                                const char* operation) const {
  const GuideRecord* leader = findGuide(parent);
  if (!leader || leader->points.size() < 2 || points.size() < 2) return {};
  const FollowedCurve curve = followedCurve(*leader, points.size());
  std::vector<Vec3f> offsets = offsetsOf(points, leader->tube, curve);
  if (!detail::allFinite(offsets)) {
    throw std::invalid_argument(std::string(operation) +
                                ": the points are too far from the parent");
  }
  return offsets;
}

void GuideHierarchy::setPoints(std::uint64_t id, std::vector<Vec3f> points) {
  requireGuide(id, "setPoints");
  detail::requireFinite(points, "setPoints");
  GuideRecord& guide = *guideAt(id);
  std::vector<Vec3f> offsets;
  if (guide.follows()) offsets = offsetsUnder(guide.parent, points, "setPoints");
  if (points.size() != guide.pointCount()) {
    std::map<std::string, std::vector<float>> attributes;
    for (const auto& [name, values] : guide.pointAttributes) {
      std::vector<float> resampled = resampleByIndex(values, points.size());
      detail::requireFinite(resampled, "setPoints");
      if (!resampled.empty()) attributes.emplace(name, std::move(resampled));
    }
    guide.pointAttributes = std::move(attributes);
  }
  guide.points = std::move(points);
  guide.offsets = std::move(offsets);
  guide.unbind();
}

void GuideHierarchy::setTube(std::uint64_t id, GuideTube tube) {
  requireGuide(id, "setTube");
  detail::requireFinite(tube, "setTube");
  guideAt(id)->tube = std::move(tube);
}

void GuideHierarchy::setAttribute(std::uint64_t id, const std::string& name, float value) {
  requireGuide(id, "setAttribute");
  detail::requireFinite(std::span(&value, 1), "setAttribute");
  guideAt(id)->attributes[name] = value;
}

void GuideHierarchy::setPointAttribute(std::uint64_t id, const std::string& name,
                                       std::vector<float> values) {
  const GuideRecord& guide = requireGuide(id, "setPointAttribute");
  if (!values.empty() && values.size() != guide.pointCount()) {
    throw std::invalid_argument("setPointAttribute: expected one value per point");
  }
  detail::requireFinite(values, "setPointAttribute");
  auto& attributes = guideAt(id)->pointAttributes;
  if (values.empty()) {
    attributes.erase(name);
  } else {
    attributes[name] = std::move(values);
  }
}

void GuideHierarchy::renameAttribute(const std::string& from, const std::string& to) {
  if (from == to) return;
  for (const GuideRecord& guide : guides_) {
    if (guide.attributes.contains(to) || guide.pointAttributes.contains(to)) {
      throw std::invalid_argument("a guide attribute named '" + to + "' already exists");
    }
  }
  const auto rename = [&](auto& attributes) {
    if (auto node = attributes.extract(from)) {
      node.key() = to;
      attributes.insert(std::move(node));
    }
  };
  for (GuideRecord& guide : guides_) {
    rename(guide.attributes);
    rename(guide.pointAttributes);
  }
}

}  // namespace kestrane
