// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/session_state.h"

#include <new>
#include <stdexcept>

#include "core/base/text.h"
#include "core/graph/graph_evaluation.h"

namespace kestrane {

std::optional<SessionMessage> GroomSession::State::setGraph(std::string_view text) {
  if (text == graphText && (master || graphError || trimmed(text).empty())) return graphError;
  graphText = text;
  graphError.reset();
  ++graphRevision;
  std::optional<GraphDocument> parsed;
  if (!trimmed(text).empty()) {
    try {
      parsed = graphFromJson(text);
    } catch (const std::exception& error) {
      graphError = SessionMessage{error.what(), true};
    }
  }
  for (std::optional<GraphDocument>& copy : copies) {
    if (!copy) continue;
    std::optional<GraphDocument> made;
    if (parsed) {
      made = copyGraph(*parsed);
      adoptNodes(made->graph, copy->graph);
    }
    copy = std::move(made);
  }
  master = std::move(parsed);
  return graphError;
}

GraphDocument& GroomSession::State::working(Working which) {
  std::optional<GraphDocument>& copy = copies[static_cast<int>(which)];
  if (!copy) {
    copy = copyGraph(*master);
    copy->graph.retainResults = true;
  }
  return *copy;
}

GroomSession::State::Working GroomSession::State::workingFor(bool forViewport) {
  if (inputs.follows()) return Working::rest;
  return forViewport ? Working::view : Working::render;
}

GraphDocument* GroomSession::State::lastWorking() {
  return master ? &working(viewport ? lastUsed : Working::view) : nullptr;
}

EvaluationInputs GroomSession::State::inputsFor(const EvaluateRequest& request) {
  EvaluationInputs made;
  made.request = request;
  made.preview = preview;
  made.incremental = incremental;
  made.previous = output;
  const GroomMesh& scalp = inputs.scalp();
  const std::vector<int> levels =
      scalpLevels(master->graph, inputs.matchRender ? scalp.renderLevels : 0);
  if (inputs.follows()) {
    made.scene = inputs.scene(request.time, false, nullptr);
    made.restScene = inputs.scene(request.time, true, &levels);
  } else {
    made.scene = inputs.scene(request.time, false, &levels);
  }
  return made;
}

std::shared_ptr<const GuideHierarchy> GroomSession::State::activeGuides(
    GraphDocument& graph, const EvaluationInputs& made) {
  std::shared_ptr<const GuideHierarchy> found;
  const EvalContext context = contextOf(made, *made.scene);
  forEachActiveUpstream(graph.graph, graph.output, context, [&](const std::string&, Operator& op) {
    if (op.type() != "Guides") return true;
    const SceneInput* input = made.scene->table.find(op.parameters.text("hierarchy"));
    if (input != nullptr) found = valueAs<GuideHierarchy>(input->value);
    return found == nullptr;
  });
  return found ? found : made.scene->guides;
}

void GroomSession::State::evaluate(const EvaluateRequest& request) {
  messages.clear();
  if (!master) {
    dropResult();
    addError("the groom has no graph");
    return;
  }
  try {
    const Working used = workingFor(request.viewport);
    GraphDocument& graph = working(used);
    EvaluationInputs made = inputsFor(request);
    guides = activeGuides(graph, made);
    if (request.recycle) {
      // So that nobody holds the arrays any more; what else is known of them is still of use.
      made.previous.strands = nullptr;
      dropResult();
    }
    adopt(runEvaluation(graph, made), request, used);
  } catch (const std::bad_alloc&) {
    addError("the groom needs more memory than there is");
  } catch (const std::exception& error) {
    addError(error.what());
  }
}

void GroomSession::State::adopt(EvaluationResult result, const EvaluateRequest& request,
                                Working used) {
  output = std::move(static_cast<EvaluatedStrands&>(result));
  viewport = request.viewport;
  lastUsed = used;
  ++evaluations;
  if (result.restRan) ++restEvaluations;
  for (std::string& warning : result.warnings) messages.push_back({std::move(warning), false});
}

void GroomSession::State::dropResult() {
  output = {};
}

DetachedEvaluationPtr GroomSession::State::evaluateDetached(const EvaluateRequest& request) {
  const bool otherScene = request.sceneRevision != 0 && request.sceneRevision != sceneRevision;
  if (!master || request.liveData || otherScene) return nullptr;
  EvaluationInputs made = inputsFor(request);
  // The session's own result may be another one by the time that this one comes.
  made.previous = {};
  made.request.lean = false;
  GraphDocument& graph = working(workingFor(request.viewport));
  auto evaluation = std::make_shared<DetachedEvaluation>(detachedCopy(graph), std::move(made), this,
                                                         graphRevision);
  std::erase_if(detached, [](const auto& earlier) { return earlier.expired(); });
  detached.push_back(evaluation);
  return evaluation;
}

void GroomSession::State::commit(DetachedEvaluation& evaluation) {
  if (evaluation.session != this) {
    throw std::logic_error("a detached evaluation is committed to another session");
  }
  if (evaluation.committed) return;
  // Those that their holders gave up are waited for no more.
  std::erase_if(detached, [](const auto& earlier) { return earlier.expired(); });
  if (detached.empty() || detached.front().lock().get() != &evaluation) {
    throw std::logic_error("a detached evaluation ran before the one it follows");
  }
  evaluation.wait();
  evaluation.committed = true;
  detached.erase(detached.begin());
  // The host may hold on to the evaluation, which has no more need of its copy.
  GraphDocument copy = std::move(evaluation.document);
  if (evaluation.failure) std::rethrow_exception(evaluation.failure);

  const EvaluationInputs& made = evaluation.inputs;
  const Working used = made.restScene          ? Working::rest
                       : made.request.viewport ? Working::view
                                               : Working::render;
  messages.clear();
  if (master) {
    GraphDocument& graph = working(used);
    installDetached(graph, copy);
    guides = activeGuides(graph, made);
    if (evaluation.graphRevision == graphRevision) {
      takeStoredResults(graph, made);
    } else {
      evaluation.result.revision = 0;
    }
  }
  adopt(std::move(evaluation.result), made.request, used);
}

/// Nothing runs: every node finds its result by its key.
void GroomSession::State::takeStoredResults(GraphDocument& graph, const EvaluationInputs& made) {
  EvalContext context = contextOf(made, made.restScene ? *made.restScene : *made.scene);
  context.preview = false;
  try {
    (void)kestrane::evaluate(graph.graph, graph.output, context);
  } catch (const std::exception&) {
    // A file that a node reads has changed since. What was evaluated is good all the same, and the
    // next evaluation says what is wrong.
  }
}

}  // namespace kestrane
