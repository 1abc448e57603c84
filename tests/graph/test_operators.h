// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/graph/graph_document.h"
#include "core/graph/graph_evaluation.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "tests/support/groom_checks.h"
#include "tests/support/verifying.h"

/// Operators that exist for tests alone, small enough to be seen right at a glance.
namespace kestrane::test {

inline const PortSpec strandsPort{"strands", PortType::strands};
inline const PortSpec curvesPort{"strands", PortType::curves};

/// The text of what a call throws; empty if it throws nothing of that type.
template <class Error = GraphError, class Call>
std::string messageOf(Call&& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

/// The scene's guides, under the name "guides".
class GuidesSource final : public DeclaredOperator {
 public:
  GuidesSource() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestGuides", "source", "", {}, {"guides", PortType::guides}, {}};
    return d;
  }
  std::vector<std::string> sceneInputs() const override { return {"guides"}; }
  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue>) override {
    const SceneInput* input = context.scene ? context.scene->find("guides") : nullptr;
    return input ? input->value : GraphValue();
  }
};

/// Strands of its own making.
class StrandsSource final : public DeclaredOperator {
 public:
  StrandsSource() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestStrands",
        "source",
        "",
        {},
        {"out", PortType::strands},
        {param("count", 10, "How many"), param("points", 4, "Points of each"),
         param("seed", 1, "Which").animatable()}};
    return d;
  }
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue>) override {
    StrandSet set = makeStrands(static_cast<std::size_t>(parameters.integer("count")),
                                static_cast<std::size_t>(parameters.integer("points")),
                                static_cast<std::uint64_t>(parameters.integer("seed")));
    auto& shade = set.addStrandChannel("shade", 0.0f);
    for (std::size_t i = 0; i < shade.size(); ++i) shade[i] = static_cast<float>(i % 3) * 0.5f;
    return std::make_shared<const StrandSet>(std::move(set));
  }
};

/// Grows `perGuide` copies of each guide, one beside the other: the change of a guide changes these
/// strands alone.
class Grow final : public DeclaredOperator {
 public:
  Grow() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{"TestGrow",
                                       "grow",
                                       "",
                                       {{"guides", PortType::guides, true}},
                                       {"out", PortType::strands},
                                       {param("perGuide", 3, "")}};
    return d;
  }
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue> inputs) override {
    const auto guides = valueAs<GuideSet>(inputs[0]);
    auto set = std::make_shared<StrandSet>();
    const auto copies = static_cast<std::uint64_t>(parameters.integer("perGuide"));
    for (std::size_t g = 0; guides && g < guides->guides.size(); ++g) {
      for (std::uint64_t k = 0; k < copies; ++k) {
        set->addStrand(g * copies + k + 1, {}, shape(guides->guides[g], k));
      }
    }
    set->addStrandChannel("shade", 0.25f);
    return StrandSetPtr(set);
  }
  bool evaluateChanged(const EvalContext&, std::span<const GraphValue> inputs,
                       IncrementalState& state, GraphValue& result,
                       StrandChangesPtr& changes) override {
    const auto before = valueAs<GuideSet>(state.previousInputs[0]);
    const auto now = valueAs<GuideSet>(inputs[0]);
    auto old = valueAs<StrandSet>(state.previous[0]);
    if (!before || !now || !old || before->guides.size() != now->guides.size()) return false;
    state.previous[0] = {};
    // The set itself where this is its last holder, else a copy.
    std::shared_ptr<StrandSet> set = state.mayRecycle && old.use_count() == 1
                                         ? std::const_pointer_cast<StrandSet>(old)
                                         : std::make_shared<StrandSet>(*old);
    if (!state.mayRecycle) state.previous[0] = old;
    old.reset();
    auto list = std::make_shared<StrandChanges>();
    const auto copies = static_cast<std::uint64_t>(parameters.integer("perGuide"));
    Array<Vec3f>& points = set->mutablePoints();
    for (std::size_t g = 0; g < now->guides.size(); ++g) {
      if (now->guides[g] == before->guides[g]) continue;
      for (std::uint64_t k = 0; k < copies; ++k) {
        const std::size_t strand = g * copies + k;
        const std::vector<Vec3f> moved = shape(now->guides[g], k);
        std::copy(moved.begin(), moved.end(), points.begin() + set->offsets()[strand]);
        list->strands.push_back(static_cast<std::uint32_t>(strand));
      }
    }
    result = StrandSetPtr(set);
    changes = list;
    return true;
  }

 private:
  static std::vector<Vec3f> shape(const Guide& guide, std::uint64_t copy) {
    std::vector<Vec3f> points = guide.points;
    for (Vec3f& point : points) point.x += 0.1f * static_cast<float>(copy);
    return points;
  }
};

/// Moves points along X by `amount`.
class Move final : public StrandOperator {
 public:
  Move() : StrandOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestMove",
        "shape",
        "Moves.",
        {curvesPort},
        {"out", PortType::curves},
        {param("amount", 1.0, "How far (mappable, per point)").animatable().slider(0, 5),
         param("offset", Vec3f{}, "And where to").animatable(),
         param("profile", Ramp({{0.0f, 1.0f}}), "Along the strand"),
         param("whole", false, "Pretends to look at all strands").animatable(),
         param("steps", 2, "In how many steps").range(1, 8)}};
    return d;
  }
  void edit(StrandEdit& edit) override {
    const ScalarField amount = edit.field("amount");
    const Vec3f offset = parameters.vec3("offset");
    const float scale = parameters.ramp("profile").evaluate(0.5f);
    if (parameters.boolean("whole")) edit.readsWholeSet();
    const StrandSet& in = edit.input();
    const auto out = edit.points();
    edit.run(16, [&](const StrandRange& strands) {
      FieldReader amounts(amount);
      for (const std::size_t strand : strands) {
        const std::size_t begin = in.offsets()[strand], count = in.offsets()[strand + 1] - begin;
        const float* by = amounts.points(strand, count);
        for (std::size_t i = 0; i < count; ++i) {
          out[begin + i] = in.points()[begin + i] + offset + Vec3f{by[i] * scale, 0.0f, 0.0f};
        }
      }
    });
  }
};

/// Writes widths, a channel per strand and one of IDs.
class Tint final : public StrandOperator {
 public:
  Tint() : StrandOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{"TestTint",
                                       "color",
                                       "",
                                       {strandsPort},
                                       {"out", PortType::strands},
                                       {param("tint", 0.5, "")}};
    return d;
  }
  void edit(StrandEdit& edit) override {
    const StrandSet& in = edit.input();
    const float tint = static_cast<float>(parameters.number("tint"));
    const auto widths = edit.widths();
    const auto tints = edit.strandChannel("tint");
    const auto clumps = edit.strandChannel("clumpId", -1.0f);
    edit.run(16, [&](const StrandRange& strands) {
      for (const std::size_t s : strands) {
        tints[s] = tint + in.strandPoints(s)[0].x;
        clumps[s] = 7.0f;
        for (std::size_t p = in.offsets()[s]; p < in.offsets()[s + 1]; ++p) {
          widths[p] = 2.0f * in.widths()[p];
        }
      }
    });
  }
};

/// Doubles the number of points.
class Refine final : public StrandOperator {
 public:
  Refine() : StrandOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestRefine", "shape", "", {curvesPort}, {"out", PortType::curves}, {}};
    return d;
  }
  struct Twice {
    template <class T>
    void apply(std::span<const T> values, std::span<T> out) const {
      for (std::size_t i = 0; i < out.size(); ++i) out[i] = values[i / 2];
    }
  };
  void edit(StrandEdit& edit) override {
    const StrandSet& in = edit.input();
    edit.setPointCounts(16, [&](std::size_t s) { return 2 * in.strandPoints(s).size(); });
    edit.resampleAll(16, [&](std::size_t, const auto& apply) { apply(Twice()); });
  }
};

/// An operator put together in a test. Not in the registry.
class Custom final : public Operator {
 public:
  std::string typeName = "TestCustom";
  std::vector<PortSpec> ins{strandsPort};
  std::vector<PortSpec> outs{{"out", PortType::strands}};
  std::function<std::vector<GraphValue>(const EvalContext&, std::span<const GraphValue>)> make =
      [](const EvalContext&, std::span<const GraphValue> inputs) {
        return std::vector<GraphValue>{inputs.empty() ? GraphValue() : inputs[0]};
      };
  std::string advice;
  std::vector<ParamSpec> specs;
  std::function<bool(std::size_t)> active = [](std::size_t) { return true; };
  std::function<std::uint64_t(const EvalContext&)> reads = [](const EvalContext&) { return 0u; };
  bool refreshes = false;

  std::string type() const override { return typeName; }
  std::string category() const override { return "utility"; }
  std::vector<PortSpec> inputs() const override { return ins; }
  PortSpec output() const override { return outs[0]; }
  std::vector<PortSpec> outputs() const override { return outs; }
  std::vector<ParamSpec> params() const override { return specs; }
  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) override {
    return make(context, inputs)[0];
  }
  std::vector<GraphValue> evaluateAll(const EvalContext& context,
                                      std::span<const GraphValue> inputs) override {
    return make(context, inputs);
  }
  std::string note(const EvalContext&) const override { return advice; }
  bool inputActive(std::size_t slot) const override { return active(slot); }
  std::uint64_t contextKey(const EvalContext& context) const override { return reads(context); }
  bool refreshesOnHit() const override { return refreshes; }
};

/// Makes up to two outputs, each a copy of its input, and tells about them whatever the test wants:
/// `lie` names the fault of its incremental path.
class Liar final : public DeclaredOperator {
 public:
  Liar() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestLiar",
        "utility",
        "",
        {{"in", PortType::strands}, {"guides", PortType::guides, true}},
        {"out", PortType::strands},
        {param("lie", "", ""), param("second", false, "A second output")}};
    return d;
  }
  std::vector<PortSpec> outputs() const override {
    std::vector<PortSpec> ports{{"out", PortType::strands}};
    if (parameters.boolean("second")) ports.push_back({"other", PortType::strands});
    return ports;
  }
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue> inputs) override {
    if (parameters.text("lie") == "guides") return inputs[1];
    return inputs[0];
  }
  std::vector<GraphValue> evaluateAll(const EvalContext& context,
                                      std::span<const GraphValue> inputs) override {
    return std::vector<GraphValue>(outputs().size(), evaluate(context, inputs));
  }
  bool evaluateChanged(const EvalContext&, std::span<const GraphValue> inputs,
                       IncrementalState& state, GraphValue& result,
                       StrandChangesPtr& changes) override {
    const std::string lie = parameters.text("lie");
    const auto in = valueAs<StrandSet>(inputs[0]);
    auto record = std::make_shared<StrandChanges>();
    if (state.inputChanges[0]) *record = *state.inputChanges[0];
    result = in;
    if (lie == "throws") throw GraphError("half done");
    if (lie == "kind") result = std::make_shared<const GuideSet>();
    if (lie == "guides") result = std::make_shared<const GuideSet>(GuideSet{{Guide{}}});
    if (lie == "strands") {
      auto other = std::make_shared<StrandSet>(*in);
      other->mutablePoints()[0].y += 1.0f;
      result = StrandSetPtr(other);
    }
    if (lie == "past") record->strands.push_back(1000);
    if (lie == "unlisted") record->strands.erase(record->strands.begin());
    if (lie == "all") *record = {true, {}};
    changes = record;
    if (lie == "unknown") changes = nullptr;
    return true;
  }
  bool evaluateChangedAll(const EvalContext& context, std::span<const GraphValue> inputs,
                          IncrementalState& state, std::vector<GraphValue>& results,
                          std::vector<StrandChangesPtr>& changes) override {
    results.resize(parameters.text("lie") == "count" ? 3 : 2);
    changes.resize(results.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
      if (!evaluateChanged(context, inputs, state, results[i], changes[i])) return false;
    }
    return true;
  }
};

/// A field of one number, and a curve.
struct FixedField final : FieldValue {
  explicit FixedField(float v) : value(v) {}
  float valueAt(const FieldSample&) const override { return value; }
  std::optional<float> constant() const override { return value; }
  float value;
};
class FieldSource final : public DeclaredOperator {
 public:
  FieldSource() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{"TestField",
                                       "field",
                                       "",
                                       {},
                                       {"field", PortType::field},
                                       {param("value", 2.0, "").animatable()}};
    return d;
  }
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue>) override {
    return FieldValuePtr(
        std::make_shared<FixedField>(static_cast<float>(parameters.number("value"))));
  }
};
class CurveSource final : public DeclaredOperator {
 public:
  CurveSource() : DeclaredOperator(declaration()) {}
  static const OperatorDeclaration& declaration() {
    static const OperatorDeclaration d{
        "TestCurve", "field", "", {}, {"curve", PortType::curve}, {param("value", 3.0, "")}};
    return d;
  }
  GraphValue evaluate(const EvalContext&, std::span<const GraphValue>) override {
    const float value = static_cast<float>(parameters.number("value"));
    return std::make_shared<const Ramp>(std::vector<Ramp::Key>{{0.0f, value}});
  }
};

/// Puts the operators above that can be made by type into the registry, once.
inline void registerTestOperators() {
  static const bool done = [] {
    OperatorRegistry& registry = OperatorRegistry::instance();
    registry.add<GuidesSource>();
    registry.add<StrandsSource>();
    registry.add<Grow>();
    registry.add<Move>();
    registry.add<Tint>();
    registry.add<Refine>();
    registry.add<Liar>();
    registry.add<FieldSource>();
    registry.add<CurveSource>();
    return true;
  }();
  (void)done;
}

/// A graph under construction: nodes by type, chained by their first inputs.
struct TestGraph {
  TestGraph() { registerTestOperators(); }

  std::uint32_t add(const std::string& type, const std::string& name = {}) {
    return graph.addNode(OperatorRegistry::instance().create(type), name);
  }
  template <class Op>
  std::uint32_t addOp(std::unique_ptr<Op> op, const std::string& name = {}) {
    return graph.addNode(std::move(op), name);
  }
  /// A node of the type whose first input comes from the last one added.
  std::uint32_t then(const std::string& type, const std::string& name = {}) {
    const std::uint32_t id = add(type, name);
    graph.connect(id - 1, id, 0);
    return id;
  }
  ParamSet& params(std::uint32_t id) { return graph.node(id).op->parameters; }
  std::vector<GraphValue> evaluateAll(std::uint32_t id) { return evaluate(graph, id, context()); }
  StrandSetPtr strands(std::uint32_t id) { return valueAs<StrandSet>(evaluateAll(id).at(0)); }
  std::string error(std::uint32_t id) {
    return messageOf([&] { evaluateAll(id); });
  }
  std::string run(std::uint32_t id) const { return graph.reports.at(id).run; }
  std::string notes(std::uint32_t id) const { return graph.reports.at(id).notes; }
  EvalContext context() const {
    EvalContext made = request;
    made.scene = &scene;
    return made;
  }
  /// Guides of four points; those listed are raised a little, by their index.
  void setGuides(std::size_t count, const std::vector<std::size_t>& raised = {}) {
    GuideSet set;
    for (std::size_t g = 0; g < count; ++g) {
      Guide guide;
      guide.id = g + 1;
      for (int k = 0; k < 4; ++k) {
        guide.points.push_back({static_cast<float>(g), static_cast<float>(k), 0.0f});
      }
      set.guides.push_back(std::move(guide));
    }
    for (const std::size_t g : raised) {
      for (Vec3f& point : set.guides[g].points) point.y += 0.01f * static_cast<float>(g + 1);
    }
    scene.set("guides", {std::make_shared<const GuideSet>(std::move(set)), 0.0, ++revision});
  }

  Graph graph;
  SceneTable scene;
  EvalContext request;
  std::uint64_t revision = 0;
};

}  // namespace kestrane::test
