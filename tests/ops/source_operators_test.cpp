// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "core/guides/guide_hierarchy.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Groups a (with the child a2, a level deeper) and b on a hierarchy of their own, one guide each;
/// a guide is told by the length of its first segment.
class Sources : public testing::Test {
 protected:
  Sources() {
    auto hierarchy = std::make_shared<GuideHierarchy>();
    const std::uint32_t a = hierarchy->addGroup("a", 0);
    const std::uint32_t b = hierarchy->addGroup("b", 0);
    const std::uint32_t deeper = hierarchy->addGroup("a2", a);
    const std::uint64_t parent = hierarchy->addGuide(a, {{0, 0, 0}, {0, 1, 0}});
    hierarchy->addGuide(b, {{5, 0, 0}, {5, 2, 0}});
    hierarchy->addChildGuide(deeper, parent, {{0, 0, 0}, {0, 3, 0}});
    fixture.scene.set("hierarchy", {std::shared_ptr<const GuideHierarchy>(hierarchy), 0.0, 2});
  }

  /// The guides that the settings select, by name of their group; "-" where there is no value.
  std::vector<std::string> selected(const std::string& group, const std::string& exclude,
                                    std::int64_t level = -1) {
    const auto op = fixture.make("Guides");
    op->parameters.set("group", group);
    op->parameters.set("exclude", exclude);
    op->parameters.set("level", level);
    const auto guides = valueAs<GuideSet>(op->evaluate(fixture.context, {}));
    if (!guides) return {"-"};
    std::vector<std::string> names;
    for (const Guide& guide : guides->guides) {
      const float length = distance(guide.points[0], guide.points[1]);
      names.push_back(length == 1.0f ? "a" : length == 2.0f ? "b" : "a2");
    }
    return names;
  }

  std::string errorOf(const std::string& group, const std::string& exclude) {
    try {
      selected(group, exclude);
    } catch (const GraphError& error) {
      return error.what();
    }
    return "no error";
  }

  OpsFixture fixture;
};

TEST_F(Sources, GuidesByGroupLevelAndExclusion) {
  EXPECT_THAT(selected("a, b", ""), ElementsAre("a", "b"));
  EXPECT_EQ(selected("a b", ""), selected("a, b", ""));
  EXPECT_EQ(selected(",, a  ,b ,", ""), selected("a, b", ""));
  // In the order of the names, each guide once.
  EXPECT_THAT(selected("b a b", ""), ElementsAre("b", "a"));
  EXPECT_THAT(selected("a b", "a"), ElementsAre("b"));
  // A group goes with its child groups.
  EXPECT_THAT(selected("a2 b", "a"), ElementsAre("b"));
  EXPECT_THAT(selected("a", "a2"), ElementsAre("a"));
  EXPECT_THAT(selected("", "", 0), ElementsAre("a", "b"));
  EXPECT_THAT(selected("", "", 1), ElementsAre("a2"));
  EXPECT_EQ(selected("", "", -1), selected("", "", 1));
  EXPECT_THAT(selected("", "b", 0), ElementsAre("a"));
  for (const std::int64_t level : {std::int64_t{2}, std::int64_t{1} << 32, INT64_MAX}) {
    EXPECT_THAT(selected("", "", level), IsEmpty()) << level;
  }
  EXPECT_EQ(errorOf("a c", ""), "Guides: no guide group named 'c'");
  EXPECT_EQ(errorOf("a", "c"), "Guides: no guide group named 'c' to exclude");
}

TEST_F(Sources, FlatGuidesWhereThereIsNoHierarchy) {
  fixture.scene.set("hierarchy", {std::make_shared<const GuideHierarchy>(), 0.0, 3});
  const auto op = fixture.make("Guides");
  EXPECT_EQ(valueAs<GuideSet>(op->evaluate(fixture.context, {})), fixture.guides);
  op->parameters.set("input", std::string("none"));
  EXPECT_TRUE(isEmpty(op->evaluate(fixture.context, {})));
  EXPECT_THAT(op->sceneInputs(), ElementsAre("none", "hierarchy"));
}

TEST_F(Sources, MeshesAreRefinedAndSayHow) {
  auto mesh = std::make_shared<SceneMesh>();
  mesh->mesh = test::shared(test::makeGrid(2));
  mesh->renderLevels = 1;
  for (const char* type : {"Scalp", "ColliderMesh"}) {
    const bool scalp = std::string(type) == "Scalp";
    const auto op = fixture.make(type);
    op->parameters.set(scalp ? "input" : "name", std::string("cage"));
    EXPECT_TRUE(isEmpty(op->evaluate(fixture.context, {})));
    EXPECT_THAT(op->sceneInputs(), ElementsAre(scalp ? "cage" : "mesh:cage"));
    const auto trianglesAt = [&](const char* subdivision, const char* from) {
      op->parameters.set("subdivision", std::string(subdivision));
      mesh->levelsFrom = from;
      fixture.scene.set(op->sceneInputs()[0], {std::make_shared<const SceneMesh>(*mesh), 0.0, 1});
      return valueAs<ScalpMesh>(op->evaluate(fixture.context, {}))->triangleCount();
    };
    EXPECT_EQ(trianglesAt("off", ""), 8u);
    EXPECT_EQ(op->note(fixture.context), "");
    EXPECT_EQ(trianglesAt("2", ""), 128u);
    EXPECT_EQ(op->note(fixture.context), "Catmull-Clark x2: 128 triangles from 4 faces");
    EXPECT_EQ(trianglesAt("matchRender", ""), 32u);
    EXPECT_EQ(op->note(fixture.context),
              "Catmull-Clark x1: 32 triangles from 4 faces (match render)");
    EXPECT_EQ(trianglesAt("matchRender", "smooth mesh preview"), 32u);
    EXPECT_THAT(op->note(fixture.context), HasSubstr(" (match render: smooth mesh preview)"));
    EXPECT_THROW(trianglesAt("4", ""), GraphError);
  }
}

TEST_F(Sources, OutputHandsOnWhatItGets) {
  const auto op = fixture.make("Output");
  const auto strands = std::make_shared<const StrandSet>(fixture.rootedStrands(3));
  const std::vector<GraphValue> inputs{strands};
  EXPECT_EQ(valueAs<StrandSet>(op->evaluate(fixture.context, inputs)), strands);
}

}  // namespace
}  // namespace kestrane
