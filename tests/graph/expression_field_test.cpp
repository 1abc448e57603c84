// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What an expression on a parameter sees of the strands.

#include <cmath>

#include "core/base/hash.h"
#include "core/graph/scalar_field.h"
#include "tests/graph/test_operators.h"
#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

/// A bent strand and a straight one, rooted on a tilted triangle with UVs, one that is not rooted,
/// and one without points.
class ExpressionField : public testing::Test {
 protected:
  ExpressionField() {
    // Rises along X: its normal is (-1, 1, 0) / sqrt(2).
    auto mesh = std::make_shared<ScalpMesh>(std::vector<Vec3f>{{0, 0, 0}, {0, 0, 4}, {4, 4, 0}},
                                            std::vector<ScalpMesh::Triangle>{{0, 1, 2}});
    mesh->setUvs({{0.1f, 0.2f}, {0.1f, 0.9f}, {0.8f, 0.2f}});
    surface = mesh;
    const Vec3f bent[] = {{0, 0, 0}, {0, 2, 0}, {1.5f, 2, 2}};
    const Vec3f straight[] = {{2, 2, 0}, {1, 3, 0}};
    const Vec3f loose[] = {{5, 6, 7}, {5, 9, 7}};
    strands.addStrand(11, {0, 0.0f, 0.0f}, bent);
    strands.addStrand(12, {0, 0.0f, 0.5f}, straight);
    strands.addStrand(13, {}, loose);
    strands.addStrand(14, {0, 0.5f, 0.0f}, {});
    auto& both = strands.addStrandChannel("both", 0.0f);
    for (std::size_t i = 0; i < 4; ++i) both[i] = 100.0f + static_cast<float>(i);
    auto& points = strands.addPointChannel("both", 0.0f);
    auto& along = strands.addPointChannel("along", 0.0f);
    for (std::size_t p = 0; p < points.size(); ++p) {
      points[p] = -1.0f;
      along[p] = static_cast<float>(p);
    }
    op.specs = {param("amount", 2.0, "How much (mappable)"),
                param("lean", Vec3f{1, 2, 3}, "Where to").vectorExpression()};
    op.parameters = ParamSet(std::make_shared<const ParamDeclarations>(op.specs));
    resources.framesPerSecond = 25.0;
    context.resources = &resources;
    context.time = 50.0;
  }

  ScalarField bind(const std::string& text) {
    op.parameters.set("amount", MapRef{MapSource::expression, text});
    return bindParam(op, "amount", context, {&strands, surface, nullptr, false});
  }
  float at(const std::string& text, std::size_t strand) {
    const ScalarField field = bind(text);
    return FieldReader(field).strand(strand);
  }

  ScalpMeshPtr surface;
  StrandSet strands;
  test::Custom op;
  EvalResources resources;
  EvalContext context;
};

TEST_F(ExpressionField, EverySlotHoldsWhatItsNameSays) {
  const float half = std::sqrt(0.5f), bentLength = 2.0f + 2.5f;
  const float bentReach = std::sqrt(1.5f * 1.5f + 4.0f + 4.0f);
  const auto drawn = [&](std::uint64_t id) { return unitFloat(hashCombine(id, 0xE9502A4Dull)); };
  const struct {
    const char* name;
    float bent, straight, loose;
  } rows[] = {{"u", 0.1f, 0.45f, 0.0f},
              {"v", 0.2f, 0.2f, 0.0f},
              {"x", 0.0f, 2.0f, 5.0f},
              {"y", 0.0f, 2.0f, 6.0f},
              {"z", 0.0f, 0.0f, 7.0f},
              {"nx", -half, -half, 0.0f},
              {"ny", half, half, 0.0f},
              {"nz", 0.0f, 0.0f, 0.0f},
              {"rand", drawn(11), drawn(12), drawn(13)},
              {"index", 0.0f, 1.0f, 2.0f},
              {"length", bentLength, std::sqrt(2.0f), 3.0f},
              {"longest", bentLength, bentLength, bentLength},
              {"reach", bentReach, std::sqrt(2.0f), 3.0f},
              {"straightness", bentReach / bentLength, 1.0f, 1.0f},
              {"lift", std::asin((2.0f - 1.5f) * half / bentReach), std::asin(1.0f), 0.0f},
              {"tipx", 1.5f, 1.0f, 5.0f},
              {"tipy", 2.0f, 3.0f, 9.0f},
              {"tipz", 2.0f, 0.0f, 7.0f},
              {"frame", 50.0f, 50.0f, 50.0f},
              {"F", 50.0f, 50.0f, 50.0f},
              {"time", 2.0f, 2.0f, 2.0f},
              {"N.y + tip.z + P.x", half + 2.0f, half + 2.0f, 12.0f},
              {"$both", 100.0f, 101.0f, 102.0f}};
  for (const auto& row : rows) {
    // Lift is wide where a sine is near 1.
    EXPECT_NEAR(at(row.name, 0), row.bent, 1e-5f) << row.name;
    EXPECT_NEAR(at(row.name, 1), row.straight, 1e-3f) << row.name;
    EXPECT_NEAR(at(row.name, 2), row.loose, 1e-5f) << row.name;
  }
  // A strand without points has nothing but its root.
  for (const char* name : {"length", "reach", "straightness", "tipx", "lift"}) {
    EXPECT_EQ(at(name, 3), 0.0f) << name;
  }
  EXPECT_NEAR(at("z", 3), 2.0f, 1e-5f);
}

TEST_F(ExpressionField, PointsHavePlacesOfTheirOwn) {
  const struct {
    const char* name;
    float values[3];
  } rows[] = {{"t", {0.0f, 2.0f / 4.5f, 1.0f}},   {"pt", {0.0f, 0.5f, 1.0f}},
              {"px", {0.0f, 0.0f, 1.5f}},         {"py", {0.0f, 2.0f, 2.0f}},
              {"pz", {0.0f, 0.0f, 2.0f}},         {"pointIndex", {0.0f, 1.0f, 2.0f}},
              {"$along", {0.0f, 1.0f, 2.0f}},     {"pointP.x + u", {0.1f, 0.1f, 1.6f}},
              {"t * length", {0.0f, 2.0f, 4.5f}}, {"$both", {100.0f, 100.0f, 100.0f}}};
  for (const auto& row : rows) {
    const ScalarField field = bind(row.name);
    FieldReader reader(field);
    const float* values = reader.points(0, 3);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(values[i], row.values[i], 1e-5f) << row.name;
  }
  // The strand's own channel comes first, also for an attribute.
  op.parameters.set("amount", MapRef{MapSource::attribute, "both"});
  const ScalarField field = bindParam(op, "amount", context, {&strands, surface, nullptr, false});
  FieldReader reader(field);
  EXPECT_EQ(reader.points(1, 2)[1], 101.0f);
}

TEST_F(ExpressionField, VectorsRangesAndDrawsAreTheStrands) {
  op.parameters.set("lean", MapRef{MapSource::expression, "[u, index, tip.y]"});
  const VectorField field = resolveVector(op, "lean", context, {&strands, surface, nullptr, false});
  Vec3f lean;
  field.source()->values(1, std::span(&lean, 1));
  EXPECT_LT(distance(lean, {0.45f, 1.0f, 3.0f}), 1e-6f);
  // rand(x) differs between strands and not between runs.
  EXPECT_NE(at("rand(3)", 0), at("rand(3)", 1));
  EXPECT_EQ(at("rand(3)", 0), at("rand(3)", 0));
  op.parameters.set("amount", MapRef{MapSource::expression, "u", MapComponent::r, 10.0f, 20.0f});
  const ScalarField scaled = bindParam(op, "amount", context, {&strands, surface, nullptr, false});
  EXPECT_NEAR(FieldReader(scaled).strand(0), 11.0f, 1e-5f);
  EXPECT_THROW(bind("map(\"no.<UDIM>.png\")"), GraphError);
}

}  // namespace
}  // namespace kestrane
