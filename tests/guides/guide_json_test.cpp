// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <bit>
#include <cfloat>

#include "core/base/json.h"
#include "core/base/parallel.h"
#include "core/guides/guide_json_scan.h"
#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::makeFamily;
using test::windingCurve;

std::string failureOf(const std::string& text) {
  return test::thrownBy<std::runtime_error>([&] { GuideHierarchy::fromJson(text); });
}

/// A family with every optional key: bound and locked guides, attributes, awkward names.
GuideHierarchy makeRich() {
  GuideHierarchy hierarchy = makeFamily(3);
  const ScalpMesh scalp = test::makeGrid(4, 10.0f);
  const std::uint64_t locked = hierarchy.guidesAtLevel(1).guides[0].id;
  hierarchy.setLocked(std::span(&locked, 1), true);
  hierarchy.setAttribute(locked, "clump \"\\\" \xC3\xA9", -0.0f);
  hierarchy.setPointAttribute(locked, "w", std::vector<float>(9, 0.1f));
  hierarchy.addGroup("name with ],\"guides\":[ in it", 0);
  hierarchy.updateFromScalp(&scalp);
  return hierarchy;
}

TEST(GuideJson, WritesTheDocumentedText) {
  GuideHierarchy hierarchy;
  EXPECT_EQ(hierarchy.toJson(), R"({"groups":[],"guides":[],"version":1})");
  const std::uint32_t top = hierarchy.addGroup("a", 0), low = hierarchy.addGroup("b", top);
  const std::uint64_t id =
      hierarchy.addGuide(top, {{0, 0, 0}, {0, 0.1f, 1e-9f}}, {{1, 2.5f}, 0}, 7);
  hierarchy.addChildGuide(low, id, {{0, 0, 0}, {0, 0.1f, 1e-9f}}, GuideTube{{}, -1.0f});
  hierarchy.setAttribute(id, "z", 1e20f);
  EXPECT_EQ(hierarchy.toJson(),
            R"({"groups":[{"id":1,"name":"a","parent":0},{"id":2,"name":"b","parent":1}],)"
            R"("guides":[{"attributes":{"z":1e+20},"frameUp":[0.0,1e-08,-1.0],"group":1,"id":7,)"
            R"("points":[0.0,0.0,0.0,0.0,0.1,1e-09],"root":[-1,0.0,0.0],)"
            R"("tube":{"radius":[1.0,2.5],"twist":0.0}},)"
            R"({"frameUp":[0.0,1e-08,-1.0],"group":2,"id":1,)"
            R"("offsets":[0.0,0.0,0.0,0.0,0.0,0.0],"parent":7,)"
            R"("root":[-1,0.0,0.0],"tube":{"radius":[],"twist":-1.0}}],"version":1})");
}

TEST(GuideJson, RoundTripsByteForByte) {
  const GuideHierarchy hierarchy = makeRich();
  const std::string text = hierarchy.toJson();
  const GuideHierarchy back = GuideHierarchy::fromJson(" \r\n\t" + text + "\n");
  EXPECT_EQ(back.toJson(), text);
  EXPECT_EQ(back.groups(), hierarchy.groups());
  // What is not stored is made again: children from offsets, up to the shift onto the scalp.
  for (std::size_t i = 0; i < hierarchy.guides().size(); ++i) {
    const GuideRecord &a = hierarchy.guides()[i], &b = back.guides()[i];
    test::expectNearPoints(b.points, a.points, a.follows() ? 1e-4f : 0.0f);
    GuideRecord posed = b;
    posed.points = a.points;
    EXPECT_EQ(posed, a);
  }
  // New IDs do not collide with those read.
  GuideHierarchy grown = back;
  const std::uint64_t id = grown.addGuide(grown.groups()[0].id, windingCurve({}, 3));
  EXPECT_EQ(back.findGuide(id), nullptr);
  EXPECT_EQ(back.findGroup(grown.addGroup("new", 0)), nullptr);
}

TEST(GuideJson, KeepsEveryFloat) {
  std::vector<Vec3f> points{{0.0f, -0.0f, FLT_MIN},
                            {FLT_MAX, -FLT_MAX, FLT_TRUE_MIN},
                            {std::bit_cast<float>(0x15AE43FDu), 16777217.0f, 0.3f}};
  std::uint64_t draw = 1;
  while (points.size() < 3000) {
    float values[3];
    for (float& value : values) {
      do {
        draw = mix64(draw);
        value = std::bit_cast<float>(static_cast<std::uint32_t>(draw >> 32));
      } while (!std::isfinite(value));
    }
    points.push_back({values[0], values[1], values[2]});
  }
  GuideHierarchy hierarchy;
  hierarchy.addGuide(hierarchy.addGroup("a", 0), points);
  const GuideHierarchy back = GuideHierarchy::fromJson(hierarchy.toJson());
  const std::vector<Vec3f>& read = back.guides()[0].points;
  ASSERT_EQ(read.size(), points.size());
  EXPECT_EQ(std::memcmp(read.data(), points.data(), points.size() * sizeof(Vec3f)), 0);
}

TEST(GuideJson, KeysInAnyOrderAndSpellingReadTheSame) {
  const std::string text = makeRich().toJson();
  const std::string wanted = GuideHierarchy::fromJson(text).toJson();
  const Json document = parseJson(text);
  Json turned;
  for (auto key : {"version", "guides", "scalpTopology", "groups"}) turned[key] = document.at(key);
  EXPECT_EQ(GuideHierarchy::fromJson(turned.dump(3)).toJson(), wanted);
  // An escaped key and a second one go past the quick scan.
  std::string escaped = text;
  escaped.replace(escaped.find("\"guides\":[{"), 8, "\"gu\\u0069des\"");
  EXPECT_EQ(GuideHierarchy::fromJson(escaped).toJson(), wanted);
  std::string twice = text;
  twice.insert(1, "\"guides\":[],");
  EXPECT_EQ(GuideHierarchy::fromJson(twice).toJson(), wanted);
  EXPECT_EQ(GuideHierarchy::fromJson(" \t\r\n").toJson(), GuideHierarchy().toJson());
}

TEST(GuideJson, RefusesUnsoundDocumentsWithAReason) {
  const std::string groups = R"("groups":[{"id":1,"name":"a"},{"id":2,"name":"b","parent":1}])";
  const auto guide = [](const std::string& fields) {
    return R"({"group":1,"root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[1],"twist":0},)" +
           fields + "}";
  };
  const auto with = [&](const std::string& guides) {
    return "{" + groups + ",\"guides\":[" + guides + "],\"version\":1}";
  };
  const struct {
    std::string text;
    const char* reason;
  } cases[] = {
      {"[]", "guide data must be a JSON object"},
      {"nonsense",
       "parse error at line 1, column 2: syntax error while parsing value - invalid "
       "literal; last read: 'no'"},
      {R"({"version":2,"groups":[],"guides":[]})",
       "guide data version 2 is newer than this Kestrane supports (1); update Kestrane to open it"},
      {R"({"guides":[]})", "key 'groups' not found"},
      {R"({"groups":[]})", "key 'guides' not found"},
      {R"({"groups":[],"guides":{}})", "found object where an array belongs"},
      {R"({"groups":3,"guides":[]})", "found number where an array belongs"},
      {R"({"groups":[{"id":0,"name":"a"}],"guides":[]})", "group 'a' has the id 0"},
      {R"({"groups":[{"id":-1,"name":"a"}],"guides":[]})", "the whole number -1 is out of range"},
      {R"({"groups":[{"id":4294967296,"name":"a"}],"guides":[]})",
       "the whole number 4294967296 is out of range"},
      {R"({"groups":[{"id":18446744073709551615,"name":"a"}],"guides":[]})",
       "the whole number 18446744073709551615 is out of range"},
      {R"({"groups":[{"id":1.5,"name":"a"}],"guides":[]})",
       "found number where a whole number belongs"},
      {R"({"groups":[{"id":1,"name":7}],"guides":[]})", "found number where a text belongs"},
      {R"({"groups":[{"id":1,"name":"a"},{"id":1,"name":"b"}],"guides":[]})",
       "two groups have the id 1"},
      {R"({"groups":[{"id":1,"name":"a"},{"id":2,"name":"a"}],"guides":[]})",
       "two groups are named 'a'"},
      {R"({"groups":[{"id":1,"name":"\u00E9"},{"id":2,"name":"\u00E9"}],"guides":[]})",
       "two groups are named '\xC3\xA9'"},
      {R"({"groups":[{"id":1,"name":"a","parent":5}],"guides":[]})",
       "group 'a' has the unknown parent group 5"},
      {R"({"groups":[{"id":1,"name":"a","parent":2},{"id":2,"name":"b","parent":1}],"guides":[]})",
       "group 'a' is its own ancestor"},
      {R"({"groups":[],"guides":[],"scalpTopology":"x"})",
       "found string where a whole number belongs"},
      {with("7"), "cannot use at() with number"},
      {with(guide("\"id\":1") + ",{}"), "key 'id' not found"},
      {with(guide("\"id\":1") + "," + guide("\"id\":1")), "two guides have the id 1"},
      {with(guide("\"id\":0")), "a guide has the id 0"},
      {with(guide("\"id\":1,\"group\":9")), "guide 1 is in the unknown group 9"},
      {with(guide("\"id\":1,\"parent\":1")),
       "guide 1 follows guide 1, which is not in the parent group"},
      {with(guide("\"id\":1,\"group\":2,\"parent\":2") + "," +
            guide("\"id\":2,\"group\":2,\"parent\":1")),
       "guide 1 follows guide 2, which is not in the parent group"},
      {with(guide("\"id\":1,\"points\":[1,2,3,4]")), "point array length is not a multiple of 3"},
      {with(guide("\"id\":1,\"points\":[1,null,3]")), "found null where a number belongs"},
      {with(guide("\"id\":1,\"points\":[1,1e39,3]")), "a number is too large"},
      {with(guide("\"id\":1,\"points\":[[1,2,3]]")), "found array where a number belongs"},
      {with(guide("\"id\":1,\"root\":[99999999999,0,0]")),
       "the whole number 99999999999 is out of range"},
      {with(guide("\"id\":1,\"root\":[0,1e30,0]")), "a root's weights are no place on a triangle"},
      {with(guide("\"id\":1,\"locked\":1")), "found number where true or false belongs"},
      {with(guide("\"id\":1,\"points\":[0,0,0],\"pointAttributes\":{\"w\":[1,2]}")),
       "point attribute 'w' has 2 values for 1 points"},
      {with(guide("\"id\":1,\"attributes\":[]")), "found array where an object belongs"},
  };
  for (const auto& [text, reason] : cases) {
    EXPECT_EQ(failureOf(text), std::string("invalid guide data: ") + reason) << text;
  }
  EXPECT_EQ(failureOf(with(std::string(100000, '['))).find("invalid guide data: "), 0u);
}

TEST(GuideJson, TheQuickScanFindsEveryGuide) {
  const GuideHierarchy hierarchy = makeRich();
  const auto spans = detail::findGuideSpans(hierarchy.toJson());
  ASSERT_TRUE(spans.has_value());
  EXPECT_EQ(spans->elements.size(), hierarchy.guides().size());
  EXPECT_EQ(parseJson(spans->outside).at("groups").size(), hierarchy.groups().size());
  const char* const givenUp[] = {"",
                                 "[]",
                                 "{",
                                 R"({"guides":1})",
                                 R"({"guides":[1,,2]})",
                                 R"({"guides":[1})",
                                 R"({"guides":[1,]})",
                                 R"({"guides":["x]})",
                                 R"({"x":{"guides":[]}})",
                                 R"({"guides":[],"guides":[]})"};
  for (const char* text : givenUp) EXPECT_FALSE(detail::findGuideSpans(text)) << text;
  const auto nested =
      detail::findGuideSpans(R"({"x":{"guides":[1]}, "guides" : [ 2, "]\"",{"guides":[]} ]})");
  ASSERT_TRUE(nested.has_value());
  EXPECT_EQ(nested->elements.size(), 3u);
}

TEST(GuideJson, ACutTextIsRefusedWhereverItIsCut) {
  const std::string text = makeRich().toJson();
  for (std::size_t size = 1; size < text.size(); size += 29) {
    EXPECT_EQ(failureOf(text.substr(0, size)).find("invalid guide data: "), 0u) << size;
  }
}

/// A document need not give a child as many offsets as points.
TEST(GuideJson, AChildHasOneOffsetPerPoint) {
  const std::string fields = R"("root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[1],"twist":0})";
  for (const std::string offsets : {"1,2,3", "1,2,3,0,0,0,0,0,0,9,9,9"}) {
    const std::string text = R"({"groups":[{"id":1,"name":"a"},{"id":2,"name":"b","parent":1}],)"
                             R"("guides":[{"id":1,"group":1,"points":[0,0,0,0,1,0],)" +
                             fields +
                             R"(},{"id":2,"group":2,"parent":1,"points":[5,5,5,6,6,6,7,7,7],)"
                             R"("pointAttributes":{"w":[1,2,3]},"offsets":[)" +
                             offsets + "]," + fields + "}]}";
    const GuideHierarchy hierarchy = GuideHierarchy::fromJson(text);
    const GuideRecord& child = hierarchy.guides()[1];
    EXPECT_EQ(child.offsets, (std::vector<Vec3f>{{1, 2, 3}, {}, {}}));
    test::expectNearPoints({child.points[1], child.points[2]}, {{0, 0.5f, 0}, {0, 1, 0}}, 1e-6f);
    const GuideHierarchy back = GuideHierarchy::fromJson(hierarchy.toJson());
    EXPECT_EQ(back.guides(), hierarchy.guides());
  }
}

/// What says nothing in a document is nothing once read, and changes nothing when written again.
TEST(GuideJson, DropsLocksWithoutParentsAndFramesWithoutPoints) {
  const std::string text =
      R"({"groups":[{"id":1,"name":"a"},{"id":2,"name":"b"}],"guides":[{"id":1,"group":1,)"
      R"("root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[1],"twist":0},"points":[0,0,0,0,1,0],)"
      R"("rootLocal":[0,0,0],"frameUpLocal":[0,0,1]},{"id":2,"group":2,"locked":true,)"
      R"("root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[1],"twist":0},"points":[1,0,0,1,1,0],)"
      R"("frameUpLocal":[0,0,1]}]})";
  GuideHierarchy hierarchy = GuideHierarchy::fromJson(text);
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).guides(), hierarchy.guides());
  hierarchy.demoteGroup(2, 1);
  EXPECT_TRUE(hierarchy.guides()[1].follows());
  EXPECT_EQ(hierarchy.guides()[1].offsets.size(), 2u);
}

TEST(GuideJson, KeepsHugeIndicesAndLostParents) {
  const std::string text =
      R"({"groups":[{"id":4294967295,"name":"a","parent":0},{"id":2,"name":"b","parent":4294967295}],)"
      R"("guides":[{"frameUp":[1,0,0],"group":2,"id":18446744073709551615,"offsets":[1,2,3,4,5,6],)"
      R"("parent":9,"root":[2147483647,0,0],"tube":{"radius":[1],"twist":0}}],"version":1})";
  GuideHierarchy hierarchy = GuideHierarchy::fromJson(text);
  const ScalpMesh scalp = test::makeQuad();
  hierarchy.updateFromScalp(&scalp);
  EXPECT_TRUE(hierarchy.guides()[0].points.empty());
  EXPECT_TRUE(hierarchy.guidesAtLevel(-1).guides.empty());
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).toJson(), hierarchy.toJson());
  // A lock would have no points to hold; a free guide without points has no values at them.
  const std::uint64_t lost = hierarchy.guides()[0].id;
  hierarchy.setPointAttribute(lost, "w", {1, 2});
  hierarchy.setLocked(std::span(&lost, 1), true);
  EXPECT_EQ(hierarchy.guides()[0].offsets.size(), 2u);
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).toJson(), hierarchy.toJson());
  // A new parent leads it by the offsets that it has.
  GuideHierarchy found = hierarchy;
  found.reparent(std::span(&lost, 1), found.addGuide(UINT32_MAX, windingCurve({}, 3)));
  found.updateFromScalp(nullptr);
  EXPECT_EQ(found.findGuide(lost)->points.size(), 2u);
  hierarchy.promoteGroup(2);
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).toJson(), hierarchy.toJson());
  const std::uint32_t group = hierarchy.addGroup("c", 0);
  EXPECT_NE(group, 0u);
  EXPECT_NE(hierarchy.addGuide(group, {}), 0u);
}

TEST(GuideJsonThreads, WriteAndReadTheSameOnEveryThreadCount) {
  const GuideHierarchy hierarchy = makeFamily(200, 5);
  std::string fault = hierarchy.toJson();
  std::size_t at = fault.size();
  for (const char* value : {"{}", "\"\"", "null"}) {
    at = fault.rfind("\"twist\":", at - 1);
    fault.insert(at + 8, std::string(value) + ",\"was\":");
  }
  std::string texts[2], faults[2];
  for (std::size_t threads : {1u, 0u}) {
    runWithThreads(threads, [&] {
      texts[threads] = GuideHierarchy::fromJson(hierarchy.toJson()).toJson();
      faults[threads] = failureOf(fault);
    });
  }
  EXPECT_EQ(texts[0], hierarchy.toJson());
  EXPECT_EQ(texts[1], texts[0]);
  EXPECT_EQ(faults[1], faults[0]);
  EXPECT_EQ(faults[0], "invalid guide data: found null where a number belongs") << "the first";
}

}  // namespace
}  // namespace kestrane
