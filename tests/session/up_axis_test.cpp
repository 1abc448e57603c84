// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "core/base/json.h"
#include "core/graph/operator_registry.h"
#include "tests/session/groom_fixtures.h"

namespace kestrane {
namespace {

using test::makeDocument;

/// A node with what world space can say: a direction and a mirror plane.
class WorldOp : public DeclaredOperator {
 public:
  WorldOp() : DeclaredOperator(declaration()) {}
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue>) override { return {}; }

 private:
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration kept = {
        .type = "TestWorld",
        .category = "utility",
        .output = {"out", PortType::strands},
        .params = {param("direction", Vec3f{0, -1, 0}, "").worldDirection(),
                   param("local", Vec3f{0, 1, 0}, ""), param("axis", "x", "").worldDirection(),
                   param("offset", 0.0, ""), param("side", "positive", "")}};
    return kept;
  }
};

class UpAxis : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!OperatorRegistry::instance().has("TestWorld")) OperatorRegistry::instance().add<WorldOp>();
  }

  static Json converted(const std::string& node, const char* from, const char* to) {
    GroomDocument document;
    document.graph = Json{{"nodes", Json::array({Json::parse(node)})}};
    convertUpAxis(document, from, to);
    return document.graph["nodes"][0];
  }
  static Json params(const std::string& params, const char* from, const char* to) {
    return converted(R"({"name":"a","type":"TestWorld","params":)" + params + "}", from,
                     to)["params"];
  }
};

TEST_F(UpAxis, ThereAndBackIsTheSameGroom) {
  GroomDocument document = makeDocument();
  document.graph = Json::parse(R"({"nodes":[
    {"name":"a","type":"TestWorld","params":{"direction":[0.5,-1,0],"axis":"z","offset":2.5,
     "side":"negative"}},
    {"name":"b","type":"NoSuchType","params":{"direction":[1,2,3]}}, 5, {"type":7}]})");
  GroomDocument turned = document;
  convertUpAxis(turned, "Y", "Z");
  EXPECT_EQ(turned.upAxis, "Z");
  EXPECT_NE(turned.graph, document.graph);
  convertUpAxis(turned, "Z", "Y");
  test::expectSameDocument(turned, document);
  convertUpAxis(turned, "Y", "Y");
  test::expectSameDocument(turned, document);
}

/// Up stays up, lengths and handedness are kept, and what lies on the surface stays on it.
TEST_F(UpAxis, TheWholeGroomTurnsAsOne) {
  const auto turn = [](Vec3f v) { return Vec3f{v.x, -v.z, v.y}; };
  const GroomDocument y = makeDocument();
  GroomDocument z = y;
  convertUpAxis(z, "Y", "Z");
  const auto expectTurned = [&](const std::vector<Vec3f>& before, const std::vector<Vec3f>& after) {
    ASSERT_EQ(before.size(), after.size());
    ASSERT_FALSE(before.empty());
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(turn(before[i]), after[i]) << i;
  };
  expectTurned(y.scalp.mesh->points(), z.scalp.mesh->points());
  expectTurned(y.scalp.mesh->restPoints(), z.scalp.mesh->restPoints());
  expectTurned(y.colliders.at("body").mesh->points(), z.colliders.at("body").mesh->points());
  expectTurned(y.prototypes.at("leaf").points, z.prototypes.at("leaf").points);
  expectTurned(y.prototypes.at("leaf").normals, z.prototypes.at("leaf").normals);
  expectTurned(y.guides[1].points, z.guides[1].points);
  EXPECT_EQ(turn(*y.guides[1].frameUp), *z.guides[1].frameUp);
  EXPECT_EQ(y.scalp.mesh->topologyHash(), z.scalp.mesh->topologyHash());

  // Children of the hierarchy are posed anew after their turned parents.
  for (std::size_t i = 0; i < y.hierarchy->guides().size(); ++i) {
    const GuideRecord& before = y.hierarchy->guides()[i];
    const GuideRecord& after = z.hierarchy->guides()[i];
    ASSERT_EQ(before.points.size(), after.points.size());
    EXPECT_EQ(before.offsets, after.offsets);
    for (std::size_t k = 0; k < before.points.size(); ++k) {
      EXPECT_LT(distance(turn(before.points[k]), after.points[k]), 1e-5f);
    }
  }
}

TEST_F(UpAxis, DirectionsOfNodes) {
  EXPECT_EQ(params(R"({"direction":[0,-1,0],"local":[0,1,0]})", "Y", "Z"),
            Json::parse(R"({"direction":[0,0,-1],"local":[0,1,0]})"));
  EXPECT_EQ(params(R"({"direction":[0.5,1.5,2.5]})", "Y", "Z")["direction"],
            Json::parse("[0.5,-2.5,1.5]"));
  EXPECT_EQ(params(R"({"direction":[0.5,1.5,2.5]})", "Z", "Y")["direction"],
            Json::parse("[0.5,2.5,-1.5]"));
  // A direction that is not said is the default, which points elsewhere in the other scene.
  EXPECT_EQ(converted(R"({"name":"a","type":"TestWorld"})", "Y", "Z")["params"]["direction"],
            Json::parse("[0.0,0.0,-1.0]"));
  // A formula stays as it is.
  EXPECT_EQ(params(R"({"direction":{"expression":"N"}})", "Y", "Z")["direction"],
            Json::parse(R"({"expression":"N"})"));
}

TEST_F(UpAxis, MirrorPlanes) {
  const struct {
    const char *before, *from, *to, *after;
  } cases[] = {
      {R"({"axis":"x","offset":2.0,"side":"positive"})", "Y", "Z",
       R"({"axis":"x","offset":2.0,"side":"positive"})"},
      {R"({"axis":"y","offset":2.0,"side":"positive"})", "Y", "Z",
       R"({"axis":"z","offset":2.0,"side":"positive"})"},
      {R"({"axis":"z","offset":2.0,"side":"positive"})", "Y", "Z",
       R"({"axis":"y","offset":-2.0,"side":"negative"})"},
      {R"({"axis":"z","offset":-1,"side":"negative"})", "Z", "Y",
       R"({"axis":"y","offset":-1,"side":"negative"})"},
      {R"({"axis":"y"})", "Z", "Y", R"({"axis":"z","side":"negative"})"},
  };
  for (const auto& c : cases) {
    Json after = params(c.before, c.from, c.to);
    after.erase("direction");
    EXPECT_EQ(after, Json::parse(c.after)) << c.before;
  }
}

TEST_F(UpAxis, CompoundsInCompounds) {
  const Json node = converted(R"({"name":"c","type":"Compound","params":{"way":[0,1,0]},
    "definition":{"expose":{"way":"inner.deep"},"graph":{"nodes":[
      {"name":"inner","type":"Compound","params":{"deep":[0,2,0]},
       "definition":{"expose":{"deep":"core.direction"},"graph":{"nodes":[
         {"name":"core","type":"TestWorld","params":{"direction":[0,3,0]}}]}}}]}}})",
                              "Y", "Z");
  const Json& inner = node["definition"]["graph"]["nodes"][0];
  EXPECT_EQ(node["params"]["way"], Json::parse("[0,0,1]"));
  EXPECT_EQ(inner["params"]["deep"], Json::parse("[0,0,2]"));
  EXPECT_EQ(inner["definition"]["graph"]["nodes"][0]["params"]["direction"],
            Json::parse("[0,0,3]"));
}

TEST_F(UpAxis, AnotherAxisIsRefusedAndChangesNothing) {
  GroomDocument document = makeDocument();
  for (const auto& [from, to] : {std::pair("X", "Y"), std::pair("Y", "x"), std::pair("", "Z")}) {
    EXPECT_THROW(convertUpAxis(document, from, to), GroomFileError);
  }
  test::expectSameDocument(document, makeDocument());
}

}  // namespace
}  // namespace kestrane
