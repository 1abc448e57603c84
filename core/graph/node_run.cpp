// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/node_run.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include "core/base/errors.h"
#include "core/graph/graph_evaluation.h"
#include "core/graph/graph_walk.h"
#include "core/graph/verify_incremental.h"

namespace kestrane {

namespace {

/// Takes what parameter ports carry off the operator again, however the run ends.
struct WireGuard {
  ParamSet& params;
  ~WireGuard() { params.clearWires(); }
};

std::string_view kindOfStrands(const GraphValue& value) {
  if (valueAs<StrandSet>(value)) return "strands";
  if (valueAs<GuideSet>(value)) return "guides";
  return "nothing";
}

std::string madeCount(const std::string& name, std::size_t made, const char* how,
                      std::size_t wanted) {
  return name + " made " + std::to_string(made) + " values" + how + " for " +
         std::to_string(wanted) + " outputs";
}

GraphError named(const std::string& name, std::string_view message) {
  if (name.empty() || message.starts_with("node '")) return GraphError(std::string(message));
  return GraphError("node '" + name + "': " + std::string(message));
}

}  // namespace

NodeRun::NodeRun(Node& node, const EvalContext& context, NodeInputs inputs)
    : node_(node),
      op_(*node.op),
      context_(context),
      inputs_(std::move(inputs)),
      ports_(op_.inputs()),
      outputs_(op_.outputs()),
      outputType_(op_.output().type) {
  context_.warnings = &warnings_;
}

NodeResult NodeRun::run() {
  const WireGuard guard{op_.parameters};
  wireParams();
  if (takesAffect(op_)) affect_ = readAffect(op_);
  if (!inputs_.values.empty()) firstInput_ = inputs_.values[0];
  passes_ = (inputs_.bypassed || affect_ == Affect::nothing) && !ports_.empty() &&
            ports_[0].type == outputType_ && !isEmpty(firstInput_);
  checkKinds();
  if (!passes_ && outputType_ == PortType::curves && ports_.size() > 0 &&
      ports_[0].type == PortType::curves) {
    guides_ = valueAs<GuideSet>(firstInput_);
  }
  canIncrement_ = inputs_.keepsResult && incrementalEvaluation() && inputs_.hadResult &&
                  inputs_.sameOwnKey && !passes_ && !guides_ && paramsQuiet_ && !missingInput() &&
                  node_.cache.outputs.size() == outputs_.size();

  const auto start = std::chrono::steady_clock::now();
  try {
    makeOutputs();
  } catch (const std::bad_alloc&) {
    throw named(node_.name, "not enough memory");
  } catch (const std::exception& error) {
    throw named(node_.name, error.what());
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  result_.report.milliseconds =
      static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count()) /
      1e6;
  return std::move(result_);
}

void NodeRun::wireParams() {
  for (std::size_t i = 0; i < node_.paramInputs.size(); ++i) {
    const std::size_t slot = ports_.size() + i;
    if (slot >= inputs_.values.size()) break;
    const GraphValue& value = inputs_.values[slot];
    const FieldValuePtr field = valueAs<FieldValue>(value);
    if (field) field->prepare(context_);
    op_.parameters.wireField(node_.paramInputs[i], field);
    op_.parameters.wireCurve(node_.paramInputs[i], valueAs<Ramp>(value));
    if (inputs_.keepsResult) {
      const StrandChangesPtr& changes = inputs_.changes[slot];
      paramsQuiet_ = paramsQuiet_ && changes && changes->empty();
    }
  }
}

void NodeRun::checkKinds() const {
  for (std::size_t slot = 0; slot < ports_.size() && slot < inputs_.values.size(); ++slot) {
    const std::string_view given = kindOfStrands(inputs_.values[slot]);
    const PortType type = ports_[slot].type;
    const bool crossed = (type == PortType::strands && given == "guides") ||
                         (type == PortType::guides && given == "strands");
    if (!crossed) continue;
    throw GraphError("node '" + node_.name + "': " + op_.type() + " input '" + ports_[slot].name +
                     "' takes " + (type == PortType::strands ? "strands" : "guides") +
                     " but gets " + std::string(given) + " from the node before it");
  }
}

const PortSpec* NodeRun::missingInput() const {
  for (std::size_t slot = 0; slot < ports_.size() && slot < inputs_.values.size(); ++slot) {
    if (ports_[slot].type == PortType::strands && !ports_[slot].optional &&
        isEmpty(inputs_.values[slot]) && isActive(node_, slot)) {
      return &ports_[slot];
    }
  }
  return nullptr;
}

void NodeRun::checkFields() const {
  const auto fail = [&](const std::string& port) {
    throw GraphError(op_.type() + ": connect a field to '" + port + "'");
  };
  for (std::size_t slot = 0; slot < inputs_.values.size(); ++slot) {
    const GraphValue& value = inputs_.values[slot];
    if (slot >= ports_.size()) {
      const bool isWired = slot < node_.sources.size() && node_.sources[slot] != 0;
      if (isWired && isEmpty(value)) fail(node_.paramInputs[slot - ports_.size()]);
    } else if (!ports_[slot].optional && isActive(node_, slot)) {
      const PortType type = ports_[slot].type;
      const bool isMissing = (type == PortType::field && !valueAs<FieldValue>(value)) ||
                             (type == PortType::curve && !valueAs<Ramp>(value));
      if (isMissing) fail(ports_[slot].name);
    }
  }
}

void NodeRun::makeOutputs() {
  if (guides_) {
    inputs_.values[0] = std::make_shared<const StrandSet>(strandsFromGuides(*guides_));
  }
  if (passes_) {
    passThrough();
  } else {
    // A bypassed node that has nothing to pass on runs as if no other input were wired.
    if (!inputs_.bypassed) checkFields();
    for (std::string& sentence : op_.parameters.misfits()) context_.warn(std::move(sentence));
    if (!tryIncremental()) {
      makeWhole();
      findChanges();
    }
  }
  finishChanges();
  if (guides_) {
    for (std::size_t i = 0; i < result_.outputs.size(); ++i) {
      if (outputs_[i].type == PortType::curves) {
        result_.outputs[i] = asGuides(result_.outputs[i]);
      }
    }
  }
  result_.report.run = runText();
  result_.report.warnings = warnings_.texts();
  for (const std::string& warning : result_.report.warnings) {
    if (!result_.report.notes.empty()) result_.report.notes += "; ";
    result_.report.notes += warning;
  }
  if (const std::string note = op_.note(context_); !note.empty()) {
    if (!result_.report.notes.empty()) result_.report.notes += "; ";
    result_.report.notes += note;
  }
}

void NodeRun::passThrough() {
  for (const PortSpec& output : outputs_) {
    result_.outputs.push_back(output.type == ports_[0].type ? firstInput_ : GraphValue());
  }
  result_.changes.resize(outputs_.size());
  result_.changesFollowInput = true;
}

bool NodeRun::tryIncremental() {
  // A result that was its input and was let go leaves nothing to build on.
  if (!canIncrement_ || affect_ == Affect::mixed || inputs_.released.whole) return false;
  NodeCache& cache = node_.cache;
  std::vector<GraphValue> previousInputs = cache.inputs;
  previousInputs.resize(ports_.size());
  const bool verify = verifyIncremental();
  IncrementalState state{cache.outputs, inputs_.changes, previousInputs, !verify};

  // From here on the operator's state and the old outputs may be half done.
  cache.cached = false;
  bool made = false;
  if (outputs_.size() == 1) {
    GraphValue value;
    StrandChangesPtr changes;
    made = op_.evaluateChanged(context_, inputs_.values, state, value, changes);
    if (made) {
      result_.outputs.push_back(std::move(value));
      result_.changes.push_back(std::move(changes));
    }
  } else {
    made =
        op_.evaluateChangedAll(context_, inputs_.values, state, result_.outputs, result_.changes);
  }
  if (!made) {
    result_.outputs.clear();
    result_.changes.clear();
    return false;
  }
  if (result_.outputs.size() != outputs_.size()) {
    throw GraphError(
        madeCount(node_.name, result_.outputs.size(), " incrementally", outputs_.size()));
  }
  result_.changes.resize(outputs_.size());
  if (verify) {
    checkIncremental(op_, node_.name, context_, inputs_.values, cache.outputs, result_.outputs,
                     result_.changes);
  }
  result_.incremental = true;
  return true;
}

void NodeRun::makeWhole() {
  result_.outputs = op_.evaluateAll(context_, inputs_.values);
  if (result_.outputs.size() != outputs_.size()) {
    throw GraphError(madeCount(node_.name, result_.outputs.size(), "", outputs_.size()));
  }
  // Only now, since an operator may have words of its own for it.
  if (const PortSpec* missing = missingInput()) {
    throw GraphError("node '" + node_.name + "': " + op_.type() + " input '" + missing->name +
                     "' takes strands but gets nothing from the node before it");
  }
  if (affect_ == Affect::mixed) {
    result_.outputs[0] = mixAffect(op_, context_, inputs_.values, result_.outputs[0]);
  }
  result_.changesFollowInput = !inputs_.values.empty() && !isEmpty(inputs_.values[0]) &&
                               !result_.outputs.empty() && result_.outputs[0] == inputs_.values[0];
}

void NodeRun::findChanges() {
  result_.changes.resize(outputs_.size());
  const bool known =
      std::all_of(inputs_.changes.begin(), inputs_.changes.end(),
                  [](const StrandChangesPtr& changes) { return changes && !changes->all; });
  if (!canIncrement_ || !diffOutputs() || !known) return;
  for (std::size_t i = 0; i < outputs_.size(); ++i) {
    const bool isFirst = i == 0 && !inputs_.values.empty();
    result_.changes[i] =
        isFirst ? changedOutput(node_.cache.outputs[i], result_.outputs[i], inputs_.released,
                                inputs_.values[0], inputs_.changes[0])
                : changedOutput(node_.cache.outputs[i], result_.outputs[i]);
  }
}

void NodeRun::finishChanges() {
  const bool follows = result_.changesFollowInput && inputs_.hadResult &&
                       node_.cache.changesFollowInput && !inputs_.changes.empty();
  if (follows && !result_.changes.empty()) result_.changes[0] = inputs_.changes[0];
}

GraphValue NodeRun::asGuides(const GraphValue& output) const {
  const auto strands = valueAs<StrandSet>(output);
  if (!strands) return output;
  if (output == inputs_.values[0]) return guides_;
  return std::make_shared<const GuideSet>(guidesFromStrands(*strands, *guides_));
}

std::string NodeRun::runText() const {
  if (passes_) return "bypass";
  const StrandChanges* changes = result_.changes.empty() ? nullptr : result_.changes[0].get();
  const std::string count = !changes       ? ""
                            : changes->all ? "all"
                                           : std::to_string(changes->strands.size());
  if (result_.incremental) return "incremental " + (changes ? count : "all");
  return changes ? "full " + count : "full";
}

}  // namespace kestrane
