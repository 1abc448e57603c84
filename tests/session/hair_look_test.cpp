// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/hair_look.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/session/session_fixtures.h"

namespace kestrane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Two strand inputs, as the node that mixes two looks has them.
class TwoInputs final : public DeclaredOperator {
 public:
  TwoInputs() : DeclaredOperator(declaration()) {}
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue> inputs) override {
    return inputs[0];
  }

 private:
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration kept{"Blend",
                                          "utility",
                                          "",
                                          {{"a", PortType::strands}, {"b", PortType::strands}},
                                          {"out", PortType::strands},
                                          {}};
    return kept;
  }
};

std::string bands(const std::string& params) {
  return R"({"nodes":[{"name":"grow","type":"TestGrow"},{"name":"bands","type":"Bands","params":)" +
         params + R"(},{"name":"output","type":"Output"}],
    "connections":[{"from":"grow","to":"bands","input":"strands"},
    {"from":"bands","to":"output","input":"strands"}],"output":"output"})";
}

/// grow > dark > light > shine > output.
std::string colored(const std::string& dark, const std::string& light,
                    const std::string& more = "") {
  return R"({"nodes":[{"name":"grow","type":"TestGrow"},
    {"name":"dark","type":"HairColor","params":)" +
         dark + R"(},{"name":"light","type":"HairColor","params":)" + light + more +
         R"(},{"name":"shine","type":"RenderData","params":{"roughness":0.25,"specular":0.75}},
    {"name":"output","type":"Output"}],
    "connections":[{"from":"grow","to":"dark","input":"strands"},
    {"from":"dark","to":"light","input":"strands"},{"from":"light","to":"shine","input":"strands"},
    {"from":"shine","to":"output","input":"strands"}],"output":"output"})";
}

class Look : public testing::Test {
 protected:
  void SetUp() override { test::registerTestOperators(); }
  HairLook lookOf(const std::string& graph) {
    EXPECT_FALSE(session.setGraph(graph)) << graph;
    return session.hairLook();
  }
  GroomSession session;
};

TEST_F(Look, TakesTheNodesNearestTheOutput) {
  const HairLook look = lookOf(colored(R"({"melanin":0.9})", R"({"melanin":0.1})"));
  EXPECT_EQ(look.hairColor, "light");
  EXPECT_EQ(look.renderData, "shine");
  EXPECT_EQ(look.hairColorParams["melanin"], 0.1);
  EXPECT_EQ(look.hairColorParams["redness"], 0.2);  // not set, but part of the look
  EXPECT_THAT(look.colorNodes, ElementsAre("light", "dark"));
  EXPECT_FLOAT_EQ(look.roughness, 0.25f);
  EXPECT_FLOAT_EQ(look.specularTint.x, 0.75f);
  EXPECT_FALSE(look.colorsByRgb);
  EXPECT_FALSE(look.bySource);
  EXPECT_FALSE(session.hasCardsNode());
  const auto node = session.activeNode("HairColor");
  ASSERT_TRUE(node);
  EXPECT_EQ(node->name, "light");
  EXPECT_EQ(node->parameters.number("melanin"), 0.1);
  EXPECT_FALSE(session.activeNode("Clump"));
  // A node that is passed through has no part in it.
  const HairLook without =
      lookOf(colored(R"({"melanin":0.9})", R"({"melanin":0.1})", R"(,"bypass":true)"));
  EXPECT_EQ(without.hairColor, "dark");
}

TEST_F(Look, TellsPigmentFromRgb) {
  const struct {
    const char* params;
    bool byRgb, bySource;
  } cases[] = {{R"({"dye":[1,0,0]})", false, false},
               {R"({"map":"paint"})", true, false},
               {R"({"hueRandom":0.1})", true, false},
               {R"({"tipStrength":0.5})", true, false},
               {R"({"tipStrength":{"attribute":"tips"}})", true, false},
               {R"({"colorSource":"melanin"})", false, true},
               {R"({"colorSource":"mix"})", true, true}};
  for (const auto& c : cases) {
    const HairLook look = lookOf(colored(c.params, "{}"));
    EXPECT_EQ(look.colorsByRgb, c.byRgb) << c.params;
    EXPECT_EQ(look.bySource, c.bySource) << c.params;
  }
  // Bands of pigment are pigment; tints are more.
  EXPECT_FALSE(lookOf(bands("{}")).colorsByRgb);
  EXPECT_TRUE(lookOf(bands(R"({"dye":[1,0.5,1]})")).colorsByRgb);
  EXPECT_TRUE(lookOf(bands(R"({"undercoatDye":[1,0.5,1]})")).colorsByRgb);
}

TEST_F(Look, JsonKeysInOrder) {
  EXPECT_FALSE(session.setGraph(colored("{}", "{}")));
  std::vector<std::string> keys;
  const Json json = Json::parse(session.hairLookJson());
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("hairColorParams", "renderDataParams", "colorNodes", "colorBlends",
                                "colorsByRgb", "bySource", "iridescent", "iridescenceColor",
                                "iridescenceShift", "specularTint", "roughness",
                                "azimuthalRoughness", "shift", "lobes"));
}

TEST_F(Look, BlendsOfColorNodes) {
  EXPECT_THAT(session.colorBlendNodes(), IsEmpty());
  OperatorRegistry& registry = OperatorRegistry::instance();
  if (!registry.has("Blend")) registry.add<TwoInputs>();
  const std::string graph = R"({"nodes":[{"name":"grow","type":"TestGrow"},
    {"name":"one","type":"HairColor"},{"name":"two","type":"HairColor"},
    {"name":"mix","type":"Blend"},{"name":"shift","type":"TestShift"},
    {"name":"plain","type":"Blend"},{"name":"output","type":"Output"}],
    "connections":[{"from":"grow","to":"one","input":"strands"},
    {"from":"grow","to":"two","input":"strands"},{"from":"one","to":"mix","input":"a"},
    {"from":"two","to":"mix","input":"b"},{"from":"mix","to":"shift","input":"strands"},
    {"from":"shift","to":"plain","input":"a"},{"from":"mix","to":"plain","input":"b"},
    {"from":"plain","to":"output","input":"strands"}],"output":"output"})";
  EXPECT_FALSE(session.setGraph(graph));
  EXPECT_THAT(session.colorBlendNodes(), ElementsAre("mix"));
  EXPECT_THAT(session.hairLook().colorBlends[0].colors, ElementsAre("one", "two"));
}

}  // namespace
}  // namespace kestrane
