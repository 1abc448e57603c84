// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/base/parallel.h"
#include "core/data/extent_finder.h"
#include "core/graph/operator.h"
#include "core/graph/scalar_field.h"

namespace kestrane {

/// The strands that one chunk of a loop runs: a range of indices, or of places in a list of them.
class StrandRange {
 public:
  StrandRange(const std::uint32_t* list, std::size_t begin, std::size_t end)
      : list_(list), begin_(begin), end_(end) {}

  struct Iterator {
    const std::uint32_t* list;
    std::size_t place;
    std::size_t operator*() const { return list ? list[place] : place; }
    Iterator& operator++() { return ++place, *this; }
    bool operator!=(const Iterator& other) const { return place != other.place; }
  };
  Iterator begin() const { return {list_, begin_}; }
  Iterator end() const { return {list_, end_}; }

 private:
  const std::uint32_t* list_;
  std::size_t begin_, end_;
};

/// One run of a per-strand operator: over all strands, or over the changed strands alone, which the
/// operator cannot tell apart. It binds parameters, hands out the arrays to write, each detached
/// once and no other touched, and runs the loop.
///
/// Order of use: bind fields and read parameters; then ask for arrays; then run the kernel. A
/// kernel reads from input() and must write every element of the strands that it is given in each
/// array that was asked for, which are then as they stay; it looks at no other strand.
class StrandEdit {
 public:
  const EvalContext& context() const { return context_; }
  const StrandSet& input() const { return *input_; }
  /// The whole inputs, for ports beside the first.
  std::span<const GraphValue> inputs() const { return inputs_; }
  const ScalpMesh* surface() const { return context_.surface.get(); }

  // Parameters.
  ScalarField field(std::string_view param);
  VectorField vectorField(std::string_view param);
  /// For an operator whose result at one strand depends on others: gives up the incremental path.
  void readsWholeSet();

  /// A new number of points for every strand, from count(strand), which may run in parallel. IDs,
  /// roots and strand channels stay; points, widths and every point channel of the input are then
  /// to be asked for and written.
  template <class Count>
  void setPointCounts(std::size_t grain, Count&& count) {
    std::vector<std::uint32_t> counts(changed_ ? 0 : input_->strandCount());
    if (changed_ != nullptr) {
      // The changed strands must fit into the places that they had.
      for (const std::uint32_t strand : *changed_) {
        if (count(strand) != previousPointCount(strand)) needWholeSet();
      }
    } else {
      parallelRange(0, counts.size(), grain, [&](std::size_t first, std::size_t last) {
        for (std::size_t strand = first; strand < last; ++strand) {
          counts[strand] = static_cast<std::uint32_t>(count(strand));
        }
      });
    }
    layOut(counts);
  }

  /// The same for an operator that gives some strands more points than they have and none fewer.
  /// False where no strand gets more: the layout stays the input's, and so does every array that is
  /// not asked for. Gives up the incremental path where points are added.
  template <class Count>
  bool addPoints(std::size_t grain, Count&& count) {
    const auto& given = input_->offsets();
    if (changed_ != nullptr) {
      if (!previousHasInputLayout()) needWholeSet();
      run(grain, [&](const StrandRange& strands) {
        for (const std::size_t strand : strands) {
          if (count(strand) != given[strand + 1] - given[strand]) needWholeSet();
        }
      });
      return false;
    }
    std::vector<std::uint32_t> counts(input_->strandCount());
    std::atomic<bool> adds = false;
    parallelRange(0, counts.size(), grain, [&](std::size_t first, std::size_t last) {
      bool more = false;
      for (std::size_t strand = first; strand < last; ++strand) {
        counts[strand] = static_cast<std::uint32_t>(count(strand));
        more = more || counts[strand] != given[strand + 1] - given[strand];
      }
      if (more) adds = true;
    });
    if (adds) layOut(counts);
    return adds;
  }

  // Arrays to write; each covers the whole set.
  std::span<Vec3f> points();
  std::span<float> widths();
  std::span<float> strandChannel(std::string_view name, float defaultValue = 0.0f);
  std::span<float> pointChannel(std::string_view name, float defaultValue = 0.0f);
  void removeStrandChannel(std::string_view name);
  void removePointChannel(std::string_view name);
  /// The layout of what is written: the input's, or that of setPointCounts.
  const Array<std::uint64_t>& offsets() const;

  /// Runs kernel(StrandRange) over the strands, in parallel, in chunks of at least `grain`.
  template <class Kernel>
  void run(std::size_t grain, Kernel&& kernel) {
    if (findsExtent_) {
      ExtentFinder finder(output_);
      const std::size_t blocks = grain / ExtentFinder::blockStrands;
      parallelRange(0, finder.blockCount(), blocks, [&](std::size_t first, std::size_t last) {
        for (std::size_t block = first; block < last; ++block) {
          kernel(StrandRange(nullptr, finder.begin(block), finder.end(block)));
          finder.find(block);
        }
      });
      finder.keep();
      return;
    }
    const std::uint32_t* list = changed_ ? changed_->data() : nullptr;
    parallelRange(
        0, changed_ ? changed_->size() : input_->strandCount(), grain,
        [&](std::size_t first, std::size_t last) { kernel(StrandRange(list, first, last)); });
  }
  /// After a new layout: all that a set holds per point, to be written at new places along each
  /// strand, where places.apply(values, out) turns values at a strand's points into new ones.
  class PointArrays {
   public:
    std::span<Vec3f> points(std::size_t strand) const {
      return {points_ + to_[strand], points_ + to_[strand + 1]};
    }
    std::span<float> widths(std::size_t strand) const {
      return {widths_ + to_[strand], widths_ + to_[strand + 1]};
    }
    template <class Places>
    void apply(std::size_t strand, const Places& places) const {
      const std::size_t begin = to_[strand], count = to_[strand + 1] - begin;
      const std::size_t old = from_[strand], oldCount = from_[strand + 1] - old;
      places.apply(std::span(input_.points().data() + old, oldCount), points(strand));
      places.apply(std::span(input_.widths().data() + old, oldCount), widths(strand));
      for (const Channel& channel : channels_) {
        places.apply(std::span(channel.in + old, oldCount), std::span(channel.out + begin, count));
      }
    }

   private:
    friend class StrandEdit;
    explicit PointArrays(StrandEdit& edit);
    struct Channel {
      const float* in;
      float* out;
    };
    const StrandSet& input_;
    std::vector<Channel> channels_;
    Vec3f* points_;
    float* widths_;
    const std::uint64_t* from_;
    const std::uint64_t* to_;
  };
  PointArrays pointArrays() { return PointArrays(*this); }
  /// Writes them all: make(strand, apply) finds the strand's places and hands them to apply(places)
  /// once.
  template <class Make>
  void resampleAll(std::size_t grain, Make&& make) {
    const PointArrays arrays = pointArrays();
    run(grain, [&](const StrandRange& strands) {
      for (const std::size_t strand : strands) {
        if (arrays.points(strand).empty()) continue;
        make(strand, [&](const auto& places) { arrays.apply(strand, places); });
      }
    });
  }

  /// The strands go on as they came.
  void passThrough() { passed_ = true; }

 private:
  friend class StrandOperator;
  StrandEdit(const Operator& op, const EvalContext& context, std::span<const GraphValue> inputs,
             StrandSetPtr input);

  /// Turns the run into one over the changed strands, on top of the previous result. False where
  /// that result does not fit.
  bool beginChanged(GraphValue& previous, const StrandChanges& changes, bool mayRecycle);
  /// The previous result, to take arrays from: itself where nobody else holds it, else a copy.
  StrandSet& previous();
  bool previousHasInputLayout() const;
  std::size_t previousPointCount(std::size_t strand) const;
  [[noreturn]] static void needWholeSet();
  void layOut(std::span<const std::uint32_t> counts);
  GraphValue finish();

  const Operator& op_;
  const EvalContext& context_;
  std::span<const GraphValue> inputs_;
  StrandSetPtr input_;
  StrandSet output_;
  bool passed_ = false;
  bool findsExtent_ = false;  // of the points that it makes
  // Of a run over changed strands alone:
  const std::vector<std::uint32_t>* changed_ = nullptr;
  GraphValue* previousValue_ = nullptr;
  std::shared_ptr<StrandSet> previous_;
  bool mayRecycle_ = false;
  bool relaid_ = false;
};

/// An operator that makes each strand of its first input anew, looking at no other strand: it gives
/// edit(), and gets the whole and the incremental evaluation from it.
class StrandOperator : public DeclaredOperator {
 public:
  using DeclaredOperator::DeclaredOperator;

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) override;
  bool evaluateChanged(const EvalContext& context, std::span<const GraphValue> inputs,
                       IncrementalState& state, GraphValue& result,
                       StrandChangesPtr& changes) override;
  bool keepsOnlyWritten() const override { return true; }

 protected:
  virtual void edit(StrandEdit& edit) = 0;
  /// The strands to make anew, given what changed on the inputs; null declines. By default the
  /// first input's changed strands, where no other input changed.
  virtual StrandChangesPtr strandsToRun(const EvalContext& context,
                                        std::span<const GraphValue> inputs,
                                        const IncrementalState& state);
};

}  // namespace kestrane
