// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/operator.h"

#include <algorithm>

#include "core/base/json.h"
#include "core/graph/operator_registry.h"

namespace kestrane {

namespace {

/// Types whose results cannot be mixed with their input strand by strand: they add, remove, join or
/// resample strands, make something else of them, or pass them on.
constexpr std::string_view unmixed[] = {"Output", "Resample",    "Cull",     "Merge",    "Switch",
                                        "Blend",  "Mirror",      "Cards",    "Instance", "Scales",
                                        "Split",  "Interpolate", "Compound", "Input"};

ParamSpec affectParam() {
  return param("affect", 1.0,
               "Where the node works, 0-1 per strand (mappable, per point): 1 its whole result, 0 "
               "the strands as they came in, between a mix of the two. Map it to a Group node's "
               "group (an attribute map of the group's name), a painted map or an expression. IDs "
               "(clumpId...) switch at 0.5. A node that adds, removes or resamples strands leaves "
               "it alone")
      .range(0, 1)
      .unit("fraction")
      .group("Common");
}

}  // namespace

bool Operator::readsTime(const EvalContext& context) const {
  EvalContext later = context;
  later.time += 1.0;
  return contextKey(context) != contextKey(later);
}

bool takesAffect(const Operator& op) {
  const std::string type = op.type();
  if (std::find(std::begin(unmixed), std::end(unmixed), type) != std::end(unmixed)) return false;
  const std::vector<PortSpec> inputs = op.inputs();
  if (inputs.empty()) return false;
  const PortType first = inputs[0].type;
  return (first == PortType::strands || first == PortType::curves) && op.output().type == first &&
         op.outputs().size() == 1;
}

std::vector<ParamSpec> effectiveParams(const Operator& op) {
  std::vector<ParamSpec> params = op.params();
  const bool taken = std::any_of(params.begin(), params.end(),
                                 [](const ParamSpec& spec) { return spec.name == "affect"; });
  if (!taken && takesAffect(op)) params.push_back(affectParam());
  return params;
}

Json Operator::definition() const {
  return {};
}

std::unique_ptr<Operator> freshOperator(const Operator& op) {
  std::unique_ptr<Operator> fresh = OperatorRegistry::instance().create(op.type());
  if (const Json definition = op.definition(); !definition.is_null()) {
    fresh->setDefinition(definition);
  }
  fresh->parameters = op.parameters;
  fresh->nodeVersion = op.nodeVersion;
  return fresh;
}

}  // namespace kestrane
