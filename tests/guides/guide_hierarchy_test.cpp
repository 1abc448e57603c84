// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/guide_hierarchy.h"

#include <functional>
#include <numbers>

#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::makeFamily;
using test::windingCurve;
using Ids = std::vector<std::uint64_t>;

std::uint32_t groupNamed(const GuideHierarchy& hierarchy, std::string_view name) {
  return hierarchy.findGroupNamed(name)->id;
}

Ids idsOf(const GuideSet& set) {
  Ids ids;
  for (const Guide& guide : set.guides) ids.push_back(guide.id);
  return ids;
}

TEST(GuideHierarchy, RefusesWithItsWordsAndChangesNothing) {
  GuideHierarchy hierarchy = makeFamily(2);
  const std::uint32_t top = groupNamed(hierarchy, "guides"), locks = groupNamed(hierarchy, "locks");
  const std::uint32_t strays = groupNamed(hierarchy, "strays");
  const std::uint32_t empty = hierarchy.addGroup("empty", 0);
  const std::uint32_t onePoint = hierarchy.addGroup("one point", 0);
  hierarchy.addGuide(onePoint, {{0, 0, 0}});
  const std::uint64_t first = hierarchy.guidesOfGroup(top).guides[0].id;
  const std::uint64_t lock = hierarchy.guidesOfGroup(locks).guides[0].id;
  hierarchy.setAttribute(first, "clump", 0.5f);
  const float nan = std::nanf("");
  const std::vector<Vec3f> curve = windingCurve({}, 4);
  const Ids firstAndLock{first, lock}, onlyLock{lock}, unknown{lock, 12345}, onlyFirst{first};

  const struct {
    std::string message;
    std::function<void(GuideHierarchy&)> edit;
  } cases[] = {
      {"addGroup: unknown parent group", [&](auto& h) { h.addGroup("new", 99); }},
      {"addGroup: group 'locks' exists", [&](auto& h) { h.addGroup("locks", top); }},
      {"addGuide: unknown group", [&](auto& h) { h.addGuide(99, curve); }},
      {"addGuide: primary guides belong in root groups",
       [&](auto& h) { h.addGuide(locks, curve); }},
      {"addGuide: duplicate guide id", [&](auto& h) { h.addGuide(top, curve, {}, first); }},
      {"addGuide: the points must be finite numbers",
       [&](auto& h) {
         h.addGuide(top, {{0, 0, 0}, {nan, 0, 0}});
       }},
      {"addChildGuide: not a child group", [&](auto& h) { h.addChildGuide(top, first, curve); }},
      {"addChildGuide: not a child group", [&](auto& h) { h.addChildGuide(99, first, curve); }},
      {"addChildGuide: the parent must be in the group's parent group",
       [&](auto& h) { h.addChildGuide(strays, first, curve); }},
      {"addChildGuide: the parent must be in the group's parent group",
       [&](auto& h) { h.addChildGuide(locks, 12345, curve); }},
      {"addChildGuide: a guide needs at least 2 points",
       [&](auto& h) {
         h.addChildGuide(locks, first, {{0, 0, 0}});
       }},
      {"generateChildren: unknown parent group", [&](auto& h) { h.generateChildren(99, "x", {}); }},
      {"generateChildren: guide " + std::to_string(lock) + " is not in the parent group",
       [&](auto& h) { h.generateChildren(top, "x", {}, firstAndLock); }},
      {"generateChildren: group 'strays' belongs to another parent group",
       [&](auto& h) { h.generateChildren(top, "strays", {}); }},
      {"reparent: unknown parent guide", [&](auto& h) { h.reparent(onlyLock, 12345); }},
      {"reparent: unknown guide", [&](auto& h) { h.reparent(unknown, first); }},
      {"reparent: the new parent must be in the guide's parent group",
       [&](auto& h) { h.reparent(firstAndLock, first); }},
      {"promoteGroup: unknown group", [&](auto& h) { h.promoteGroup(99); }},
      {"promoteGroup: 'guides' is already a root group", [&](auto& h) { h.promoteGroup(top); }},
      {"demoteGroup: unknown group", [&](auto& h) { h.demoteGroup(top, 99); }},
      {"demoteGroup: the new parent group must be a sibling of 'guides'",
       [&](auto& h) { h.demoteGroup(top, top); }},
      {"demoteGroup: the new parent group must be a sibling of 'strays'",
       [&](auto& h) { h.demoteGroup(strays, top); }},
      {"demoteGroup: 'empty' has no guides to follow", [&](auto& h) { h.demoteGroup(top, empty); }},
      {"mirrorGroup: unknown group", [&](auto& h) { h.mirrorGroup(99, 0, 0, false); }},
      {"mirrorGroup: mirror root groups (then regenerate children)",
       [&](auto& h) { h.mirrorGroup(locks, 0, 0, false); }},
      {"mirrorGroup: axis must be 0, 1 or 2", [&](auto& h) { h.mirrorGroup(top, 3, 0, false); }},
      {"mirrorAll: axis must be 0, 1 or 2", [&](auto& h) { h.mirrorAll(-1, 0, false); }},
      {"mirrorAll: the mirrored points must be finite numbers",
       [&](auto& h) { h.mirrorAll(0, 3e38f, true); }},
      {"setPoints: unknown guide", [&](auto& h) { h.setPoints(12345, curve); }},
      {"setPoints: the points must be finite numbers",
       [&](auto& h) {
         h.setPoints(first, {{nan, 0, 0}});
       }},
      {"setPointAttribute: expected one value per point",
       [&](auto& h) {
         h.setPointAttribute(first, "w", {1, 2});
       }},
      {"setLocked: unknown guide", [&](auto& h) { h.setLocked(unknown, true); }},
      {"a guide group needs a name", [&](auto& h) { h.renameGroup(top, ""); }},
      {"a guide group named 'locks' exists", [&](auto& h) { h.renameGroup(top, "locks"); }},
      {"no such guide group", [&](auto& h) { h.renameGroup(99, "new"); }},
      {"a guide attribute named 'clump' already exists",
       [&](auto& h) { h.renameAttribute("curl", "clump"); }},
  };
  const std::string before = hierarchy.toJson();
  for (const auto& [message, edit] : cases) {
    EXPECT_EQ(test::thrownBy<std::invalid_argument>([&] { edit(hierarchy); }), message);
    EXPECT_EQ(hierarchy.toJson(), before) << message;
  }
}

TEST(GuideHierarchy, RemovalTakesTheDescendantsAlong) {
  GuideHierarchy hierarchy = makeFamily(3, 4);  // 3, 12 and 24 guides
  const Ids tops = idsOf(hierarchy.guidesAtLevel(0));
  EXPECT_EQ(hierarchy.descendantsOf(Ids{tops[1]}).size(), 4u + 8u);
  hierarchy.removeGuides(Ids{tops[1], 999});
  EXPECT_EQ(hierarchy.guides().size(), 2u + 8u + 16u);
  EXPECT_EQ(hierarchy.findGuide(tops[1]), nullptr);
  EXPECT_EQ(hierarchy.findGuide(tops[2])->id, tops[2]);
  hierarchy.removeGroups(std::vector<std::uint32_t>{groupNamed(hierarchy, "locks")});
  EXPECT_EQ(hierarchy.guides().size(), 2u);
  EXPECT_EQ(hierarchy.groups().size(), 1u);
  // The name and the IDs are free again.
  EXPECT_NE(hierarchy.addGroup("strays", 0), 0u);
  EXPECT_EQ(hierarchy.deepestLevel(), 0);
}

TEST(GuideHierarchy, ChildrenAreTheSameForTheSameSeedAndReplaceEachOther) {
  GuideHierarchy hierarchy = makeFamily(4);
  const std::string once = hierarchy.toJson();
  ChildSettings settings;
  settings.count = 3;
  settings.jitter = 0.3f;
  settings.twist = 0.5f;
  const std::uint32_t top = groupNamed(hierarchy, "guides");
  hierarchy.generateChildren(top, "locks", settings);
  settings.count = 2;
  hierarchy.generateChildren(groupNamed(hierarchy, "locks"), "strays", settings);
  EXPECT_EQ(hierarchy.toJson(), once);

  settings.seed = 1;
  const Ids tops = idsOf(hierarchy.guidesAtLevel(0)), before = idsOf(hierarchy.guidesAtLevel(1));
  hierarchy.generateChildren(top, "locks", settings, Ids{tops[2], tops[2]});
  std::size_t kept = 0;
  for (const std::uint64_t id : before) kept += hierarchy.findGuide(id) != nullptr;
  EXPECT_EQ(kept, 9u);
  EXPECT_EQ(hierarchy.guidesAtLevel(1).guides.size(), 9u + 2u);
}

/// A child's ID and its tip offset, drawn as documents of other programs hold them.
TEST(GuideHierarchy, ChildrenDrawTheDocumentedNumbers) {
  constexpr std::uint64_t golden = 0x9e3779b97f4a7c15u;
  const auto mix = [](std::uint64_t x) {
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9u;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebu;
    return x ^ (x >> 31);
  };
  const auto combine = [&](std::uint64_t h, std::uint64_t v) {
    return mix((h ^ (v + golden + (h << 6) + (h >> 2))) + golden);
  };
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  hierarchy.addGuide(top, {{0, 0, 0}, {0, 1, 0}}, {{2.0f}, 0.9f}, 42);
  ChildSettings settings;
  settings.count = 3;
  settings.rootSpread = 0.5f;
  settings.tipSpread = 0.25f;
  settings.jitter = 0.75f;
  settings.twist = 1.25f;
  settings.tubeScale = 0.5f;
  settings.seed = 11;
  hierarchy.generateChildren(top, "locks", settings);
  for (std::uint64_t k = 0; k < 3; ++k) {
    const std::uint64_t id = combine(combine(mix(42 + golden), 11), k);
    const GuideRecord* child = hierarchy.findGuide(id);
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->tube, (GuideTube{{1.0f}, 0.0f}));
    double u[4];
    for (std::uint64_t j = 0; j < 4; ++j) {
      u[j] = static_cast<double>(mix(mix(id + golden) + (j + 2) * golden) >> 40) * 0x1p-24;
    }
    const double r = std::sqrt(u[0]), a = 2.0 * std::numbers::pi * u[1];
    EXPECT_NEAR(child->offsets[0].x, r * 0.5 * std::cos(a), 1e-6);
    EXPECT_NEAR(child->offsets[0].y, r * 0.5 * std::sin(a), 1e-6);
    const double x = r * 0.25 * std::cos(a) + 0.75 * (2 * u[3] - 1);
    const double y = r * 0.25 * std::sin(a) + 0.75 * (2 * u[2] - 1);
    EXPECT_NEAR(child->offsets[1].x, std::cos(1.25) * x - std::sin(1.25) * y, 1e-6);
    EXPECT_NEAR(child->offsets[1].y, std::sin(1.25) * x + std::cos(1.25) * y, 1e-6);
  }
  const std::uint64_t added =
      hierarchy.addChildGuide(groupNamed(hierarchy, "locks"), 42, {{1, 0, 0}, {1, 1, 0}});
  EXPECT_EQ(hierarchy.findGuide(added)->tube, (GuideTube{{2.0f * 0.35f}, 0.9f}));
}

TEST(GuideHierarchy, ChildrenFillTheTubeEvenly) {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  hierarchy.addGuide(top, {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}}, {{0.5f, 2.0f}, 0.0f});
  ChildSettings settings;
  settings.count = 4000;
  settings.tipSpread = 0.5f;
  hierarchy.generateChildren(top, "locks", settings);
  std::size_t inner = 0, left = 0;
  for (const Guide& child : hierarchy.guidesAtLevel(1).guides) {
    const float root = std::hypot(child.points[0].x, child.points[0].z);
    EXPECT_LE(root, 0.5f + 1e-5f);
    // Tip over root: the spreads' ratio times the radii's.
    EXPECT_NEAR(std::hypot(child.points[2].x, child.points[2].z), root * 2.0f, 1e-4f);
    inner += root < 0.25f;
    left += child.points[0].x < 0.0f;
  }
  // A disc of half the radius has a quarter of the area.
  EXPECT_NEAR(static_cast<double>(inner), 1000.0, 110.0);
  EXPECT_NEAR(static_cast<double>(left), 2000.0, 130.0);
}

TEST(GuideHierarchy, GroupsMoveUpAndDownTheTree) {
  GuideHierarchy hierarchy = makeFamily(3);
  const std::uint32_t top = groupNamed(hierarchy, "guides"), locks = groupNamed(hierarchy, "locks");
  const std::uint32_t strays = groupNamed(hierarchy, "strays");
  const GuideSet before = hierarchy.guidesOfGroup(locks), below = hierarchy.guidesOfGroup(strays);

  hierarchy.promoteGroup(strays);
  EXPECT_EQ(hierarchy.levelOf(strays), 1);
  hierarchy.updateFromScalp(nullptr);
  for (const Guide& guide : below.guides) {
    const GuideRecord& record = *hierarchy.findGuide(guide.id);
    EXPECT_EQ(hierarchy.findGuide(record.parent)->group, top);
    test::expectNearPoints(record.points, guide.points, 1e-4f);
  }
  hierarchy.setLocked(std::span(&before.guides[1].id, 1), true);
  hierarchy.promoteGroup(locks);
  EXPECT_EQ(hierarchy.levelOf(locks), 0);
  for (const Guide& guide : before.guides) {
    const GuideRecord& record = *hierarchy.findGuide(guide.id);
    EXPECT_EQ(record.parent, 0u);
    EXPECT_FALSE(record.locked);
    EXPECT_TRUE(record.offsets.empty());
    EXPECT_EQ(record.points, guide.points);
  }
  hierarchy.demoteGroup(locks, top);
  hierarchy.updateFromScalp(nullptr);
  for (const Guide& guide : before.guides) {
    const GuideRecord& record = *hierarchy.findGuide(guide.id);
    EXPECT_EQ(record.parent, guide.parent) << "roots lie closest to the guide they grew around";
    test::expectNearPoints(record.points, guide.points, 1e-4f);
  }
  // Of leaders equally near, the first.
  const std::uint32_t lone = hierarchy.addGroup("lone", 0);
  const std::uint64_t id = hierarchy.addGuide(lone, windingCurve({2, 0, 3}, 5));
  hierarchy.demoteGroup(lone, top);
  EXPECT_EQ(hierarchy.findGuide(id)->parent, hierarchy.guides()[0].id);
}

TEST(GuideHierarchy, LockedChildrenStayAndUnlockedOnesFollowFromThere) {
  GuideHierarchy hierarchy = makeFamily(1);
  const Guide parent = hierarchy.guidesAtLevel(0).guides[0];
  const Ids children = idsOf(hierarchy.guidesAtLevel(1));
  const auto childPoints = [&] { return hierarchy.findGuide(children[0])->points; };
  const auto moveParent = [&](Vec3f by) {
    std::vector<Vec3f> points = hierarchy.findGuide(parent.id)->points;
    for (Vec3f& point : points) point += by;
    hierarchy.setPoints(parent.id, points);
    hierarchy.updateFromScalp(nullptr);
  };
  const std::vector<Vec3f> start = childPoints();
  hierarchy.setLocked(Ids{children[0]}, true);
  moveParent({0, 3, 0});
  EXPECT_EQ(childPoints(), start);
  hierarchy.setLocked(Ids{children[0]}, false);
  moveParent({1, 0, 0});
  for (std::size_t i = 0; i < start.size(); ++i) {
    EXPECT_LE(distance(childPoints()[i], start[i] + Vec3f{1, 0, 0}), 1e-4f);
  }
}

TEST(GuideHierarchy, AttributesAreInheritedFromTheNearestAncestor) {
  GuideHierarchy hierarchy = makeFamily(1);
  const std::uint64_t top = hierarchy.guidesAtLevel(0).guides[0].id;
  const Guide stray = hierarchy.guidesAtLevel(2).guides[0];
  hierarchy.setAttribute(top, "a", 1);
  hierarchy.setAttribute(top, "b", 2);
  hierarchy.setAttribute(stray.parent, "b", 3);
  hierarchy.setPointAttribute(top, "w", {0, 1, 2, 3, 4, 5, 6, 7, 8});
  hierarchy.setPoints(stray.id, windingCurve({}, 5));
  Guide read;
  for (const Guide& guide : hierarchy.guidesAtLevel(-1).guides) {
    if (guide.id == stray.id) read = guide;
  }
  EXPECT_EQ(read.attributes, (std::map<std::string, float>{{"a", 1}, {"b", 3}}));
  EXPECT_EQ(read.pointAttributes.at("w"), (std::vector<float>{0, 2, 4, 6, 8}));
  // The guide's own values follow its point count; an empty list removes them.
  hierarchy.setPoints(top, windingCurve({}, 3));
  EXPECT_EQ(hierarchy.findGuide(top)->pointAttributes.at("w"), (std::vector<float>{0, 4, 8}));
  hierarchy.renameAttribute("w", "width");
  EXPECT_TRUE(hierarchy.findGuide(top)->pointAttributes.contains("width"));
  hierarchy.setPointAttribute(top, "width", {});
  EXPECT_TRUE(hierarchy.findGuide(top)->pointAttributes.empty());
}

TEST(GuideHierarchy, ReadsGuidesByLevelAndByGroup) {
  GuideHierarchy hierarchy = makeFamily(2);
  const std::uint32_t top = groupNamed(hierarchy, "guides"), locks = groupNamed(hierarchy, "locks");
  const std::uint32_t strays = groupNamed(hierarchy, "strays");
  hierarchy.addGuide(top, {{1, 2, 3}});
  EXPECT_EQ(hierarchy.guides().size(), 2u + 6u + 12u + 1u);
  EXPECT_EQ(hierarchy.guidesAtLevel(0).guides.size(), 2u) << "one point is no curve";
  EXPECT_EQ(hierarchy.guidesAtLevel(-1), hierarchy.guidesOfGroup(strays));
  EXPECT_TRUE(hierarchy.guidesAtLevel(3).guides.empty());
  EXPECT_TRUE(GuideHierarchy().guidesAtLevel(-1).guides.empty());

  const std::uint32_t both[] = {strays, top, strays};
  Ids wanted = idsOf(hierarchy.guidesOfGroup(strays));
  for (const std::uint64_t id : idsOf(hierarchy.guidesOfGroup(top))) wanted.push_back(id);
  EXPECT_EQ(idsOf(hierarchy.guidesOfGroups(both)), wanted);
  EXPECT_EQ(hierarchy.withChildGroups(std::span(&locks, 1)),
            (std::vector<std::uint32_t>{locks, strays}));
  EXPECT_EQ(hierarchy.withoutGroups(hierarchy.guidesOfGroups(both), std::span(&locks, 1)),
            hierarchy.guidesOfGroup(top));
}

/// Offsets are lengths over radii: under a parent without a radius a far child has none.
TEST(GuideHierarchy, RefusesOffsetsOutOfRangeAndChangesNothing) {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("top", 0), low = hierarchy.addGroup("low", top);
  const std::uint32_t lowest = hierarchy.addGroup("lowest", low);
  const std::uint32_t loose = hierarchy.addGroup("loose", 0);
  const std::vector<Vec3f> near = windingCurve({1, 0, 0}, 4), far{{1e33f, 0, 0}, {1e33f, 1, 0}};
  const std::uint64_t thin = hierarchy.addGuide(top, near, {{0.0f}, 0.0f});
  const std::uint64_t wide = hierarchy.addGuide(top, near, {{4.0f}, 0.0f});
  const std::uint64_t child = hierarchy.addChildGuide(low, thin, near, GuideTube{{4.0f}, 0.0f});
  const std::uint64_t lost = hierarchy.addChildGuide(low, wide, far);
  const std::uint64_t held = hierarchy.addChildGuide(low, thin, near);
  hierarchy.addChildGuide(lowest, child, far);
  const std::uint64_t calm = hierarchy.addChildGuide(low, wide, near);
  hierarchy.setLocked(Ids{held, calm}, true);
  hierarchy.setPoints(held, far);
  hierarchy.setPointAttribute(held, "w", {-3e38f, 3e38f});
  hierarchy.addGuide(loose, far);
  const auto generated = [](float rootSpread, float tipSpread, float tubeScale) {
    ChildSettings settings;
    settings.rootSpread = rootSpread;
    settings.tipSpread = tipSpread;
    settings.tubeScale = tubeScale;
    return settings;
  };
  const struct {
    std::string message;
    std::function<void(GuideHierarchy&)> edit;
  } cases[] = {
      {"setPoints: the points are too far from the parent",
       [&](auto& h) { h.setPoints(child, far); }},
      {"setPoints: the values must be finite numbers", [&](auto& h) { h.setPoints(held, near); }},
      {"addChildGuide: the points are too far from the parent",
       [&](auto& h) { h.addChildGuide(low, thin, far); }},
      {"reparent: the points are too far from the parent",
       [&](auto& h) {
         h.reparent(Ids{child, lost}, thin);
       }},
      {"promoteGroup: the points are too far from the parent",
       [&](auto& h) { h.promoteGroup(lowest); }},
      {"demoteGroup: the points are too far from the parent",
       [&](auto& h) { h.demoteGroup(loose, top); }},
      {"setLocked: the points are too far from the parent",
       [&](auto& h) {
         h.setLocked(Ids{calm, held}, false);
       }},
      {"addChildGuide: the points are too far from the parent",
       [&](auto& h) { h.mirrorAll(0, 0.0f, false); }},
      {"generateChildren: the values must be finite numbers",
       [&](auto& h) { h.generateChildren(top, "low", generated(1, 1, 3e38f)); }},
      {"generateChildren: the points must be finite numbers",
       [&](auto& h) { h.generateChildren(top, "low", generated(-3e38f, 3e38f, 1)); }},
      {"generateChildren: the children are too far from the parent",
       [&](auto& h) { h.generateChildren(top, "new", generated(3e38f, 3e38f, 1)); }},
  };
  const std::string before = hierarchy.toJson();
  for (const auto& [message, edit] : cases) {
    EXPECT_EQ(test::thrownBy<std::invalid_argument>([&] { edit(hierarchy); }), message);
    EXPECT_EQ(hierarchy.toJson(), before) << message;
  }
}

}  // namespace
}  // namespace kestrane
