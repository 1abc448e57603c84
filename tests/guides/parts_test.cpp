// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/parts.h"

#include <numbers>

#include "core/guides/part_crossing.h"
#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

PartData partAlong(const ScalpMesh& scalp, const std::vector<Vec3f>& stroke) {
  PartData data;
  addPart(data, "", stroke, scalp, static_cast<int>(stroke.size()));
  return data;
}

TEST(Parts, AddsAStrokeUnderAFreeName) {
  const ScalpMesh scalp = test::makeGrid(4, 10.0f);
  const std::vector<Vec3f> stroke{{1, 2, 1}, {1, 2, 2}, {1, 2, 9}};
  PartData data;
  EXPECT_EQ(addPart(data, "", stroke, scalp, 10), "part");
  EXPECT_EQ(addPart(data, "part", stroke, scalp, 2), "part1");
  EXPECT_EQ(addPart(data, "part", stroke, scalp, -5), "part2");
  EXPECT_EQ(addPart(data, "side", stroke, scalp, 10), "side");
  ASSERT_EQ(data.parts[0].points.size(), 3u);
  EXPECT_EQ(data.parts[2].points.size(), 2u);
  EXPECT_LE(distance(scalp.positionAt(data.parts[0].points[1]), {1, 0, 5}), 1e-5f);
}

TEST(Parts, RefusesStrokesWithItsWordsAndChangesNothing) {
  const ScalpMesh scalp = test::makeGrid(4, 10.0f);
  const ScalpMesh none;
  const std::vector<Vec3f> stroke{{1, 2, 1}, {1, 2, 9}}, one{{1, 0, 0}};
  const std::vector<Vec3f> tiny{{1, 0, 0}, {1, 9e-6f, 0}}, wrong{{1, 0, 0}, {std::nanf(""), 0, 0}};
  PartData data;
  addPart(data, "a", stroke, scalp, 4);
  const PartData before = data;
  for (const auto* bad : {&one, &tiny, &wrong}) {
    EXPECT_EQ(test::thrownBy<std::invalid_argument>([&] { addPart(data, "", *bad, scalp, 4); }),
              "a part needs a longer stroke");
  }
  EXPECT_EQ(test::thrownBy<std::invalid_argument>([&] { addPart(data, "", stroke, none, 4); }),
            "a part needs at least two points on the scalp");
  EXPECT_EQ(data, before);
}

TEST(Parts, TextsRoundTripAndFaultsAreNamed) {
  const ScalpMesh scalp = test::makeSphere(8, 16, 3.0f);
  PartData data = partAlong(scalp, {{0, 3, 0}, {1, 2, 1}, {2, 1, 2}});
  data.parts.push_back({"empty \"one\"", {}});
  EXPECT_EQ(partsFromJson("\n" + partsToJson(data) + " "), data);
  EXPECT_EQ(partsFromJson(" \t\r\n"), PartData());
  EXPECT_EQ(partsToJson({{{"a", {{3, 0.1f, 0.25f}}}}}),
            R"({"parts":[{"name":"a","points":[{"face":3,"u":0.1,"v":0.25}]}],"version":1})");
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {R"({"parts":[],"version":2})", "part data version is newer than this Kestrane supports"},
      {R"({"parts":[],"version":18446744073709551615})",
       "part data version is newer than this Kestrane supports"},
      {R"({"parts":[],"version":-1})", "the whole number -1 is out of range"},
      {R"({"version":1})", "key 'parts' not found"},
      {R"({"parts":[{"points":[]}]})", "key 'name' not found"},
      {R"({"parts":[{"name":"a","points":[{"u":0,"v":0}]}]})", "key 'face' not found"},
      {R"({"parts":[{"name":"a","points":[{"face":4e9,"u":0,"v":0}]}]})",
       "found number where a whole number belongs"},
      {R"({"parts":[{"name":"a","points":[]},{"name":"a","points":[]}]})",
       "two parts are named 'a'"},
      {R"({"parts":{}})", "found object where an array belongs"},
  };
  for (const auto& [text, reason] : cases) {
    EXPECT_EQ(test::thrownBy<std::runtime_error>([&] { partsFromJson(text); }), reason) << text;
  }
}

/// Whether two segments in the plane of X and Z cross, from the sides on which their ends lie.
bool crossInPlane(Vec3f a, Vec3f b, Vec3f c, Vec3f d) {
  const auto side = [](Vec3f p, Vec3f q, Vec3f r) {
    return (static_cast<double>(q.x) - p.x) * (static_cast<double>(r.z) - p.z) -
           (static_cast<double>(q.z) - p.z) * (static_cast<double>(r.x) - p.x);
  };
  return side(a, b, c) * side(a, b, d) < 0.0 && side(c, d, a) * side(c, d, b) < 0.0;
}

TEST(PartCrossing, OnAFlatScalpIsTheCrossingOfSegments) {
  const ScalpMesh scalp = test::makeGrid(6, 10.0f);
  std::uint64_t draw = 3;
  const auto next = [&] {
    return Vec3f{10.0f * unitFloat(draw = mix64(draw)), 0.0f, 10.0f * unitFloat(mix64(draw ^ 1))};
  };
  // Long enough for several leaves of the tree.
  PartData data;
  std::vector<std::vector<Vec3f>> lines;
  for (int p = 0; p < 3; ++p) {
    std::vector<Vec3f> stroke;
    for (int i = 0; i < 30; ++i)
      stroke.push_back(next() * 0.2f +
                       Vec3f{0.27f * static_cast<float>(i), 0, 3.0f * static_cast<float>(p)});
    Part part{std::to_string(p), {}};
    std::vector<Vec3f> line;
    for (const Vec3f& point : stroke) {
      part.points.push_back(scalp.closestPoint(point).root);
      line.push_back(scalp.positionAt(part.points.back()));
    }
    part.points.insert(part.points.begin() + 5, {-1, 0, 0});
    part.points.insert(part.points.begin() + 9, {1 << 30, 0, 0});
    data.parts.push_back(part);
    lines.push_back(line);
  }
  const PartCrossing crossing(data, scalp);
  std::size_t crossed = 0;
  for (int i = 0; i < 4000; ++i) {
    const Vec3f a = next(), b = next();
    bool wanted = false;
    for (const auto& line : lines) {
      for (std::size_t k = 0; k + 1 < line.size(); ++k) {
        wanted = wanted || crossInPlane(a, b, line[k], line[k + 1]);
      }
    }
    EXPECT_EQ(crossing.crosses(a, b), wanted) << i;
    EXPECT_EQ(crossing.crosses(b, a), wanted) << i;
    crossed += wanted;
  }
  EXPECT_GT(crossed, 500u);
  EXPECT_LT(crossed, 3500u);
}

TEST(PartCrossing, OnASphereIsTheCrossingOfGreatCircles) {
  const float radius = 10.0f;
  const ScalpMesh scalp = test::makeSphere(64, 128, radius);
  // Over the top from 60 degrees in front to 40 behind, in the plane x = 0.
  std::vector<Vec3f> stroke;
  for (int degree = -40; degree <= 60; degree += 4) {
    const double a = degree * std::numbers::pi / 180.0;
    stroke.push_back(
        {0.0f, static_cast<float>(radius * std::cos(a)), static_cast<float>(radius * std::sin(a))});
  }
  const PartCrossing crossing(partAlong(scalp, stroke), scalp);
  std::uint64_t draw = 9;
  std::size_t crossed = 0;
  for (int i = 0; i < 5000; ++i) {
    const auto pick = [&] {
      const float turn = 6.2831853f * unitFloat(draw = mix64(draw)),
                  y = 2.0f * unitFloat(mix64(draw + 1)) - 1.0f;
      return Vec3f{std::sqrt(1.0f - y * y) * std::cos(turn), y,
                   std::sqrt(1.0f - y * y) * std::sin(turn)} *
             radius;
    };
    const Vec3f a = pick(), b = pick();
    // The shorter way between them passes x = 0 where the chord does.
    const float share = a.x / (a.x - b.x);
    const Vec3f through = lerp(a, b, share);
    const double degree = std::atan2(through.z, through.y) * 180.0 / std::numbers::pi;
    const bool other = a.x * b.x < 0.0f;
    // Close to the ends, and for opposite points, the faces of the mesh decide.
    if (other &&
        (std::abs(degree - 60.0) < 1.5 || std::abs(degree + 40.0) < 1.5 || length(through) < 0.5f))
      continue;
    const bool wanted = other && degree > -40.0 && degree < 60.0;
    EXPECT_EQ(crossing.crosses(scalp.closestPoint(a).position, scalp.closestPoint(b).position),
              wanted)
        << i << " at " << degree;
    crossed += wanted;
  }
  EXPECT_GT(crossed, 400u);
}

TEST(PartCrossing, OfACoarsePartCountsUpToTheSkinAboveIt) {
  const float radius = 10.0f;
  const ScalpMesh scalp = test::makeSphere(64, 128, radius);
  // Its one straight segment runs half a centimetre under the skin.
  const float c = radius * std::cos(0.3f), s = radius * std::sin(0.3f);
  for (const float y : {1.0f, -1.0f}) {
    const PartCrossing crossing(partAlong(scalp, {{0, y * c, -s}, {0, y * c, s}}), scalp);
    const float top = y * radius;
    EXPECT_TRUE(crossing.crosses({-0.05f, top, 0}, {0.05f, top, 0}));
    EXPECT_TRUE(crossing.crosses({-0.05f, y * c, s * 0.98f}, {0.05f, y * c, s * 0.98f}));
    EXPECT_FALSE(crossing.crosses({0.05f, top, 0}, {0.15f, top, 0}));
    EXPECT_FALSE(crossing.crosses({-0.05f, -top, 0}, {0.05f, -top, 0}));
  }
}

TEST(PartCrossing, EndsAndMissingPartsPartNothing) {
  const ScalpMesh scalp = test::makeGrid(4, 10.0f);
  const PartCrossing crossing(partAlong(scalp, {{5, 0, 2}, {5, 0, 4}, {5, 0, 6}}), scalp);
  EXPECT_TRUE(crossing.crosses({4, 0, 4}, {6, 0, 4}));
  EXPECT_FALSE(crossing.crosses({4, 0, 4}, {5, 0, 4})) << "up to the part is not across";
  EXPECT_FALSE(crossing.crosses({4, 0, 4}, {4, 0, 4}));
  EXPECT_FALSE(crossing.crosses({4, 0, 7}, {6, 0, 7}));
  EXPECT_FALSE(crossing.crosses({std::nanf(""), 0, 4}, {6, 0, 4}));
  EXPECT_TRUE(PartCrossing().empty());
  EXPECT_TRUE(PartCrossing({{{"lost", {{-1, 0, 0}, {99999, 0, 0}, {0, 0, 0}}}}}, scalp).empty());
  EXPECT_FALSE(PartCrossing().crosses({4, 0, 4}, {6, 0, 4}));
}

}  // namespace
}  // namespace kestrane
