// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/guide_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

/// Guides that differ in length, in layers and in what their layers hold.
GuideSet makeGuides() {
  GuideSet set;
  Guide plain{7, 1, 0, {3, 0.25f, 0.5f}, {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}}, {}, {}};
  Guide layered{9, 2, 7, {4, 0.1f, 0.2f}, {{1, 0, 0}, {1, 1, 0}}, {}, {}};
  layered.attributes = {{"density", 0.5f}, {"zero", 0.0f}};
  layered.pointAttributes = {{"wet", {0.0f, 1.0f}}, {"dry", {0.0f, 0.0f}}};
  Guide negative{8, 0, 0, {}, {{2, 0, 0}}, {{"density", -1.0f}}, {{"wet", {3.0f}}}};
  Guide bare{10, 0, 0, {}, {}, {}, {}};
  set.guides = {plain, layered, negative, bare};
  return set;
}

TEST(GuideSet, StrandsAndBackIsTheSameSet) {
  const GuideSet guides = makeGuides();
  const StrandSet strands = strandsFromGuides(guides);
  test::expectValidGroom(strands);
  EXPECT_EQ(strands.ids(), (Array<std::uint64_t>{7, 9, 8, 10}));
  EXPECT_EQ(strands.widths(), Array<float>(6, 1.0f));
  EXPECT_EQ(strands.strandChannelNames(), (std::vector<std::string>{"density", "zero"}));
  EXPECT_EQ(*strands.strandChannel("density"), (Array<float>{0, 0.5f, -1, 0}));
  EXPECT_EQ(*strands.pointChannel("wet"), (Array<float>{0, 0, 0, 0, 1, 3}));
  EXPECT_EQ(guidesFromStrands(strands, guides), guides);
  EXPECT_EQ(guidesFromStrands(strandsFromGuides({}), {}), GuideSet{});
}

TEST(GuideSet, ChangedStrandsComeBackUnderTheirIds) {
  const GuideSet guides = makeGuides();
  StrandSet strands = strandsFromGuides(guides).subset(std::vector<std::uint32_t>{2, 1, 0});
  strands.mutablePoints()[0] = {5, 5, 5};
  (*strands.mutableStrandChannel("zero"))[2] = 4.0f;
  (*strands.mutablePointChannel("dry"))[4] = 6.0f;
  strands.removeStrandChannel("density");
  strands.addStrand(77, {1, 0, 0}, std::vector<Vec3f>{{1, 1, 1}});
  const GuideSet found = guidesFromStrands(strands, guides);
  GuideSet wanted;
  wanted.guides = {guides.guides[2], guides.guides[1], guides.guides[0], Guide{}};
  wanted.guides[0].points[0] = {5, 5, 5};
  for (Guide& guide : wanted.guides) guide.attributes.erase("density");
  wanted.guides[2].attributes["zero"] = 4.0f;
  wanted.guides[2].pointAttributes["dry"] = {0.0f, 6.0f, 0.0f};
  wanted.guides[3].id = 77;
  wanted.guides[3].root = {1, 0, 0};
  wanted.guides[3].points = {{1, 1, 1}};
  EXPECT_EQ(found, wanted);
}

TEST(GuideSet, GuidesThatShareAnIdKeepTheirOwnLayers) {
  GuideSet guides = makeGuides();
  for (Guide& guide : guides.guides) guide.id = 1;
  EXPECT_EQ(guidesFromStrands(strandsFromGuides(guides), guides), guides);
}

TEST(GuideSet, LayersOfWrongSizeAreFitted) {
  GuideSet guides = makeGuides();
  guides.guides[0].pointAttributes["wet"] = {0.0f, 1.0f};
  guides.guides[1].pointAttributes["wet"] = {};
  const StrandSet strands = strandsFromGuides(guides);
  test::expectValidGroom(strands);
  EXPECT_EQ(*strands.pointChannel("wet"), (Array<float>{0, 0.5f, 1, 0, 0, 3}));
}

TEST(GuideSet, HashSeesEveryField) {
  const std::function<void(std::vector<Guide>&)> writes[] = {
      [](auto&) {},
      [](auto& g) { g[0].id = 70; },
      [](auto& g) { g[0].group = 3; },
      [](auto& g) { g[0].parent = 3; },
      [](auto& g) { g[0].root.face = -1; },
      [](auto& g) { g[0].root.u = 0.5f; },
      [](auto& g) { g[0].points.back().z = -0.0f; },
      [](auto& g) { g[0].points.pop_back(); },
      [](auto& g) { g[1].attributes["density"] = 1.0f; },
      [](auto& g) { g[1].attributes["dense"] = 0.0f; },
      [](auto& g) { g[1].pointAttributes["wet"][0] = 1.0f; },
      [](auto& g) { g[1].pointAttributes["wet"].push_back(0.0f); },
      [](auto& g) { g[1].pointAttributes.erase("dry"); },
      [](auto& g) { std::swap(g[0], g[1]); },
      [](auto& g) { g.pop_back(); },
  };
  std::vector<std::uint64_t> seen;
  for (const auto& write : writes) {
    GuideSet guides = makeGuides();
    write(guides.guides);
    seen.push_back(contentHash(guides));
  }
  EXPECT_EQ(contentHash(makeGuides()), seen[0]);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
}

}  // namespace
}  // namespace kestrane
