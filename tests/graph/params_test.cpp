// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <cfloat>
#include <limits>

#include "core/base/hash.h"
#include "core/base/json.h"
#include "tests/graph/test_operators.h"

namespace kestrane {
namespace {

using test::messageOf;

ParamSet sampleSet() {
  return ParamSet(std::make_shared<const ParamDeclarations>(std::vector<ParamSpec>{
      param("share", 0.5, "").range(0, 1), param("count", 3, "").atLeast(1), param("on", true, ""),
      param("mode", "even", ""), param("to", Vec3f{1, 2, 3}, ""),
      param("profile", Ramp({{0.0f, 2.0f}}), "")}));
}

TEST(ParamSet, NumbersOfEitherKindAreReadAndClamped) {
  ParamSet set = sampleSet();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    ParamValue value;
    double share;
    std::int64_t count;
  } cases[] = {
      {0.25, 0.25, 1},         {std::int64_t{1}, 1.0, 1},
      {7.6, 1.0, 8},           {-1e300, 0.0, 1},
      {1e300, 1.0, INT64_MAX}, {std::int64_t{INT64_MAX - 1}, 1.0, INT64_MAX - 1},
      {nan, 0.0, 1},           {std::string("many"), 0.5, 3},  // another kind: the declared default
  };
  for (const auto& c : cases) {
    set.set("share", c.value);
    set.set("count", c.value);
    EXPECT_EQ(set.number("share"), c.share);
    EXPECT_EQ(set.integer("count"), c.count);
  }
  EXPECT_EQ(set.number("nowhere", 4.0), 4.0);
}

TEST(ParamSet, NumbersAreThoseThatAFloatHolds) {
  ParamSet set(std::make_shared<const ParamDeclarations>(
      std::vector<ParamSpec>{param("width", 1.0, "").atLeast(0)}));
  set.set("width", 1e300);
  EXPECT_EQ(set.number("width"), FLT_MAX);
  EXPECT_EQ(set.limits("width").min, 0.0);
  EXPECT_EQ(set.limits("width").max, std::nullopt);
  EXPECT_EQ(set.limits("nowhere").min, std::nullopt);
}

TEST(ParamSet, AValueOfAnotherKindGivesTheDefaultAndIsTold) {
  ParamSet set = sampleSet();
  set.set("on", std::int64_t{0});
  set.set("mode", 1.5);
  set.set("to", std::string("x"));
  set.set("profile", true);
  set.set("count", 2.0);        // a number all the same
  set.set("unknown", Vec3f{});  // nobody reads it
  EXPECT_TRUE(set.boolean("on"));
  EXPECT_EQ(set.text("mode"), "even");
  EXPECT_EQ(set.vec3("to"), (Vec3f{1, 2, 3}));
  EXPECT_EQ(set.ramp("profile").evaluate(0.0f), 2.0f);
  EXPECT_THAT(set.misfits(),
              testing::ElementsAre("param 'mode' takes a string, not a float: its default is used",
                                   "param 'on' takes a bool, not an int: its default is used",
                                   "param 'profile' takes a ramp, not a bool: its default is used",
                                   "param 'to' takes a vec3, not a string: its default is used"));
}

TEST(ParamSet, AMapIsToldWhereNothingReadsIt) {
  const auto declarations = std::make_shared<const ParamDeclarations>(std::vector<ParamSpec>{
      param("share", 0.5, "How much (mappable)"), param("steps", 2, "How many (mappable)"),
      param("seed", 3, "Which"), param("frequency", 2.0, "How often"), param("layout", "even", ""),
      param("profile", Ramp(), "Along (mappable in no way that a ramp could be)"),
      param("lean", Vec3f{}, "").vectorExpression(), param("dye", Vec3f{}, "")});
  const auto told = [&](const char* name, MapSource source) -> std::string {
    ParamSet set(declarations);
    set.set(name, MapRef{source, "x"});
    std::string all;
    const std::string error = messageOf([&] {
      for (const std::string& sentence : set.misfits()) all += sentence;
    });
    return error.empty() ? all : "throws: " + error;
  };
  const struct {
    const char* name;
    MapSource source;
    const char* message;
  } cases[] = {
      {"share", MapSource::texture, ""},
      {"steps", MapSource::guide, ""},
      {"seed", MapSource::texture, "param 'seed' takes an int, not a map: its default is used"},
      {"frequency", MapSource::expression,
       "param 'frequency' takes a float, not a map: its default is used"},
      {"layout", MapSource::guide, "param 'layout' takes a string, not a map: its default is used"},
      {"profile", MapSource::expression,
       "param 'profile' takes a ramp, not a map: its default is used"},
      {"lean", MapSource::expression, ""},
      {"lean", MapSource::attribute,
       "throws: param 'lean': a vector takes an expression (a attribute map gives one number)"},
      {"dye", MapSource::expression, "param 'dye' takes a vec3, not a map: its default is used"},
      {"dye", MapSource::texture,
       "throws: param 'dye': a vector takes an expression (a texture map gives one number)"},
  };
  for (const auto& c : cases) EXPECT_EQ(told(c.name, c.source), c.message) << c.name;
}

TEST(ParamSet, AWordThatIsNoChoiceIsTold) {
  ParamSet set(std::make_shared<const ParamDeclarations>(std::vector<ParamSpec>{
      param("mode", "even", "").choices({"even", "odd", "none"}), param("free", "", "")}));
  set.set("free", std::string("any"));
  set.set("mode", std::string("odd"));
  EXPECT_TRUE(set.misfits().empty());
  set.set("mode", std::string("Odd"));
  EXPECT_THAT(set.misfits(),
              testing::ElementsAre("param 'mode' takes even, odd or none, not 'Odd'"));
}

/// A field that differs from strand to strand.
struct Varying final : FieldValue {
  float valueAt(const FieldSample& sample) const override {
    return static_cast<float>(sample.strand);
  }
};

TEST(ParamSet, WiredFieldsThatDoNotVaryAreNumbers) {
  ParamSet set = sampleSet();
  set.set("share", MapRef{});
  const auto wire = [&](const char* name, float value) {
    set.wireField(name, std::make_shared<test::FixedField>(value));
  };
  wire("share", 7.0f);
  wire("count", 5.6f);
  wire("on", 0.0f);
  EXPECT_EQ(set.number("share"), 1.0) << "within the limits";
  EXPECT_EQ(set.integer("count"), 6);
  EXPECT_FALSE(set.boolean("on"));
  wire("count", -9.0f);
  EXPECT_EQ(set.integer("count"), 1);
  set.clearWires();
  EXPECT_TRUE(set.boolean("on"));
  EXPECT_EQ(set.integer("count"), 3);
}

TEST(ParamSet, AFieldThatTheParameterCannotTakeIsTold) {
  ParamSet set(std::make_shared<const ParamDeclarations>(std::vector<ParamSpec>{
      param("share", 0.5, "How much (mappable)"), param("count", 3, ""), param("on", true, ""),
      param("mode", "even", ""), param("to", Vec3f{}, "")}));
  for (const char* name : {"share", "count", "on", "mode", "to"}) {
    set.wireField(name, std::make_shared<test::FixedField>(2.0f));
  }
  const char* word = "param 'mode' takes a string, not a field: its own value is used";
  const char* vector = "param 'to' takes a vec3, not a field: its own value is used";
  EXPECT_THAT(set.misfits(), testing::ElementsAre(word, vector));
  for (const char* name : {"share", "count", "on"}) {
    set.wireField(name, std::make_shared<Varying>());
  }
  EXPECT_THAT(
      set.misfits(),
      testing::ElementsAre(
          "param 'count' takes an int, not a field that varies: its own value is used", word,
          "param 'on' takes a bool, not a field that varies: its own value is used", vector));
  EXPECT_EQ(set.integer("count"), 3);
}

TEST(ParamSet, ValuesStandOverDefaultsAndKeysOverBoth) {
  ParamSet set = sampleSet();
  EXPECT_EQ(set.value("share"), ParamValue(0.5));
  set.set("share", 0.75);
  set.key("share", 0.125);
  EXPECT_EQ(set.value("share"), ParamValue(0.125));
  set.unkey("share");
  EXPECT_EQ(set.value("share"), ParamValue(0.75));
  set.unset("share");
  EXPECT_EQ(set.value("share"), ParamValue(0.5));
  EXPECT_EQ(messageOf([&] { set.value("size"); }), "unknown parameter 'size'");
  set.set("size", 1.0);
  EXPECT_EQ(set.value("size"), ParamValue(1.0));
}

TEST(ParamSet, HashIsAFoldOverNamesAndValuesWhateverTheWayThere) {
  ParamSet set = sampleSet();
  EXPECT_EQ(set.hash(), 0xCF294D6E7526D148u);
  set.set("share", 0.25);
  std::uint64_t expected = hashString(0xCF294D6E7526D148u, "share");
  expected = hashCombine(expected, hashValue(ParamValue(0.25)));
  EXPECT_EQ(set.hash(), expected);

  set.set("mode", std::string("odd"));
  const std::uint64_t both = set.hash();
  EXPECT_NE(both, expected);
  // A key counts like a value set in its place.
  set.set("share", 0.9);
  set.key("share", 0.25);
  EXPECT_EQ(set.hash(), both);
  set.key("count", 4.0);
  EXPECT_NE(set.hash(), both);
  set.clearKeys();
  set.set("share", 0.25);
  EXPECT_EQ(set.hash(), both);
  set.wireField("share", std::make_shared<test::FixedField>(1.0f));
  EXPECT_EQ(set.hash(), both) << "wires are the graph's";
}

TEST(Ports, NamesAndFits) {
  EXPECT_EQ(portTypeName(static_cast<PortType>(9)), "Unknown");
  EXPECT_EQ(messageOf([] { portTypeFromName("strands"); }),
            "unknown port type 'strands' (Strands, Guides, Mesh, Field, Curve or Curves)");
  const char* names[] = {"Strands", "Guides", "Mesh", "Field", "Curve", "Curves"};
  // Rows are outputs, columns inputs.
  const char* fits[] = {"x....x", ".x...x", "..x...", "...x..", "....x.", "xx...x"};
  for (int from = 0; from < 6; ++from) {
    for (int to = 0; to < 6; ++to) {
      EXPECT_EQ(portsFit(portTypeFromName(names[from]), portTypeFromName(names[to])),
                fits[from][to] == 'x')
          << names[from] << " into " << names[to];
    }
  }
}

TEST(Operators, AffectGoesToThoseThatHandOnWhatTheyTake) {
  const auto hasAffect = [](const test::Custom& op) {
    const std::vector<ParamSpec> params = effectiveParams(op);
    return !params.empty() && params.back().name == "affect" && params.back().group == "Common";
  };
  test::Custom op;
  EXPECT_TRUE(hasAffect(op));
  op.ins = {test::curvesPort};
  EXPECT_FALSE(hasAffect(op)) << "Curves into Strands";
  op.outs = {{"out", PortType::curves}};
  EXPECT_TRUE(hasAffect(op));
  for (const char* type :
       {"Output", "Resample", "Cull", "Merge", "Switch", "Blend", "Mirror", "Cards", "Instance",
        "Scales", "Split", "Interpolate", "Compound", "Input"}) {
    op.typeName = type;
    EXPECT_FALSE(hasAffect(op)) << type;
  }
  op.typeName = "TestCustom";
  op.outs.push_back({"more", PortType::curves});
  EXPECT_FALSE(hasAffect(op)) << "two outputs";
  op.outs.pop_back();
  op.specs = {param("affect", 3, "its own")};
  EXPECT_EQ(effectiveParams(op).size(), 1u);
  op.ins.clear();
  op.specs.clear();
  EXPECT_FALSE(hasAffect(op)) << "no input";
}

TEST(Operators, TypesAreMadeByNameAndOnlyOnce) {
  test::registerTestOperators();
  OperatorRegistry& registry = OperatorRegistry::instance();
  EXPECT_EQ(messageOf([&] { registry.create("Nose"); }), "unknown operator type 'Nose'");
  EXPECT_THROW(registry.add<test::Move>(), std::invalid_argument);
  const auto types = registry.types();
  EXPECT_TRUE(std::is_sorted(types.begin(), types.end()));
  EXPECT_TRUE(registry.has("TestMove"));
  EXPECT_EQ(&registry.create("TestMove")->parameters.declarations(),
            &registry.create("TestMove")->parameters.declarations())
      << "doc strings are held once";
}

TEST(Operators, CatalogueEntryListsWhatIsDeclaredInOrder) {
  test::Custom op;
  op.typeName = "Sample";
  op.ins = {{"in", PortType::strands}, {"mesh", PortType::mesh, true}};
  op.outs = {{"a", PortType::field}, {"b", PortType::curve}};
  op.specs = {
      param("plain", 1.0, "Does (mappable)"),
      param("whole", 2, "Count").atLeast(1),
      param("all", Vec3f{0.1f, 0, 0}, "Where")
          .range(-1, 1)
          .slider(0, 0.5)
          .unit("length")
          .choices({"x", "y"})
          .animatable()
          .group("Shape")
          .advanced()
          .worldDirection()
          .vectorExpression()
          .showWhen("plain", integers({1, 2}))
          .unitWhen("whole", words({"w"})),
  };
  EXPECT_EQ(operatorCatalogueEntry(op).dump(), Json::parse(R"json({
    "type": "Sample", "version": 1, "category": "utility", "description": "",
    "inputs": [{"name": "in", "type": "Strands"},
               {"name": "mesh", "type": "Mesh", "optional": true}],
    "output": {"name": "a", "type": "Field"},
    "outputs": [{"name": "a", "type": "Field"}, {"name": "b", "type": "Curve"}],
    "params": [
      {"name": "plain", "kind": "float", "default": 1.0, "description": "Does (mappable)",
       "mappable": true},
      {"name": "whole", "kind": "int", "default": 2, "description": "Count", "mappable": false,
       "min": 1.0, "softMin": 1.0},
      {"name": "all", "kind": "vec3", "default": [0.1, 0.0, 0.0], "description": "Where",
       "mappable": false, "unit": "length", "choices": ["x", "y"], "animatable": true,
       "group": "Shape", "advanced": true, "worldDirection": true, "vectorExpression": true,
       "min": -1.0, "max": 1.0, "softMin": 0.0, "softMax": 0.5,
       "showWhen": {"param": "plain", "in": [1, 2]},
       "unitWhen": {"param": "whole", "in": ["w"]}}]})json")
                                                   .dump());
  test::registerTestOperators();
  const Json all = Json::parse(operatorCatalogueJson());
  ASSERT_EQ(all.size(), OperatorRegistry::instance().types().size());
  for (std::size_t i = 1; i < all.size(); ++i) {
    EXPECT_LT(all[i - 1]["type"].get<std::string>(), all[i]["type"].get<std::string>());
  }
}

TEST(WarningSink, KeepsEachTextOnceInAStableOrderThreads) {
  for (const std::size_t threads : {1u, 8u}) {
    WarningSink sink;
    runWithThreads(threads, [&] {
      parallelRange(0, 1000, 1, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) sink.add(std::to_string((i * 7) % 4));
      });
    });
    sink.add("");
    EXPECT_THAT(sink.texts(), testing::ElementsAre("0", "1", "2", "3"));
  }
}

}  // namespace
}  // namespace kestrane
