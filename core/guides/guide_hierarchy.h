// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/data/guide_set.h"
#include "core/data/scalp_mesh.h"
#include "core/guides/guide_record.h"

namespace kestrane {

/// What generateChildren grows around each parent. Offsets are in tube radii.
struct ChildSettings {
  int count = 8;            // children per parent
  float rootSpread = 1.0f;  // how far from the parent at the root
  float tipSpread = 1.0f;   // and at the tip
  float twist = 0.0f;       // radians about the parent over the length
  float jitter = 0.0f;      // a random shift of the tips
  float tubeScale = 0.35f;  // the children's tubes over the parents'
  std::uint64_t seed = 0;
};

/// The sculpted guides of a groom: groups in a tree, guides inside the groups. A root group holds
/// free curves bound to the scalp; a group with a parent group holds children, each following one
/// guide of the parent group through stored offsets until it is locked.
///
/// Group and guide IDs are never 0, which stands for none. A guide's parent, where it exists, is in
/// the parent group of the guide's group. Every edit checks first and throws std::invalid_argument
/// with nothing changed. A guide's index in guides() changes with removals. One writer at a time.
class GuideHierarchy {
 public:
  const std::vector<GuideGroup>& groups() const { return groups_; }  // in creation order
  const std::vector<GuideRecord>& guides() const { return guides_; }
  /// The topology of the scalp that the guides were bound to, 0 before the first.
  std::uint64_t scalpTopology() const { return scalpTopology_; }

  const GuideGroup* findGroup(std::uint32_t id) const;
  const GuideGroup* findGroupNamed(std::string_view name) const;
  const GuideRecord* findGuide(std::uint64_t id) const;
  /// The number of parents above a group, 0 for a root group; -1 for an unknown group.
  int levelOf(std::uint32_t group) const;
  /// The level of each guide of guides().
  std::vector<int> guideLevels() const;
  /// The deepest level that has a guide of 2 or more points, -1 without one.
  int deepestLevel() const;
  /// The groups and all groups below them, in creation order. Unknown ones are passed over.
  std::vector<std::uint32_t> withChildGroups(std::span<const std::uint32_t> groups) const;
  /// All guides below the given ones, without those, in the order of guides().
  std::vector<std::uint64_t> descendantsOf(std::span<const std::uint64_t> ids) const;

  /// Guides as operators read them: attributes inherited down the parent chain, the nearest
  /// definition winning; inherited point attributes resampled. Guides of fewer than 2 points are
  /// left out. A negative level is the deepest; unknown levels and groups give none.
  GuideSet guidesAtLevel(int level) const;
  GuideSet guidesOfGroup(std::uint32_t group) const;
  /// The guides of several groups in the order of the groups, each guide once.
  GuideSet guidesOfGroups(std::span<const std::uint32_t> groups) const;
  /// The guides of a set that are in none of the groups nor in a group below them.
  GuideSet withoutGroups(GuideSet guides, std::span<const std::uint32_t> groups) const;

  /// Over all groups and guides, for telling that something changed.
  std::uint64_t contentHash() const;

  std::uint32_t addGroup(std::string_view name, std::uint32_t parent);
  void renameGroup(std::uint32_t group, std::string_view name);
  /// The child groups and all their guides go too. Unknown IDs are passed over.
  void removeGroups(std::span<const std::uint32_t> groups);

  /// Adds a free guide to a root group; `wantedId` 0 allocates one.
  std::uint64_t addGuide(std::uint32_t group, std::vector<Vec3f> points, GuideTube tube = {},
                         std::uint64_t wantedId = 0);
  /// Without a tube the child takes its parent's at 0.35 of the radius.
  std::uint64_t addChildGuide(std::uint32_t group, std::uint64_t parent, std::vector<Vec3f> points,
                              std::optional<GuideTube> tube = std::nullopt);
  /// Fills the child group of that name, which is made where it lacks, with children of the listed
  /// parents or of all guides of the group. Children of these parents that the group has are
  /// replaced; the same settings give the same IDs and curves. Returns the child group.
  std::uint32_t generateChildren(
      std::uint32_t parentGroup, std::string_view name, const ChildSettings& settings,
      std::optional<std::span<const std::uint64_t>> parents = std::nullopt);
  /// The descendants go too. Unknown IDs are passed over.
  void removeGuides(std::span<const std::uint64_t> ids);

  void reparent(std::span<const std::uint64_t> ids, std::uint64_t newParent);
  /// A child group moves one level up; guides without a grandparent become free.
  void promoteGroup(std::uint32_t group);
  /// A group goes under a sibling; each guide follows the sibling's guide with the nearest root.
  void demoteGroup(std::uint32_t group, std::uint32_t newParent);
  /// Locked children keep their points, unlocked ones follow again from where they are. Guides
  /// without a parent stay as they are, and so do those without points, which hold nothing to keep.
  void setLocked(std::span<const std::uint64_t> ids, bool locked);

  /// Replaces the guides of a root group on one side of the plane axis = center by mirrored copies
  /// of those on the other; guides on the plane stay alone. Returns the copies, unbound as yet.
  std::vector<std::uint64_t> mirrorGroup(std::uint32_t group, int axis, float center,
                                         bool fromNegative);
  /// The same for every root group, the sources' whole families included.
  std::vector<std::uint64_t> mirrorAll(int axis, float center, bool fromNegative);

  /// A following child takes new offsets; point attributes are resampled to the new count.
  void setPoints(std::uint64_t id, std::vector<Vec3f> points);
  void setTube(std::uint64_t id, GuideTube tube);
  void setAttribute(std::uint64_t id, const std::string& name, float value);
  /// One value per point; none erase the attribute.
  void setPointAttribute(std::uint64_t id, const std::string& name, std::vector<float> values);
  void renameAttribute(const std::string& from, const std::string& to);

  /// Brings all guides up to date after parsing and after any change of the scalp: bound guides
  /// move with it, unbound ones are bound, children are posed after their parents. A guide whose
  /// new points would be out of the range of numbers stays as it is. Parallel.
  void updateFromScalp(const ScalpMesh* scalp);
  /// The same for the listed guides alone. Unknown IDs are passed over.
  void updateFromScalp(const ScalpMesh* scalp, std::span<const std::uint64_t> ids);

  /// The guide data document. Throws std::runtime_error for values that are not finite. Parallel.
  std::string toJson() const;
  /// Throws std::runtime_error "invalid guide data: ..." for anything but a whole, sound document.
  /// An empty text is an empty hierarchy. Parallel.
  static GuideHierarchy fromJson(std::string_view text);

 private:
  GuideRecord* guideAt(std::uint64_t id);
  GuideGroup* groupAt(std::uint32_t id);
  const GuideRecord& requireGuide(std::uint64_t id, const char* operation) const;
  std::uint64_t allocateGuideId();
  std::uint32_t allocateGroupId();
  void append(GuideRecord guide);
  void rebuildGuideIndex();
  /// Level per group of groups_. Throws std::runtime_error where groups are their own ancestors.
  std::vector<int> groupLevels() const;
  /// For each guide of `marked` (one flag per guide) its descendants are marked too.
  void markDescendants(std::vector<char>& marked) const;
  void removeMarked(const std::vector<char>& marked);
  /// The offsets that such points have from a parent's curve; none where either is no curve. Throws
  /// std::invalid_argument where they are out of the range of numbers.
  std::vector<Vec3f> offsetsUnder(std::uint64_t parent, std::span<const Vec3f> points,
                                  const char* operation) const;
  /// Gives each listed guide its parent (0 for none), its lock and the offsets that keep it where
  /// it is. Throws std::invalid_argument with nothing changed.
  struct Placement {
    std::uint32_t index;
    std::uint64_t parent;
    bool locked;
  };
  void place(std::span<const Placement> placements, const char* operation);
  Guide resolved(const GuideRecord& guide) const;
  template <class Wanted>
  GuideSet resolvedWhere(Wanted wanted) const;
  /// Removes the groups' guides on the far side with their descendants; returns those on the near
  /// side per group.
  std::vector<std::vector<std::uint64_t>> clearFarSide(std::span<const std::uint32_t> groups,
                                                       int axis, float center, bool fromNegative);
  std::uint64_t addMirrored(const GuideRecord& source, int axis, float center);
  std::vector<std::uint64_t> mirrorFamilies(int axis, float center, bool fromNegative);
  void updateIndices(const ScalpMesh* scalp, std::vector<std::uint32_t> indices);
  void updateRun(const ScalpMesh* scalp, std::span<const std::uint32_t> run);
  static GuideHierarchy read(std::string_view text);
  /// Checks what was read and makes the indices of it.
  void indexRead();

  std::vector<GuideGroup> groups_;
  std::vector<GuideRecord> guides_;
  std::unordered_map<std::uint64_t, std::uint32_t> guideIndex_;
  std::unordered_map<std::uint32_t, std::uint32_t> groupIndex_;
  std::uint32_t nextGroupId_ = 1;
  std::uint64_t nextGuideId_ = 1;
  std::uint64_t scalpTopology_ = 0;
};

}  // namespace kestrane
