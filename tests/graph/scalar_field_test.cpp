// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/scalar_field.h"

#include <cfloat>
#include <filesystem>

#include "core/base/file.h"
#include "core/graph/expression_environment.h"
#include "core/graph/map_files.h"
#include "tests/graph/test_operators.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

using test::messageOf;

constexpr MapSource texture = MapSource::texture, colorSet = MapSource::colorSet,
                    attribute = MapSource::attribute, expression = MapSource::expression,
                    guide = MapSource::guide;

/// A field that is 10 times the strand's index, plus the point's index in the set where it runs
/// along the strands.
struct Counting final : FieldValue {
  float valueAt(const FieldSample& sample) const override {
    EXPECT_TRUE(prepared || !wantsPreparing);
    const std::size_t point = alongStrands ? sample.point : 0;
    return 10.0f * static_cast<float>(sample.strand) + static_cast<float>(point);
  }
  bool usesPoints() const override { return alongStrands; }
  bool dependsOnStrand() const override { return readsStrands; }
  void prepare(const EvalContext&) const override { prepared = true; }
  bool alongStrands = false;
  bool readsStrands = false;
  bool wantsPreparing = false;
  mutable bool prepared = false;
};

/// Two strands of three points and one of none, on a quad with UVs, with an image of two pixels:
/// (1, 0, 0.2) and black.
class Binding : public testing::Test {
 protected:
  Binding() : folder(test::tempFolder("binding")) {
    std::filesystem::create_directories(folder);
    writeWholeFile(folder + "two.ppm", std::string("P6\n2 1\n255\n\xFF\x00\x33\x00\x00\x00", 17));
    ScalpMesh quad = test::makeQuad();
    quad.setColorSet("paint", std::vector<Vec4f>(6, {0.25f, 0.5f, 0.75f, 1.0f}));
    surface = test::shared(std::move(quad));
    const Vec3f left[] = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}};
    const Vec3f right[] = {{1, 0, 0}, {1, 1, 0}, {1, 2, 0}};
    strands.addStrand(1, {0, 0.0f, 0.0f}, left);
    strands.addStrand(2, {1, 1.0f, 0.0f}, right);
    strands.addStrand(3, {1, 0.0f, 0.0f}, {});
    auto& shade = strands.addStrandChannel("shade", 0.0f);
    shade[0] = 0.5f;
    shade[1] = 1.0f;
    auto& along = strands.addPointChannel("along", 0.0f);
    for (std::size_t i = 0; i < along.size(); ++i) along[i] = static_cast<float>(i);
    Guide painted;
    painted.points = {{0, 0, 0}, {0, 1, 0}};
    painted.attributes["layer"] = 0.75f;
    guides = std::make_shared<const GuideSet>(GuideSet{{painted}});
    op.specs = {param("amount", 2.0, "How much (mappable)").range(0, 4),
                param("lean", Vec3f{1, 2, 3}, "Where to").vectorExpression()};
    op.parameters = ParamSet(std::make_shared<const ParamDeclarations>(op.specs));
    context.scene = &scene;
  }
  ~Binding() override { std::filesystem::remove_all(folder); }

  FieldTarget target() const { return {&strands, surface, guides, rootsOnly}; }
  ScalarField bind() { return bindParam(op, "amount", context, target()); }
  ScalarField bind(MapRef map) {
    op.parameters.set("amount", std::move(map));
    return bind();
  }
  /// The message, or the value at each of the first two strands and at the first's last point.
  std::string told(MapRef map) {
    std::string text;
    const std::string error = messageOf([&] {
      const ScalarField field = bind(std::move(map));
      for (const float value : {field.sample(0), field.sample(1), field.sample(0, 2)}) {
        char number[32];
        std::snprintf(number, sizeof(number), "%s%.4g", text.empty() ? "" : " ", value);
        text += number;
      }
    });
    return error.empty() ? text : error;
  }

  std::string folder;
  ScalpMeshPtr surface;
  StrandSet strands;
  GuideSetPtr guides;
  bool rootsOnly = false;
  test::Custom op;
  SceneTable scene;
  EvalContext context;
};

TEST_F(Binding, EachSourceIsReadInItsRange) {
  const std::string image = folder + "two.ppm";
  const struct {
    MapRef map;
    const char* values;
  } cases[] = {
      {{texture, image, MapComponent::r}, "1 0 1"},
      {{texture, image, MapComponent::b, 1.0f, 2.0f}, "1.2 1 1.2"},
      {{texture, image}, "0.227 0 0.227"},
      {{colorSet, "paint", MapComponent::g}, "0.5 0.5 0.5"},
      {{colorSet, "paint", MapComponent::a, -1.0f, 3.0f}, "3 3 3"},
      {{colorSet, "paint", MapComponent::b, 1.0f, 0.0f}, "0.25 0.25 0.25"},  // above max: inverted
      {{attribute, "shade", MapComponent::luminance, 1.0f, 5.0f}, "3 5 3"},
      {{attribute, "along"}, "0 3 2"},
      {{guide, "shade"}, "0.5 1 0.5"},  // carried on the strands
      {{expression, "$shade + pt", MapComponent::luminance, 0.0f, 2.0f}, "1 2 3"},
      {{expression, "2 * 3", MapComponent::luminance, 1.0f, 2.0f}, "7 7 7"},
      {{expression, "1e30", MapComponent::luminance, 0.0f, 3e38f}, "3.403e+38 3.403e+38 3.403e+38"},
      {{expression, "1e30 * pt + 1", MapComponent::luminance, -3e38f, 3e38f},
       "3e+38 3e+38 3.403e+38"},
  };
  for (const auto& c : cases) EXPECT_EQ(told(c.map), c.values) << c.map.text;
  // Before there are strands, layers come from the guides.
  rootsOnly = true;
  EXPECT_EQ(told({guide, "layer"}), "0.75 0.75 0.75");
  EXPECT_EQ(told({attribute, "layer"}), "0.75 0.75 0.75");
}

TEST_F(Binding, WhatDoesNotFitIsToldInASentence) {
  struct Case {
    MapRef map;
    std::string message;
  };
  const auto expectAll = [&](const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(told(c.map), c.message) << c.map.text;
  };
  expectAll({
      {{texture, folder + "none.png"}, "cannot read '" + folder + "none.png': file not found"},
      {{colorSet, "rust"}, "the scalp has no color set 'rust'"},
      {{attribute, "rust"}, "param 'amount': strands have no attribute 'rust'"},
      {{guide, "rust"},
       "param 'amount': no guide layer 'rust' on the strands (Interpolate writes it; paint it on "
       "the guides)"},
      {{expression, "$rust"},
       "param 'amount': the expression reads 'rust', which is neither a variable nor a channel of "
       "the strands"},
  });
  EXPECT_THAT(told({expression, "1 +"}), testing::StartsWith("param 'amount': "));
  EXPECT_THAT(told({expression, "map(\"rust\")"}),
              testing::HasSubstr("no map named 'rust' (Groom Tools > Paint lists them)"));

  rootsOnly = true;
  const char* early =
      "param 'amount': no strands yet, so 'rust' must be a layer painted on the guides, with the "
      "guides connected to this node";
  expectAll({{{guide, "rust"}, "no guide carries the layer 'rust'"}, {{attribute, "rust"}, early}});
  guides = nullptr;
  expectAll({{{guide, "rust"},
              "param 'amount': a guide map here needs guides: connect them to this node's guides "
              "input"},
             {{attribute, "rust"}, early}});

  const std::string image = folder + "two.ppm";
  ScalpMesh plain = *surface;
  plain.setUvs({});
  for (const ScalpMeshPtr& bare : {ScalpMeshPtr(), test::shared(std::move(plain))}) {
    surface = bare;
    EXPECT_EQ(told({texture, image}), "a texture map needs a scalp with UVs");
    // A map inside an expression has no such failure.
    EXPECT_EQ(told({expression, "map(\"" + image + "\")"}), "0 0 0");
  }
  surface = nullptr;
  EXPECT_EQ(told({colorSet, "paint"}), "the scalp has no color set 'paint'");
}

TEST_F(Binding, AWireComesBeforeAMapAndAMapBeforeANumber) {
  op.parameters.set("amount", 3.0);
  EXPECT_EQ(bind().constant(), 3.0f);
  op.parameters.set("amount", 9.0);
  EXPECT_EQ(bind().constant(), 4.0f) << "within the hard limits";
  EXPECT_EQ(bind({attribute, "shade"}).sample(0), 0.5f);
  op.parameters.wireField("amount", std::make_shared<test::FixedField>(1.5f));
  EXPECT_TRUE(bind().isConstant());
  EXPECT_EQ(bind().constant(), 1.5f);
  op.parameters.wireField("amount", std::make_shared<test::FixedField>(99.0f));
  EXPECT_EQ(bind().constant(), 4.0f);
  op.parameters.wireField("amount", std::make_shared<Counting>());
  EXPECT_EQ(bind().sample(1), 10.0f) << "a field that varies has no limits";
}

TEST_F(Binding, AWiredFieldIsReadPerStrandOrPerPoint) {
  auto field = std::make_shared<Counting>();
  op.parameters.wireField("amount", field);
  EXPECT_FALSE(bind().perPoint());
  EXPECT_FALSE(bind().readsWholeSet());
  EXPECT_EQ(bind().sample(1, 2), 10.0f);

  field->alongStrands = true;
  field->readsStrands = true;
  const ScalarField along = bind();
  EXPECT_TRUE(along.perPoint());
  EXPECT_TRUE(along.readsWholeSet()) << "a change of one strand may change its value at others";
  FieldReader reader(along);
  const float* values = reader.points(1, 3);
  EXPECT_EQ((std::vector<float>(values, values + 3)), (std::vector<float>{13, 14, 15}));
  EXPECT_EQ(reader.strand(1), 13.0f) << "the root's";
  EXPECT_EQ(reader.strand(2), 26.0f) << "a strand without points";
  EXPECT_EQ(along.sample(0, 2), 2.0f);
}

TEST_F(Binding, AVectorIsItsOwnValueOrAnExpression) {
  const auto vector = [&] { return resolveVector(op, "lean", context, target()); };
  EXPECT_EQ(vector().constant(), (Vec3f{1, 2, 3}));
  op.parameters.set("lean", MapRef{expression, "[pt, $shade, 2]", {}, 0.0f, 2.0f});
  const VectorField field = vector();
  ASSERT_FALSE(field.isConstant());
  EXPECT_TRUE(field.source()->perPoint);
  Vec3f points[3];
  field.source()->values(0, points);
  EXPECT_EQ(points[0], (Vec3f{0, 1, 4}));
  EXPECT_EQ(points[2], (Vec3f{2, 1, 4}));
  op.parameters.set("lean", MapRef{colorSet, "paint"});
  EXPECT_EQ(messageOf(vector),
            "param 'lean': a vector takes an expression (a colorSet map gives one number)");
}

TEST_F(Binding, MapsAreOpenedOncePerEvaluation) {
  std::size_t opened = 0;
  EvalResources resources;
  resources.paintedMap = [&](std::string_view) {
    ++opened;
    return EvalResources::PaintedMap();
  };
  context.resources = &resources;
  const auto find = [&](const GuideSetPtr& own = nullptr) {
    return expressionEnvironment(context, own).findMap("layer");
  };
  EXPECT_EQ(find(), nullptr);
  scene.set("guides", {guides, 0.0, 1});
  ASSERT_NE(find(), nullptr);
  EXPECT_NE(find(), find()) << "each for itself";
  context.found = std::make_shared<Found>();
  const auto map = find();
  opened = 0;
  EXPECT_EQ(find(), map);
  EXPECT_EQ(find(guides), map) << "the same guides, by another way";
  EXPECT_EQ(opened, 0u);
  EXPECT_EQ(find(std::make_shared<const GuideSet>()), nullptr) << "no layer of these";
}

TEST_F(Binding, DisplayReadsTheSmallerCopyOfAnImage) {
  const std::string image = folder + "two.ppm";
  const auto read = [&](const std::string& name) { return bind({texture, name}).sample(0); };
  const auto key = [&] { return mapFileKey(image, context); };
  const auto onePixel = [](char level) { return "P6\n1 1\n255\n" + std::string(3, level); };
  context.viewport = true;
  const float full = read(image);
  const std::uint64_t fullKey = key();
  writeWholeFile(folder + "two_preview.ppm", onePixel('\xFF'));
  EXPECT_EQ(read(image), 1.0f);
  EXPECT_NE(key(), fullKey);
  context.viewport = false;
  EXPECT_EQ(read(image), full);
  EXPECT_EQ(key(), fullKey);
  context.preview = true;
  EXPECT_EQ(read(image), 1.0f);

  // Of tiles, only a copy of each will do.
  for (const char* tile : {"skin.1001.ppm", "skin.1002.ppm"})
    writeWholeFile(folder + tile, onePixel(0));
  writeWholeFile(folder + "skin.1001_preview.ppm", onePixel('\xFF'));
  EXPECT_EQ(read(folder + "skin.1001.ppm"), 0.0f);
  writeWholeFile(folder + "skin.1002_preview.ppm", onePixel('\xFF'));
  EXPECT_EQ(read(folder + "skin.1001.ppm"), 1.0f);
}

/// What the graph does with wires into parameters.
class Wiring : public testing::Test {
 protected:
  std::uint32_t addSource(PortType type, std::function<GraphValue()> make) {
    auto op = std::make_unique<test::Custom>();
    op->ins = {};
    op->outs = {{"out", type}};
    op->make = [make](const EvalContext&, auto) { return std::vector<GraphValue>{make()}; };
    return t.addOp(std::move(op));
  }
  test::TestGraph t;
};

TEST_F(Wiring, AFieldIsPreparedBeforeItIsRead) {
  auto field = std::make_shared<Counting>();
  field->wantsPreparing = true;
  const auto source = addSource(PortType::field, [field] { return FieldValuePtr(field); });
  t.add("TestStrands");
  const auto move = t.then("TestMove");
  t.graph.setParamInputs(move, {"amount", "offset", "steps"});
  for (const std::size_t slot : {1u, 2u, 3u}) t.graph.connect(source, move, slot);
  const auto in = t.strands(move - 1), out = t.strands(move);
  EXPECT_TRUE(field->prepared);
  EXPECT_EQ(out->strandPoints(3)[1].x, in->strandPoints(3)[1].x + 30.0f);
  EXPECT_EQ(t.notes(move),
            "param 'offset' takes a vec3, not a field: its own value is used; "
            "param 'steps' takes an int, not a field that varies: its own value is used");
}

TEST_F(Wiring, ANeededFieldOrCurveThatDoesNotComeIsToldByName) {
  const auto addReader = [&](PortType type, bool optional) {
    auto op = std::make_unique<test::Custom>();
    op->typeName = "Reader";
    op->ins = {{"in", type, optional}};
    op->outs = {{"out", PortType::strands}};
    op->make = [](const EvalContext&, auto) {
      return std::vector<GraphValue>{std::make_shared<const StrandSet>()};
    };
    return t.addOp(std::move(op), "r");
  };
  for (const PortType type : {PortType::field, PortType::curve}) {
    const auto needing = addReader(type, false);
    EXPECT_EQ(t.error(needing),
              "node '" + t.graph.node(needing).name + "': Reader: connect a field to 'in'");
    EXPECT_EQ(t.error(addReader(type, true)), "");
  }
  const auto reader = addReader(PortType::field, false);
  t.graph.connect(t.add("TestField"), reader, 0);
  EXPECT_EQ(t.error(reader), "");

  t.add("TestStrands");
  const auto move = t.then("TestMove", "m");
  t.graph.setParamInputs(move, {"amount", "profile"});
  EXPECT_EQ(t.error(move), "") << "an open port leaves the own value";
  t.graph.connect(addSource(PortType::curve, [] { return GraphValue(); }), move, 2);
  EXPECT_EQ(t.error(move), "node 'm': TestMove: connect a field to 'profile'");
  t.graph.node(move).bypass = true;
  EXPECT_EQ(t.error(move), "") << "nothing reads it";
  t.graph.disconnect(move, 0);
  EXPECT_EQ(t.error(move), "") << "nor where there is nothing to pass on";
}

TEST_F(Wiring, AVectorsWrongMapStopsTheNodeBeforeItRuns) {
  t.add("TestStrands");
  const auto move = t.then("TestMove", "m");
  t.params(move).set("offset", MapRef{guide, "layer"});
  EXPECT_EQ(
      t.error(move),
      "node 'm': param 'offset': a vector takes an expression (a guide map gives one number)");
  t.graph.node(move).bypass = true;
  EXPECT_EQ(t.error(move), "");
}

}  // namespace
}  // namespace kestrane
