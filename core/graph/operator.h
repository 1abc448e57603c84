// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/graph/eval_context.h"
#include "core/graph/param_set.h"
#include "core/graph/port.h"

namespace kestrane {

/// What an operator may build on when only some strands changed.
struct IncrementalState {
  /// The node's previous outputs. An operator that will surely succeed may move one out to recycle
  /// its arrays, where mayRecycle is true; the node then holds no result until it has the new one.
  /// Whoever writes one on the strength of its use_count() must copy and drop the pointer once
  /// before: the count alone does not order the reads of a holder who has just let go.
  std::span<GraphValue> previous;
  /// What changed on each input since then; null means everything.
  std::span<const StrandChangesPtr> inputChanges;
  /// The inputs that the previous outputs were made from, where the node still knows them; empty
  /// values otherwise. For operators that compare two inputs themselves (guides).
  std::span<const GraphValue> previousInputs;
  bool mayRecycle = false;
};

/// Called with a node's name and operator; false stops the walk.
using ActiveVisitor = std::function<bool(const std::string& name, class Operator& op)>;

/// The behaviour of one node. Stateless apart from its parameters and caches, and a cache must give
/// the same values as if it were not there. Owned by its node; not thread-safe, but a node is
/// evaluated by one thread at a time.
class Operator {
 public:
  virtual ~Operator() = default;

  /// The key in the registry and in graph JSON.
  virtual std::string type() const = 0;
  virtual std::vector<PortSpec> inputs() const = 0;
  virtual PortSpec output() const { return {"out", PortType::strands, false}; }
  virtual std::vector<PortSpec> outputs() const { return {output()}; }
  /// Computes the output value. Throws GraphError for failures that must stop the evaluation;
  /// softer trouble goes to the context's warnings.
  virtual GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) = 0;
  virtual std::vector<GraphValue> evaluateAll(const EvalContext& context,
                                              std::span<const GraphValue> inputs) {
    return {evaluate(context, inputs)};
  }
  /// The incremental path: fills the result and which strands of it differ from the previous one.
  /// False declines, and a full evaluation follows.
  virtual bool evaluateChanged(const EvalContext&, std::span<const GraphValue>, IncrementalState&,
                               GraphValue&, StrandChangesPtr&) {
    return false;
  }
  virtual bool evaluateChangedAll(const EvalContext&, std::span<const GraphValue>,
                                  IncrementalState&, std::vector<GraphValue>&,
                                  std::vector<StrandChangesPtr>&) {
    return false;
  }
  /// Takes over the caches of the operator of the same type that this one replaces.
  virtual void adoptState(Operator&) {}
  /// The declared parameters, without the common ones.
  virtual std::vector<ParamSpec> params() const { return {}; }
  /// The names of scene objects read; their revisions enter the node key.
  virtual std::vector<std::string> sceneInputs() const { return {}; }
  /// Of what the operator holds beyond its parameters.
  virtual std::uint64_t cacheKey() const { return 0; }
  /// Of what it reads from the context.
  virtual std::uint64_t contextKey(const EvalContext&) const { return 0; }
  /// Whether to evaluate even on a cache hit, so that the cached output follows the scene object.
  virtual bool refreshesOnHit() const { return false; }
  /// One sentence of advice shown beside the node.
  virtual std::string note(const EvalContext&) const { return {}; }
  /// Whether this input matters at all.
  virtual bool inputActive(std::size_t) const { return true; }
  /// Walks nested graphs; false when the visitor stopped.
  virtual bool visitActive(const EvalContext&, const ActiveVisitor&) { return true; }
  /// source, grow, shape, look, color, feathers, motion, field or utility.
  virtual std::string category() const = 0;
  virtual int version() const { return 1; }
  /// The one sentence of the catalogue.
  virtual std::string description() const { return {}; }
  /// Whether the result depends on the context's time: by default, whether contextKey does.
  virtual bool readsTime(const EvalContext& context) const;
  /// Whether evaluateChanged takes from its previous output only arrays that it writes, and shares
  /// all others with its first input. Then the previous output may come without the points, widths
  /// and channels that it shared with that input, so that the nodes above can recycle them.
  virtual bool keepsOnlyWritten() const { return false; }
  /// What the operator holds beyond its parameters, as graph JSON keeps it under "definition"; null
  /// for nothing. The setter throws GraphError for what is no definition.
  virtual Json definition() const;
  virtual void setDefinition(const Json&) {}

  /// What it declares is told to it by the registry or the graph, once the operator is whole.
  ParamSet parameters;
  /// The version that the node was read with; 0 or less means the current one.
  std::int32_t nodeVersion = 0;
};

/// Everything fixed about one operator type, in one place: the catalogue, the graph's checks, cache
/// keys and docs derive from it.
struct OperatorDeclaration {
  std::string type;
  std::string category;
  std::string description;
  std::vector<PortSpec> inputs;
  PortSpec output;
  std::vector<ParamSpec> params;
};

/// The parameter list of an operator followed by the common parameters that it qualifies for.
std::vector<ParamSpec> effectiveParams(const Operator& op);

/// Whether the operator gets the common parameter `affect`: one strands-like output like its first
/// input, and a type that makes sense to mix.
bool takesAffect(const Operator& op);

/// A new operator of the same type from the registry with the same parameters, version and
/// definition, but no caches.
std::unique_ptr<Operator> freshOperator(const Operator& op);

/// An operator that answers for itself from its declaration, which lives as long as the process.
class DeclaredOperator : public Operator {
 public:
  explicit DeclaredOperator(const OperatorDeclaration& declaration) : declaration_(declaration) {}

  std::string type() const override { return declaration_.type; }
  std::vector<PortSpec> inputs() const override { return declaration_.inputs; }
  PortSpec output() const override { return declaration_.output; }
  std::vector<ParamSpec> params() const override { return declaration_.params; }
  std::string category() const override { return declaration_.category; }
  std::string description() const override { return declaration_.description; }

 private:
  const OperatorDeclaration& declaration_;
};

}  // namespace kestrane
