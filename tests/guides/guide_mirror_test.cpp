// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <set>

#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::windingCurve;

/// Guides on both sides of the plane x = 0 and one on it, each with children, some locked.
GuideHierarchy makeSides() {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  for (const float x : {-3.0f, 0.0f, 2.0f, 4.0f}) {
    const std::uint64_t id =
        hierarchy.addGuide(top, windingCurve({x, 0, 0}, 6), {{0.3f, 0.6f}, 0.7f});
    hierarchy.setAttribute(id, "x", x);
  }
  ChildSettings settings;
  settings.count = 2;
  const std::uint32_t locks = hierarchy.generateChildren(top, "locks", settings);
  hierarchy.generateChildren(locks, "strays", settings);
  hierarchy.setAttribute(hierarchy.guidesOfGroup(locks).guides[4].id, "child", 1);
  const std::uint64_t locked = hierarchy.guidesOfGroup(locks).guides[5].id;
  hierarchy.setLocked(std::span(&locked, 1), true);
  return hierarchy;
}

/// What a hierarchy looks like apart from the IDs and the order of its guides.
std::multiset<std::string> shapes(const GuideHierarchy& hierarchy) {
  std::multiset<std::string> result;
  for (const GuideRecord& guide : hierarchy.guides()) {
    std::string text = hierarchy.findGroup(guide.group)->name + (guide.locked ? " locked" : "");
    for (const Vec3f& point : guide.points) text += testing::PrintToString(point + Vec3f{});
    for (const float radius : guide.tube.radius) text += " " + std::to_string(radius);
    text += " " + std::to_string(guide.tube.twist);
    for (const auto& [name, value] : guide.attributes) text += name + std::to_string(value);
    // The parent by its place, since IDs change.
    if (const GuideRecord* parent = hierarchy.findGuide(guide.parent)) {
      text += testing::PrintToString(parent->points[0] + Vec3f{});
    }
    result.insert(text);
  }
  return result;
}

TEST(GuideMirror, ReplacesOneSideByTheOther) {
  GuideHierarchy hierarchy = makeSides();
  const std::uint32_t top = hierarchy.groups()[0].id;
  const GuideSet before = hierarchy.guidesOfGroup(top);
  const auto copies = hierarchy.mirrorGroup(top, 0, 0.0f, false);
  ASSERT_EQ(copies.size(), 2u);
  EXPECT_EQ(hierarchy.findGuide(before.guides[0].id), nullptr);
  for (std::size_t c = 0; c < 2; ++c) {
    const GuideRecord& source = *hierarchy.findGuide(before.guides[c + 2].id);
    const GuideRecord& copy = *hierarchy.findGuide(copies[c]);
    EXPECT_EQ(copy.root.face, -1);
    EXPECT_EQ(copy.attributes, source.attributes);
    EXPECT_EQ(copy.frameUp, (Vec3f{-source.frameUp.x, source.frameUp.y, source.frameUp.z}));
    for (std::size_t i = 0; i < source.points.size(); ++i) {
      const Vec3f p = source.points[i];
      EXPECT_EQ(copy.points[i], (Vec3f{-p.x, p.y, p.z}));
    }
  }
  // The guide on the plane and its family stay; those removed took theirs along.
  EXPECT_EQ(hierarchy.guidesOfGroup(top).guides.size(), 5u);
  EXPECT_EQ(hierarchy.guidesAtLevel(1).guides.size(), 6u);
}

TEST(GuideMirror, OfAGroupOnThePlaneDoesNothing) {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  hierarchy.addGuide(top, windingCurve({1, 0, 0}, 5));
  hierarchy.addGuide(top, windingCurve({1.00001f, 5, 0}, 5));
  hierarchy.addGuide(top, {});
  const std::string before = hierarchy.toJson();
  for (const bool fromNegative : {false, true}) {
    EXPECT_TRUE(hierarchy.mirrorGroup(top, 0, 1.0f, fromNegative).empty());
    EXPECT_TRUE(hierarchy.mirrorAll(0, 1.0f, fromNegative).empty());
  }
  EXPECT_EQ(hierarchy.toJson(), before);
}

TEST(GuideMirror, OfAllFamiliesThereAndBackChangesNothingButIds) {
  GuideHierarchy hierarchy = makeSides();
  hierarchy.mirrorAll(0, 0.0f, false);
  const auto once = shapes(hierarchy);
  EXPECT_EQ(once.size(), 5u + 10u + 20u);
  const auto back = hierarchy.mirrorAll(0, 0.0f, true);
  EXPECT_EQ(back.size(), 2u + 4u + 8u);
  EXPECT_EQ(shapes(hierarchy), once);
  // Children of copies follow them to where they were copied.
  std::vector<std::vector<Vec3f>> before;
  for (const GuideRecord& guide : hierarchy.guides()) before.push_back(guide.points);
  hierarchy.updateFromScalp(nullptr);
  for (std::size_t i = 0; i < before.size(); ++i) {
    test::expectNearPoints(hierarchy.guides()[i].points, before[i], 1e-4f);
  }
}

TEST(GuideMirror, TakesTheRootGroupsInTurnEachWithItsFamilies) {
  GuideHierarchy hierarchy;
  std::vector<std::uint64_t> kept;
  for (const char* name : {"a", "b"}) {
    const std::uint32_t top = hierarchy.addGroup(name, 0);
    const std::uint32_t low = hierarchy.addGroup(std::string(name) + " low", top);
    for (const float x : {-2.0f, 2.0f, 4.0f}) {
      const std::uint64_t guide = hierarchy.addGuide(top, windingCurve({x, 0, 0}, 4));
      const std::uint64_t child = hierarchy.addChildGuide(low, guide, windingCurve({x, 1, 0}, 4));
      if (x > 0) kept.insert(kept.end(), {guide, child});
    }
  }
  const std::vector<std::uint64_t> made = hierarchy.mirrorAll(0, 0.0f, false);
  std::vector<std::uint64_t> ids;
  for (const GuideRecord& guide : hierarchy.guides()) ids.push_back(guide.id);
  std::vector<std::uint64_t> wanted = kept;
  wanted.insert(wanted.end(), {13, 14, 15, 16, 17, 18, 19, 20});
  EXPECT_EQ(ids, wanted);
  // Per group the copies of its own guides, then their children.
  EXPECT_EQ(made, (std::vector<std::uint64_t>{13, 14, 15, 16, 17, 18, 19, 20}));
  std::string places;
  for (const std::uint64_t id : made) {
    const GuideRecord& guide = *hierarchy.findGuide(id);
    places += hierarchy.findGroup(guide.group)->name + std::to_string(guide.points[0].x) + ",";
  }
  EXPECT_EQ(places,
            "a-2.000000,a-4.000000,a low-2.000000,a low-4.000000,"
            "b-2.000000,b-4.000000,b low-2.000000,b low-4.000000,");
}

TEST(GuideMirror, GoesDownAVeryDeepTree) {
  GuideHierarchy hierarchy;
  std::uint32_t group = hierarchy.addGroup("0", 0);
  std::uint64_t guide = hierarchy.addGuide(group, {{1, 0, 0}, {1, 1, 0}});
  for (int level = 1; level < 3000; ++level) {
    group = hierarchy.addGroup(std::to_string(level), group);
    guide = hierarchy.addChildGuide(group, guide, {{1, 0, 0}, {1, 1, 0}});
  }
  EXPECT_EQ(hierarchy.mirrorAll(0, 0.0f, false).size(), 3000u);
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).toJson(), hierarchy.toJson());
}

}  // namespace
}  // namespace kestrane
