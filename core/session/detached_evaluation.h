// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <thread>

#include "core/session/session_evaluation.h"

namespace kestrane {

/// An evaluation of a graph's copy on a worker of its own.
class DetachedEvaluation {
 public:
  /// Starts at once. `owner` tells sessions apart, `revision` the graphs of one session.
  DetachedEvaluation(GraphDocument graph, EvaluationInputs detachedInputs, const void* owner,
                     std::uint64_t revision);
  ~DetachedEvaluation();

  bool finished() const { return finished_; }
  void wait();

  const EvaluationInputs inputs;
  const void* const session;
  const std::uint64_t graphRevision;
  bool committed = false;

  // To be looked at when the worker has finished.
  GraphDocument document;
  EvaluationResult result;
  std::exception_ptr failure;

 private:
  void run();

  std::atomic<bool> finished_ = false;
  std::thread worker_;
};

/// A copy of a graph, with the results that its nodes hold.
GraphDocument detachedCopy(const GraphDocument& document);

/// Gives what a detached copy has made to the graph that it was copied from: its results, through
/// the graph's result cache, the state of its operators and its reports.
void installDetached(GraphDocument& document, GraphDocument& detached);

}  // namespace kestrane
