// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/strand_operator.h"

#include <utility>

#include "core/base/errors.h"

namespace kestrane {

namespace {

/// Thrown inside a run over changed strands that turns out to need all of them; never leaves this
/// file.
struct NeedsWholeSet {};

GuideSetPtr guidesAmong(std::span<const GraphValue> inputs) {
  for (const GraphValue& value : inputs) {
    if (auto guides = valueAs<GuideSet>(value)) return guides;
  }
  return nullptr;
}

}  // namespace

StrandEdit::StrandEdit(const Operator& op, const EvalContext& context,
                       std::span<const GraphValue> inputs, StrandSetPtr input)
    : op_(op), context_(context), inputs_(inputs), input_(std::move(input)), output_(*input_) {}

bool StrandEdit::beginChanged(GraphValue& previous, const StrandChanges& changes, bool mayRecycle) {
  const StrandSetPtr set = valueAs<StrandSet>(previous);
  if (!set || set->strandCount() != input_->strandCount()) return false;
  changed_ = &changes.strands;
  previousValue_ = &previous;
  mayRecycle_ = mayRecycle;
  return true;
}

StrandSet& StrandEdit::previous() {
  if (!previous_) {
    auto set = std::get<StrandSetPtr>(*previousValue_);
    // Two holders: this pointer and the value. With no third the old result is ours to take apart.
    if (mayRecycle_ && set.use_count() == 2) {
      // Orders what a third one read before it let go ahead of our writes.
      StrandSetPtr(set).reset();
      *previousValue_ = std::monostate();
      previous_ = std::const_pointer_cast<StrandSet>(std::move(set));
    } else {
      previous_ = std::make_shared<StrandSet>(*set);
    }
  }
  return *previous_;
}

ScalarField StrandEdit::field(std::string_view param) {
  ScalarField bound =
      bindParam(op_, param, context_, {input_.get(), context_.surface, guidesAmong(inputs_)});
  if (bound.readsWholeSet()) readsWholeSet();
  return bound;
}

VectorField StrandEdit::vectorField(std::string_view param) {
  VectorField bound =
      resolveVector(op_, param, context_, {input_.get(), context_.surface, guidesAmong(inputs_)});
  if (bound.source() != nullptr && bound.source()->wholeSet) readsWholeSet();
  return bound;
}

void StrandEdit::readsWholeSet() {
  if (changed_ != nullptr) throw NeedsWholeSet();
}

bool StrandEdit::previousHasInputLayout() const {
  const StrandSet& before = *std::get<StrandSetPtr>(*previousValue_);
  return before.sharesOffsetsWith(*input_) || before.offsets() == input_->offsets();
}

std::size_t StrandEdit::previousPointCount(std::size_t strand) const {
  const auto& offsets = std::get<StrandSetPtr>(*previousValue_)->offsets();
  return offsets[strand + 1] - offsets[strand];
}

void StrandEdit::needWholeSet() {
  throw NeedsWholeSet();
}

void StrandEdit::layOut(std::span<const std::uint32_t> counts) {
  StrandSet laid;
  if (changed_ != nullptr) {
    // The layout is the old result's. Of its arrays the points come over at once, as they tell how
    // long others are; a second holder would make every later write copy them.
    static const StrandSet nothing;
    StrandSet& old = previous();
    laid = old;
    for (const std::string& name : laid.strandChannelNames()) laid.removeStrandChannel(name);
    for (const std::string& name : laid.pointChannelNames()) laid.removePointChannel(name);
    laid.sharePointsFrom(nothing);
    laid.shareWidthsFrom(nothing);
    laid.takePointsFrom(old);
    if (laid.pointCount() != laid.offsets().back()) throw NeedsWholeSet();
    relaid_ = true;
  } else {
    laid.resizeFromCounts(counts, StrandSet::keepPoints | StrandSet::keepWidths);
  }
  laid.shareIdsFrom(*input_);
  laid.shareRootsFrom(*input_);
  for (const std::string& name : input_->strandChannelNames()) {
    laid.shareStrandChannelFrom(name, *input_);
  }
  laid.cardMesh = input_->cardMesh;
  laid.featherLayers = input_->featherLayers;
  laid.scaleMeshes = input_->scaleMeshes;
  output_ = std::move(laid);
}

StrandEdit::PointArrays::PointArrays(StrandEdit& edit) : input_(*edit.input_) {
  for (const std::string& name : input_.pointChannelNames()) {
    const float* in = input_.pointChannel(name)->data();
    channels_.push_back({in, edit.pointChannel(name, input_.pointChannelDefault(name)).data()});
  }
  points_ = edit.points().data();
  widths_ = edit.widths().data();
  from_ = input_.offsets().data();
  to_ = edit.offsets().data();
}

std::span<Vec3f> StrandEdit::points() {
  if (changed_ == nullptr) {
    findsExtent_ = context_.wantsExtent;
    return output_.overwritePoints();
  }
  if (!relaid_) output_.takePointsFrom(previous());
  if (output_.pointCount() != output_.offsets().back()) throw NeedsWholeSet();
  return output_.mutablePoints();
}

std::span<float> StrandEdit::widths() {
  if (changed_ == nullptr) return output_.overwriteWidths();
  output_.takeWidthsFrom(previous());
  if (output_.widths().size() != output_.offsets().back()) throw NeedsWholeSet();
  return output_.mutableWidths();
}

std::span<float> StrandEdit::strandChannel(std::string_view name, float defaultValue) {
  if (changed_ == nullptr) return output_.overwriteStrandChannel(name, defaultValue);
  if (!output_.takeStrandChannelFrom(name, previous())) throw NeedsWholeSet();
  return *output_.mutableStrandChannel(name);
}

std::span<float> StrandEdit::pointChannel(std::string_view name, float defaultValue) {
  if (changed_ == nullptr) return output_.overwritePointChannel(name, defaultValue);
  if (!output_.takePointChannelFrom(name, previous())) throw NeedsWholeSet();
  return *output_.mutablePointChannel(name);
}

void StrandEdit::removeStrandChannel(std::string_view name) {
  output_.removeStrandChannel(name);
}

void StrandEdit::removePointChannel(std::string_view name) {
  output_.removePointChannel(name);
}

const Array<std::uint64_t>& StrandEdit::offsets() const {
  return output_.offsets();
}

GraphValue StrandEdit::finish() {
  if (passed_) return input_;
  // Not a const object: the next run may take it apart.
  return StrandSetPtr(std::make_shared<StrandSet>(std::move(output_)));
}

GraphValue StrandOperator::evaluate(const EvalContext& context,
                                    std::span<const GraphValue> inputs) {
  StrandSetPtr input = valueAs<StrandSet>(inputs[0]);
  if (!input) return {};
  StrandEdit run(*this, context, inputs, std::move(input));
  edit(run);
  return run.finish();
}

bool StrandOperator::evaluateChanged(const EvalContext& context, std::span<const GraphValue> inputs,
                                     IncrementalState& state, GraphValue& result,
                                     StrandChangesPtr& changes) {
  StrandSetPtr input = valueAs<StrandSet>(inputs[0]);
  if (!input) return false;
  const StrandChangesPtr which = strandsToRun(context, inputs, state);
  if (!which || which->all) return false;
  StrandEdit run(*this, context, inputs, std::move(input));
  if (!run.beginChanged(state.previous[0], *which, state.mayRecycle)) return false;
  try {
    edit(run);
  } catch (const NeedsWholeSet&) {
    return false;
  }
  result = run.finish();
  changes = which;
  return true;
}

StrandChangesPtr StrandOperator::strandsToRun(const EvalContext&, std::span<const GraphValue>,
                                              const IncrementalState& state) {
  for (std::size_t i = 1; i < state.inputChanges.size(); ++i) {
    if (!state.inputChanges[i] || !state.inputChanges[i]->empty()) return nullptr;
  }
  return state.inputChanges[0];
}

}  // namespace kestrane
