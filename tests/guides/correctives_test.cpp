// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/correctives.h"

#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::makeFamily;

CorrectiveLayer layerAt(double time) {
  CorrectiveLayer layer;
  layer.name = "shot";
  layer.time = time;
  layer.weight = 0.8f;
  return layer;
}

TEST(Correctives, TheWeightFollowsTheEnvelope) {
  CorrectiveLayer plain = layerAt(10), faded = layerAt(10), held = layerAt(10), off = layerAt(10);
  faded.fadeIn = 4;
  faded.fadeOut = 2;
  held.holdBefore = held.holdAfter = true;
  held.fadeIn = 1;
  off.enabled = false;
  CorrectiveLayer keyed = layerAt(10);
  keyed.weightCurve = {{0, 1}, {4, 3}, {4, 5}, {8, 0}};
  CorrectiveLayer hidden = keyed;
  hidden.enabled = false;
  const struct {
    const CorrectiveLayer& layer;
    double time;
    float wanted;
  } cases[] = {
      {plain, 10, 0.8f},
      {plain, 10 + 9e-7, 0.8f},
      {plain, 10 - 9e-7, 0.8f},
      {plain, 10 + 1.1e-6, 0},
      {plain, 9, 0},
      {faded, 10, 0.8f},
      {faded, 8, 0.4f},
      {faded, 9, 0.8f * 0.84375f},
      {faded, 6, 0},
      {faded, -50, 0},
      {faded, 11, 0.4f},
      {faded, 12.5, 0},
      {held, -1e9, 0.8f},
      {held, 1e9, 0.8f},
      {off, 10, 0},
      {keyed, -3, 1},
      {keyed, 0, 1},
      {keyed, 2, 2},
      {keyed, 4, 5},
      {keyed, 6, 2.5f},
      {keyed, 8, 0},
      {keyed, 99, 0},
      {hidden, 2, 0},
  };
  for (const auto& [layer, time, wanted] : cases) {
    EXPECT_NEAR(layerWeightAt(layer, time), wanted, 1e-6f) << "at " << time;
  }
}

TEST(Correctives, OffsetsMoveAlongTheFramesAndChildrenFollow) {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  const std::uint64_t id = hierarchy.addGuide(top, {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}});
  hierarchy.generateChildren(hierarchy.generateChildren(top, "locks", {}), "strays", {});
  const std::vector<Vec3f> child = hierarchy.guidesAtLevel(1).guides[0].points;
  const std::vector<Vec3f> stray = hierarchy.guidesAtLevel(2).guides[0].points;
  CorrectiveLayer layer = layerAt(3);
  layer.weight = 0.5f;
  // Fewer offsets than points: the tip stays.
  layer.offsets[id] = {{0, 0, 0}, {2, 4, 6}};
  layer.offsets[999] = {{1, 1, 1}};
  const std::unordered_set<std::uint64_t> leaveOut{id};
  GuideHierarchy untouched = hierarchy;
  applyCorrectives(std::span(&layer, 1), untouched, 3, &leaveOut);
  applyCorrectives(std::span(&layer, 1), untouched, 4);
  EXPECT_EQ(untouched.toJson(), hierarchy.toJson());

  const Vec3f up = hierarchy.findGuide(id)->frameUp, side = cross(up, {0, 1, 0});
  applyCorrectives(std::span(&layer, 1), hierarchy, 3);
  test::expectNearPoints(hierarchy.findGuide(id)->points,
                         {{0, 0, 0}, Vec3f{0, 4, 0} + side * 1.0f + up * 2.0f, {0, 2, 0}}, 1e-5f);
  const std::vector<Vec3f> moved = hierarchy.guidesAtLevel(1).guides[0].points;
  EXPECT_GT(distance(moved[1], child[1]), 1.0f);
  EXPECT_GT(distance(hierarchy.guidesAtLevel(2).guides[0].points[1], stray[1]), 1.0f);
}

/// Guides of every level bent by hand, a few left alone.
GuideHierarchy sculptedFrom(GuideHierarchy hierarchy) {
  for (int level = 0; level < 3; ++level) {
    const GuideSet guides = hierarchy.guidesAtLevel(level);
    for (std::size_t g = 0; g < guides.guides.size(); g += 2) {
      const std::uint64_t id = guides.guides[g].id;
      std::vector<Vec3f> points = hierarchy.findGuide(id)->points;
      for (std::size_t i = 1; i < points.size(); ++i) {
        points[i] += Vec3f{0.3f, -0.1f, 0.2f} * static_cast<float>(i + g);
      }
      hierarchy.setPoints(id, points);
      hierarchy.updateFromScalp(nullptr);
    }
  }
  return hierarchy;
}

void expectSameGuides(const GuideHierarchy& found, const GuideHierarchy& wanted, float tolerance) {
  for (const GuideRecord& guide : wanted.guides()) {
    SCOPED_TRACE(guide.id);
    test::expectNearPoints(found.findGuide(guide.id)->points, guide.points, tolerance);
  }
}

TEST(Correctives, WhatIsSculptedComesBackWhenApplied) {
  const GuideHierarchy base = makeFamily(4);
  // Another layer moves the guides already; the new one fades and is sculpted at part of its
  // weight.
  CorrectiveData data;
  sculptIntoLayer(data, "first", 20, base, sculptedFrom(base));
  data.layers[0].holdBefore = true;
  data.layers.push_back(layerAt(12));
  data.layers[1].fadeIn = 4;
  GuideHierarchy before = base;
  applyCorrectives(data.layers, before, 10);
  const GuideHierarchy wanted = sculptedFrom(before);
  sculptIntoLayer(data, "shot", 10, base, wanted);
  GuideHierarchy after = base;
  applyCorrectives(data.layers, after, 10);
  expectSameGuides(after, wanted, 5e-4f);
  // Sculpting what is there already records nothing more.
  const CorrectiveData once = data;
  sculptIntoLayer(data, "shot", 10, base, after);
  EXPECT_EQ(data, once);
  GuideHierarchy away = base;
  applyCorrectives(data.layers, away, 7);
  expectSameGuides(away, sculptedFrom(base), 5e-4f);
}

TEST(Correctives, ALayerWithoutWeightRefusesAndAFaintOneScalesUp) {
  const GuideHierarchy base = makeFamily(1), sculpted = sculptedFrom(base);
  CorrectiveData data;
  data.layers.push_back(layerAt(0));
  data.layers[0].weight = 0.0005f;
  const CorrectiveData before = data;
  EXPECT_EQ(test::thrownBy<std::invalid_argument>(
                [&] { sculptIntoLayer(data, "shot", 0, base, sculpted); }),
            "corrective layer 'shot' has no weight on this frame: raise its weight (and key it) to "
            "sculpt here");
  EXPECT_EQ(data, before);
  CorrectiveData full;
  sculptIntoLayer(full, "new", 0, base, sculpted);
  EXPECT_EQ(full.layers[0].name, "new");
  data.layers[0].weight = 0.001f;
  sculptIntoLayer(data, "shot", 0, base, sculpted);
  const std::uint64_t id = base.guidesAtLevel(0).guides[0].id;
  const Vec3f once = full.layers[0].offsets.at(id)[5], scaled = data.layers[0].offsets.at(id)[5];
  EXPECT_LE(distance(scaled, once * 1000.0f), 0.01f * length(scaled));
}

TEST(Correctives, OffsetsOutOfRangeThrowAndLeaveTheGuides) {
  GuideHierarchy hierarchy = makeFamily(2);
  const std::string before = hierarchy.toJson();
  CorrectiveLayer layer = layerAt(0);
  layer.weight = 3e38f;
  layer.offsets[hierarchy.guidesAtLevel(0).guides[0].id] = {{1, 0, 0}};
  layer.offsets[hierarchy.guidesAtLevel(1).guides[0].id] = {{1e30f, 0, 0}};
  EXPECT_THROW(applyCorrectives(std::span(&layer, 1), hierarchy, 0), std::invalid_argument);
  EXPECT_EQ(hierarchy.toJson(), before);
}

TEST(Correctives, TextsRoundTripAndFaultsAreNamed) {
  CorrectiveLayer layer = layerAt(101.25);
  layer.fadeIn = 0.1;
  layer.holdAfter = true;
  layer.slot = -3;
  layer.weightCurve = {{0.1, 0.1f}, {7, 1}};
  layer.offsets[18446744073709551615u] = {{0.1f, -0.0f, 1e-30f}};
  layer.offsets[2] = {};
  const CorrectiveData data{{layer, CorrectiveLayer{"second \"layer\""}}};
  const std::string text = correctivesToJson(data);
  EXPECT_EQ(correctivesFromJson(" " + text + "\r\n"), data);
  EXPECT_EQ(correctivesToJson(correctivesFromJson(text)), text);
  EXPECT_EQ(correctivesFromJson("\t"), CorrectiveData());

  const std::string good =
      R"({"layers":[{"name":"a","time":0,"fadeIn":0,"fadeOut":0,"holdBefore":false,"holdAfter":)"
      R"(false,"weight":1,"enabled":true,"slot":0,"weightCurve":[],"offsets":{"7":[1,2,3]}}]})";
  const auto failureOf = [&](const std::string& from, const std::string& to) -> std::string {
    std::string broken = good;
    broken.replace(broken.find(from), from.size(), to);
    try {
      correctivesFromJson(broken);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "nothing thrown";
  };
  const struct {
    const char *from, *to, *reason;
  } cases[] = {
      {"\"7\"", "\"x\"", "invalid stoull argument"},
      {"\"7\"", "\"\"", "invalid stoull argument"},
      {"\"7\"", "\"-7\"", "invalid stoull argument"},
      {"\"7\"", "\"7 \"", "invalid stoull argument"},
      {"\"7\"", "\"18446744073709551616\"", "stoull argument out of range"},
      {"[1,2,3]", "[1,2]", "point array length is not a multiple of 3"},
      {"\"weightCurve\":[]", "\"weightCurve\":[[1]]", "a weight key needs a time and a weight"},
      {"\"fadeIn\"", "\"fade\"", "key 'fadeIn' not found"},
      {"\"slot\":0", "\"slot\":1e10", "found number where a whole number belongs"},
      {"]}}]}",
       "]}},{\"name\":\"\xC3\xA9\",\"time\":0,\"fadeIn\":0,\"fadeOut\":0,\"holdBefore\":false,"
       "\"holdAfter\":false,\"weight\":1,\"enabled\":true,\"slot\":0,\"weightCurve\":[],"
       "\"offsets\":{}},{\"name\":\"a\",\"time\":0,\"fadeIn\":0,\"fadeOut\":0,\"holdBefore\":false,"
       "\"holdAfter\":false,\"weight\":1,\"enabled\":true,\"slot\":0,\"weightCurve\":[],"
       "\"offsets\":{}}]}",
       "two corrective layers are named 'a'"},
      {"{\"layers\"", "{\"version\":2,\"layers\"",
       "corrective data version 2 is newer than this Kestrane supports (1); update Kestrane to "
       "open "
       "it"},
  };
  EXPECT_EQ(failureOf("\"a\"", "\"a\""), "nothing thrown");
  for (const auto& [from, to, reason] : cases) EXPECT_EQ(failureOf(from, to), reason) << to;
}

}  // namespace
}  // namespace kestrane
