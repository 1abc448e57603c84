// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/session/detached_evaluation.h"
#include "core/session/groom_session.h"
#include "core/session/session_evaluation.h"
#include "core/session/session_scene.h"

namespace kestrane {

/// Everything that a session holds. All of it is guarded by the mutex, which the session's public
/// functions take; none of these functions does.
struct GroomSession::State {
  /// Which copy of the graph an evaluation works on: each keeps results of its own, so that going
  /// from one to another and back costs nothing.
  enum class Working { view, render, rest };

  std::optional<SessionMessage> setGraph(std::string_view text);
  std::optional<SessionMessage> load(const GroomDocument& document);
  GroomDocument document();

  /// Counts a change of the scene where there was one.
  void note(bool changed) { sceneRevision += changed ? 1 : 0; }

  /// Makes the copy where it lacks. There must be a graph.
  GraphDocument& working(Working which);
  Working workingFor(bool viewport);
  /// The copy that the last evaluation used, or the view's; null without a graph.
  GraphDocument* lastWorking();

  EvaluationInputs inputsFor(const EvaluateRequest& request);
  /// The guides that the graph's Guides node reads, or the session's own.
  std::shared_ptr<const GuideHierarchy> activeGuides(GraphDocument& graph,
                                                     const EvaluationInputs& made);
  void evaluate(const EvaluateRequest& request);
  DetachedEvaluationPtr evaluateDetached(const EvaluateRequest& request);
  void commit(DetachedEvaluation& evaluation);
  void takeStoredResults(GraphDocument& graph, const EvaluationInputs& made);
  void adopt(EvaluationResult result, const EvaluateRequest& request, Working used);
  void dropResult();
  void addError(const std::string& text) { messages.push_back({text, true}); }

  std::mutex mutex;

  // The groom.
  std::string graphText;
  std::optional<SessionMessage> graphError;
  std::optional<GraphDocument> master;
  std::optional<GraphDocument> copies[3];  // by Working
  std::uint64_t graphRevision = 0;
  SessionInputs inputs;
  std::shared_ptr<const FlowData> flow;
  std::string units = "cm";
  std::string upAxis = "Y";
  std::string source;
  GroomCacheReference scalpCache;
  GroomCacheReference guideCache;
  GroomCardBake cardBake;
  Json simCaches;
  std::map<std::string, GroomPrototype> prototypes;
  bool preview = false;
  bool incremental = true;
  std::uint64_t sceneRevision = 1;

  // The results.
  EvaluatedStrands output;
  std::shared_ptr<const GuideHierarchy> guides;
  std::vector<SessionMessage> messages;
  std::uint64_t evaluations = 0;
  std::uint64_t restEvaluations = 0;
  std::optional<bool> viewport;  // of the last evaluation
  Working lastUsed = Working::view;
  /// Those that may still be committed, in the order in which they were asked for.
  std::vector<std::weak_ptr<DetachedEvaluation>> detached;
};

}  // namespace kestrane
