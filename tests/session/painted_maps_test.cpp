// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/painted_maps.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/base/file.h"
#include "core/session/session_scene.h"
#include "tests/session/session_fixtures.h"
#include "tests/support/temp_folder.h"

namespace kestrane {
namespace {

using Maps = std::map<std::string, GroomMap>;

float at(const EvalResources::PaintedMap& map, const ScalpMesh& surface, StrandRoot root,
         MapComponent component = MapComponent::luminance) {
  return map.map->sample({root, surface.positionAt(root), surface.uvAt(root), &surface}, component);
}

const std::vector<StrandRoot> roots = {
    {0, 0, 0}, {1, 0.25f, 0.5f}, {3, 1, 0}, {5, 0, 1}, {7, 0.2f, 0.2f}};

/// A map whose values are a linear function of place gives that function everywhere, on refinements
/// of a flat scalp too (but near its border, which is rounded off).
TEST(PaintedMaps, VertexMapsAreMixedWithinTriangles) {
  const ScalpMeshPtr scalp = test::sharedGrid(4);
  const auto value = [](Vec3f p) { return 0.25f + 0.5f * p.x - 0.125f * p.z; };
  GroomMap gray, color{.channels = 4};
  for (const Vec3f& point : scalp->points()) {
    gray.values.push_back(value(point));
    color.values.insert(color.values.end(), {value(point), 0, 2, 0.5f});
  }
  const SubdivisionPlanPtr plan = makeSubdivisionPlan(*scalp, 2);
  const ScalpMeshPtr fine = plan->refineMesh(*scalp);
  const ScalpRefinement refinements[] = {{plan, fine}};
  const PaintedMaps maps(Maps{{"gray", gray}, {"color", color}}, scalp, refinements);
  const auto grayMap = maps.find("gray", nullptr), colorMap = maps.find("color", nullptr);
  ASSERT_NE(grayMap.map, nullptr);
  ASSERT_NE(colorMap.map, nullptr);
  for (const StrandRoot root : roots) {
    EXPECT_NEAR(at(grayMap, *scalp, root), value(scalp->positionAt(root)), 1e-6f);
    EXPECT_NEAR(at(grayMap, *scalp, root, MapComponent::a), value(scalp->positionAt(root)), 1e-6f);
    EXPECT_NEAR(at(colorMap, *scalp, root, MapComponent::r), value(scalp->positionAt(root)), 1e-6f);
    EXPECT_NEAR(at(colorMap, *scalp, root, MapComponent::b), 2.0f, 1e-6f);
    EXPECT_NEAR(at(colorMap, *scalp, root, MapComponent::a), 0.5f, 1e-6f);
    EXPECT_NEAR(at(colorMap, *scalp, root),
                0.2126f * value(scalp->positionAt(root)) + 0.0722f * 2.0f, 1e-6f);
  }
  for (std::int32_t face = 0; face < static_cast<std::int32_t>(fine->triangleCount()); ++face) {
    const StrandRoot root{face, 0.3f, 0.3f};
    EXPECT_NEAR(at(grayMap, *fine, root), value(fine->positionAt(root)), 1e-5f) << face;
  }
  // A posed scalp has the same values, another surface those of the nearest point.
  const ScalpMeshPtr posed = scalp->withPoints(test::moved(scalp->points()));
  EXPECT_EQ(at(grayMap, *posed, roots[1]), at(grayMap, *scalp, roots[1]));
  const ScalpMesh other = test::makeGrid(3);
  EXPECT_NEAR(at(grayMap, other, roots[1]), value(other.positionAt(roots[1])), 1e-5f);
  EXPECT_EQ(at(grayMap, *scalp, {}), 0.0f);
}

/// The same faces, but a vertex more that none of them uses.
TEST(PaintedMaps, FollowAScalpThatGainsAVertex) {
  const ScalpMeshPtr scalp = test::sharedGrid(2);
  std::vector<Vec3f> points = scalp->points();
  points.push_back({5, 5, 5});
  ScalpMesh loose(points, scalp->triangles());
  loose.setPolygons(scalp->polygons());
  loose.setUvs(scalp->uvs());
  SessionInputs inputs;
  const std::vector<int> levels = {1, 2};
  for (const ScalpMeshPtr& mesh : {scalp, std::make_shared<const ScalpMesh>(loose), scalp}) {
    inputs.setScalp({.mesh = mesh});
    inputs.setMaps({{"m", {.values = std::vector<float>(mesh->points().size(), 0.75f)}}});
    const auto found = inputs.scene(0.0, false, &levels)->resources.paintedMap("m");
    ASSERT_NE(found.map, nullptr) << found.problem;
    const ScalpMeshPtr fine = makeSubdivisionPlan(*mesh, 2)->refineMesh(*mesh);
    EXPECT_NEAR(at(found, *fine, roots[1]), 0.75f, 1e-6f);
  }
}

TEST(PaintedMaps, SayWhatIsWrong) {
  const PaintedMaps maps(Maps{{"short", {.values = {1, 2}}},
                              {"blank", {.kind = "texture"}},
                              {"gone", {.kind = "texture", .texture = "no/such.png"}}},
                         test::sharedGrid(2), {});
  EXPECT_EQ(maps.find("short", nullptr).problem, "the vertex map does not fit this scalp");
  EXPECT_EQ(maps.find("blank", nullptr).problem, "the texture map has no image file yet");
  EXPECT_EQ(maps.find("gone", nullptr).problem, "cannot read 'no/such.png': file not found");
  EXPECT_EQ(maps.find("other", nullptr).problem, "");
  EXPECT_EQ(maps.find("other", nullptr).map, nullptr);
  const PaintedMaps bald(Maps{{"any", {.values = {1}}}}, nullptr, {});
  EXPECT_EQ(bald.find("any", nullptr).problem, "the vertex map does not fit this scalp");
}

TEST(PaintedMaps, TexturesAreReadWhereThePathsLead) {
  const auto folder = std::filesystem::path(test::tempFolder("painted"));
  std::filesystem::create_directories(folder);
  writeWholeFile((folder / "map.ppm").string(), std::string("P6\n1 1\n255\n\xFF\x00\x33", 14));
  const auto resolve = [&](const std::string& path) { return (folder / path).string(); };
  const PaintedMaps maps(Maps{{"color", {.kind = "texture", .texture = "map.ppm", .channels = 4}}},
                         test::sharedGrid(2), {});
  const auto map = maps.find("color", resolve);
  ASSERT_NE(map.map, nullptr) << map.problem;
  const ScalpMesh scalp = test::makeGrid(2);
  EXPECT_NEAR(at(map, scalp, roots[1], MapComponent::r), 1.0f, 1e-6f);
  EXPECT_NEAR(at(map, scalp, roots[1], MapComponent::b), 0.2f, 1e-6f);
  ScalpMesh plain = scalp;
  plain.setUvs({});
  EXPECT_EQ(at(map, plain, roots[1], MapComponent::r), 0.0f);
  EXPECT_EQ(map.revision, maps.find("color", resolve).revision);
  writeWholeFile((folder / "map.ppm").string(),
                 std::string("P6\n2 1\n255\n\x00\x00\x00\x00\x00\x00", 17));
  EXPECT_NE(map.revision, maps.find("color", resolve).revision);
  std::filesystem::remove_all(folder);
}

TEST(PaintedMaps, RevisionsFollowValuesAndTopology) {
  const auto revision = [](const GroomMap& map, int n) {
    return PaintedMaps(Maps{{"m", map}}, test::sharedGrid(n), {}).find("m", nullptr).revision;
  };
  const GroomMap map{.values = std::vector<float>(9, 0.5f)};
  GroomMap other = map;
  other.values[4] = 0.25f;
  EXPECT_EQ(revision(map, 2), revision(map, 2));
  EXPECT_NE(revision(map, 2), revision(other, 2));
  EXPECT_NE(revision(map, 2), revision(map, 3));
}

/// By way of a whole session, with the values read by an expression.
TEST(PaintedMaps, ReachTheNodesOfAGroom) {
  GroomSession session;
  session.setScalp(test::sharedGrid(3));
  session.setFlatGuides({{1, {0, 0.2f, 0.2f}, {{0.5f, 0, 0.5f}, {0.5f, 1, 0.5f}}, {}}});
  std::string graph(GroomSession::defaultGraph());
  const std::string width = R"({"name": "width", "type": "Width"})";
  graph.replace(graph.find(width), width.size(),
                R"text({"name": "width", "type": "Width",
                    "params": {"width": {"expression": "map(\"thick\")"}}})text");
  ASSERT_FALSE(session.setGraph(graph));
  const auto thickness = [&](float value) {
    session.setMaps({{"thick", {.values = std::vector<float>(16, value)}}});
    const auto messages = session.evaluate({});
    EXPECT_TRUE(messages.empty()) << messages.front().text;
    return session.strands()->widths().front();
  };
  const float thin = thickness(0.5f), thick = thickness(1.0f);
  EXPECT_NEAR(thick, 2.0f * thin, 1e-5f);
  session.setMaps({{"thick", {.values = {1.0f}}}});
  const auto messages = session.evaluate({});
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_NE(messages[0].text.find("map(\"thick\"): the vertex map does not fit this scalp"),
            std::string::npos)
      << messages[0].text;
}

}  // namespace
}  // namespace kestrane
