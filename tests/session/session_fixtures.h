// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cmath>
#include <map>
#include <string>

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/graph/operator_registry.h"
#include "core/guides/guide_hierarchy.h"
#include "core/session/groom_session.h"
#include "tests/support/test_meshes.h"

namespace kestrane::test {

/// How often nodes of the test types ran, and how often one took over another's state.
struct Runs {
  static inline std::atomic<int> grow = 0;
  static inline std::atomic<int> shift = 0;
  static inline std::atomic<int> adopted = 0;
  static void reset() { grow = shift = adopted = 0; }
};

/// One straight strand of 3 points from the middle of every triangle of the scalp, and one that is
/// rooted nowhere.
class GrowOp final : public DeclaredOperator {
 public:
  GrowOp() : DeclaredOperator(declaration()) {}
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue> inputs) override {
    ++Runs::grow;
    StrandSet set;
    const auto scalp = valueAs<ScalpMesh>(inputs[0]);
    for (std::size_t i = 0; scalp && i < scalp->triangleCount(); ++i) {
      const StrandRoot root{static_cast<std::int32_t>(i), 0.25f, 0.5f};
      const Vec3f start = scalp->positionAt(root), up = scalp->normalAt(root);
      const Vec3f points[] = {start, start + up, start + up * 2.0f + Vec3f{0.1f, 0, 0}};
      set.addStrand(i + 1, root, points);
    }
    const Vec3f loose[] = {{9, 9, 9}, {9, 10, 9}};
    set.addStrand(1000000, {}, loose);
    return std::make_shared<const StrandSet>(std::move(set));
  }

 private:
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration kept{
        "TestGrow", "grow", "", {{"scalp", PortType::mesh, true}}, {"out", PortType::strands}, {}};
    return kept;
  }
};

/// Moves strands by `by` along X, and does what is wrong when told to.
class ShiftOp final : public DeclaredOperator {
 public:
  ShiftOp() : DeclaredOperator(declaration()) {}
  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) override {
    ++Runs::shift;
    const std::string fault = parameters.text("fault");
    if (fault == "throw") throw GraphError("it broke");
    if (fault == "warn") context.warn("careful");
    const auto in = valueAs<StrandSet>(inputs[0]);
    StrandSet set = *in;
    const auto by = static_cast<float>(fault == "nan" ? NAN : parameters.number("by"));
    for (Vec3f& point : set.mutablePoints()) point.x += by;
    return std::make_shared<const StrandSet>(std::move(set));
  }
  void adoptState(Operator&) override { ++Runs::adopted; }
  std::string note(const EvalContext&) const override { return "a note"; }

 private:
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration kept{
        "TestShift",
        "shape",
        "",
        {{"strands", PortType::strands}},
        {"out", PortType::strands},
        {param("by", 0.0, "").animatable(), param("fault", "", "")}};
    return kept;
  }
};

inline void registerTestOperators() {
  OperatorRegistry& registry = OperatorRegistry::instance();
  if (!registry.has("TestGrow")) registry.add<GrowOp>();
  if (!registry.has("TestShift")) registry.add<ShiftOp>();
}

/// scalp > grow > first > last > output, with parameters for the two shifts.
inline std::string chain(const std::string& first = "{}", const std::string& last = "{}") {
  return R"({"nodes":[{"name":"scalp","type":"Scalp"},{"name":"grow","type":"TestGrow"},
    {"name":"first","type":"TestShift","params":)" +
         first + R"(,"paramControls":{"by":"push"}},
    {"name":"last","type":"TestShift","params":)" +
         last + R"(},{"name":"output","type":"Output"}],
    "connections":[{"from":"scalp","to":"grow","input":"scalp"},
    {"from":"grow","to":"first","input":"strands"},
    {"from":"first","to":"last","input":"strands"},
    {"from":"last","to":"output","input":"strands"}],"output":"output"})";
}

inline std::shared_ptr<const ScalpMesh> sharedGrid(int n) {
  return std::make_shared<const ScalpMesh>(makeGrid(n));
}

/// A scalp that keeps its points as rest pose too.
inline std::shared_ptr<const ScalpMesh> sharedGridAtRest(int n) {
  ScalpMesh mesh = makeGrid(n);
  mesh.setRestPoints(mesh.points());
  return std::make_shared<const ScalpMesh>(std::move(mesh));
}

/// A quarter turn about Z, then a shift.
inline Vec3f moved(Vec3f p) {
  return {-p.y + 1.0f, p.x + 2.0f, p.z - 3.0f};
}

inline std::vector<Vec3f> moved(std::vector<Vec3f> points) {
  for (Vec3f& point : points) point = moved(point);
  return points;
}

}  // namespace kestrane::test
