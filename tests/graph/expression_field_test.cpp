// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What an expression on a parameter sees of the strands.

#include <cmath>

#include "core/base/hash.h"
#include "core/base/parallel.h"
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

/// A map that tells where it is read.
class PlaceMap final : public ExpressionMap {
 public:
  float sample(const MapSample& at, MapComponent component) const override {
    return at.uv.x + 10.0f * at.position.y + static_cast<float>(at.root.face) +
           100.0f * static_cast<float>(component);
  }
};

/// Many strands: of one length for a while, then of every length from none to more points than are
/// read at once, some of them not rooted.
class ManyStrands : public ExpressionField {
 protected:
  ManyStrands() {
    for (std::uint64_t s = 4; s < 400; ++s) {
      const std::size_t count = s < 200 ? 17 : s == 300 ? 3000 : hashCombine(s, 1) % 24;
      std::vector<Vec3f> points(count);
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t h = hashCombine(s, 10 + i);
        points[i] = {unitFloat(h), static_cast<float>(i) + unitFloat(mix64(h)), 0.01f * s};
      }
      const StrandRoot root = s % 11 == 5 ? StrandRoot{} : StrandRoot{0, 0.002f * s, 0.1f};
      strands.addStrand(100 + s, root, points);
    }
    auto& both = *strands.mutableStrandChannel("both");
    for (std::size_t s = 4; s < both.size(); ++s) both[s] = unitFloat(mix64(s));
    auto& along = *strands.mutablePointChannel("along");
    for (std::size_t p = 5; p < along.size(); ++p) along[p] = unitFloat(mix64(p));
    resources.paintedMap = [](std::string_view) {
      return EvalResources::PaintedMap{std::make_shared<PlaceMap>(), 1, {}};
    };
  }
  std::size_t pointsOf(std::size_t strand) const { return strands.strandPoints(strand).size(); }
};

const char* const manyFormulas[] = {
    "u + v * 2 + x * 3 + y * 4 + z * 5",
    "nx + ny * 2 + nz * 3 + lift * 4",
    "rand + rand(1) * 2 + rand(x) * 3 + index",
    "length + longest + reach + straightness + tipx + tipy * 2 + tipz * 3",
    "$both + map(\"m\") * map(\"m\", \"g\") + frame + time",
    "t + pt * 2 + px * 3 + py * 4 + pz * 5 + pointIndex * 6",
    "clamp(sin(x*6.28)*0.5+0.5,0,1)*mix(u,v,t)+pow(t,1.5)",
    "$along * $both + rand(pt) + rand(u) * map(\"m\")",
    "pt > 0.5 ? fbm(P, 2) : length(pointP - P)",
    "$along",
    "3 * rand(2) + 0 * pt"};

TEST_F(ManyStrands, ReadInARowAreWhatEachIsAlone) {
  for (const char* text : manyFormulas) {
    const ScalarField field = bind(text);
    FieldReader reader(field);
    for (std::size_t s = 0; s < strands.strandCount(); ++s) {
      // Both ways of reading, and now and then fewer or more points than there are.
      const std::size_t count = s % 29 == 7 ? pointsOf(s) / 2 : pointsOf(s) + (s % 31 == 9 ? 3 : 0);
      const float* values = reader.points(s, count);
      const std::vector<float> inARow(values, values + count);
      std::vector<float> alone(std::max<std::size_t>(count, 1));
      field.source()->values(s, {alone.data(), field.perPoint() ? alone.size() : 1});
      if (!field.perPoint()) std::fill(alone.begin(), alone.end(), alone[0]);
      ASSERT_EQ(reader.strand(s), alone[0]) << text << ", strand " << s;
      alone.resize(count);
      ASSERT_EQ(inARow, alone) << text << ", strand " << s;
    }
  }
}

TEST_F(ManyStrands, ReadInAnyOrderAndByThreadsAreTheSame) {
  for (const char* text : manyFormulas) {
    const ScalarField field = bind(text);
    std::vector<float> forward(strands.pointCount()), other(strands.pointCount());
    const auto read = [&](FieldReader& reader, std::size_t s, std::vector<float>& out) {
      std::copy_n(reader.points(s, pointsOf(s)), pointsOf(s), out.data() + strands.offsets()[s]);
    };
    FieldReader reader(field);
    for (std::size_t s = 0; s < strands.strandCount(); ++s) read(reader, s, forward);
    for (std::size_t s = strands.strandCount(); s-- > 0;) read(reader, s, other);
    ASSERT_EQ(forward, other) << text;
    std::fill(other.begin(), other.end(), 0.0f);
    runWithThreads(4, [&] {
      parallelRange(0, strands.strandCount(), 16, [&](std::size_t first, std::size_t last) {
        FieldReader own(field);
        for (std::size_t s = first; s < last; ++s) read(own, s, other);
      });
    });
    ASSERT_EQ(forward, other) << text;
  }
}

TEST_F(ManyStrands, VectorsOfSeveralAreWhatEachIsAlone) {
  for (const char* text : {"[u, index, tip.y] * $both", "pointP * rand(3) + N * t"}) {
    op.parameters.set("lean", MapRef{MapSource::expression, text, MapComponent::r, -1.0f, 2.0f});
    const VectorField field =
        resolveVector(op, "lean", context, {&strands, surface, nullptr, false});
    const bool perPoint = field.source()->perPoint;
    std::vector<Vec3f> several(perPoint ? strands.pointCount() : strands.strandCount());
    field.source()->severalValues(0, strands.strandCount(), several);
    std::size_t place = 0;
    for (std::size_t s = 0; s < strands.strandCount(); ++s) {
      std::vector<Vec3f> alone(perPoint ? pointsOf(s) : 1);
      field.source()->values(s, alone);
      for (const Vec3f& value : alone) ASSERT_EQ(value, several[place++]) << text << ", " << s;
    }
    EXPECT_EQ(place, several.size());
  }
}

/// Counts the strands whose values it is asked for.
struct CountingSource final : ScalarField::Source {
  explicit CountingSource(const StrandSet& strands) { readsAhead = &strands; }
  void values(std::size_t strand, std::span<float> out) const override {
    asked += out.size();
    for (float& value : out) value = static_cast<float>(strand);
  }
  void severalValues(std::size_t first, std::size_t last, std::span<float> out) const override {
    ++readings;
    FieldSource::severalValues(first, last, out);
  }
  mutable std::size_t asked = 0, readings = 0;
};

TEST_F(ManyStrands, NoStrandIsReadInVainUnlessItFollowsTheLast) {
  for (const bool perPoint : {false, true}) {
    const auto source = std::make_shared<CountingSource>(strands);
    source->perPoint = perPoint;
    const ScalarField field{source};
    const auto sizeOf = [&](std::size_t s) {
      return perPoint ? std::max<std::size_t>(pointsOf(s), 1) : 1;
    };
    const auto read = [&](FieldReader& reader, std::size_t s) {
      const float value = perPoint ? *reader.points(s, 1) : reader.strand(s);
      ASSERT_EQ(value, static_cast<float>(s));
    };
    std::size_t needed = 0;
    FieldReader scattered(field);
    for (std::size_t s = 4; s < 400; s += 3) {
      read(scattered, s);
      needed += sizeOf(s);
    }
    EXPECT_EQ(source->asked, needed);

    source->asked = needed = 0;
    FieldReader inRuns(field);
    for (std::size_t s = 4, run = 0; s < 190; s += 2 + run % 5) {  // up to strands of one length
      for (const std::size_t end = s + hashCombine(7, run++) % 9; s < end; ++s) {
        read(inRuns, s);
        needed += sizeOf(s);
      }
    }
    EXPECT_LE(source->asked, 2 * needed);

    // Ever farther on, to just where a step would end.
    source->asked = needed = 0;
    FieldReader leaping(field);
    for (const std::size_t s : {4, 5, 6, 8, 16, 32, 64, 128}) {
      read(leaping, s);
      needed += sizeOf(s);
    }
    EXPECT_LE(source->asked, 2 * needed);

    source->asked = source->readings = needed = 0;
    FieldReader inARow(field);
    for (std::size_t s = 128; s < 256; ++s) {
      read(inARow, s);
      needed += sizeOf(s);
    }
    EXPECT_EQ(source->asked, needed) << "whole steps that end where the loop does";
    EXPECT_LE(source->readings, perPoint ? 10u : 8u);
  }
}

}  // namespace
}  // namespace kestrane
