// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_session.h"

#include "core/base/json.h"
#include "core/graph/graph_evaluation.h"
#include "core/session/session_state.h"

namespace kestrane {

namespace {

template <class Value>
bool replace(Value& kept, Value value) {
  if (kept == value) return false;
  kept = std::move(value);
  return true;
}

}  // namespace

GroomSession::GroomSession() : state_(std::make_unique<State>()) {}
GroomSession::~GroomSession() = default;

std::optional<SessionMessage> GroomSession::load(const GroomDocument& document) {
  const std::scoped_lock lock(state_->mutex);
  return state_->load(document);
}

GroomDocument GroomSession::document() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->document();
}

std::optional<SessionMessage> GroomSession::setGraph(std::string_view text) {
  const std::scoped_lock lock(state_->mutex);
  return state_->setGraph(text);
}

std::string GroomSession::graphJson() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->master ? graphToJson(*state_->master).dump() : std::string();
}

GraphDocument GroomSession::graphDocument() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->master ? copyGraph(*state_->master) : GraphDocument();
}

std::string GroomSession::outputNode() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->master ? state_->master->graph.node(state_->master->output).name : std::string();
}

void GroomSession::setScalp(ScalpMeshPtr mesh, int renderLevels, std::string levelsFrom) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setScalp({std::move(mesh), renderLevels, std::move(levelsFrom)}));
}

void GroomSession::updateScalpPoints(std::vector<Vec3f> points, std::vector<Vec3f> restPoints) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.updateScalpPoints(std::move(points), std::move(restPoints)));
}

void GroomSession::setGuides(std::shared_ptr<const GuideHierarchy> hierarchy) {
  const std::scoped_lock lock(state_->mutex);
  const bool changed = state_->inputs.setGuides(std::move(hierarchy));
  state_->note(changed);
  if (changed) state_->guides = state_->inputs.boundGuides();
}

void GroomSession::setFlatGuides(std::vector<GroomGuide> guides) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setFlatGuides(std::move(guides)));
}

void GroomSession::setParts(std::shared_ptr<const PartData> parts) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setParts(std::move(parts)));
}

void GroomSession::setFlow(std::shared_ptr<const FlowData> flow) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->flow, std::move(flow)));
}

void GroomSession::setCorrectives(std::shared_ptr<const CorrectiveData> correctives) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setCorrectives(std::move(correctives)));
}

void GroomSession::setControls(std::map<std::string, double> controls) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->inputs.controls, std::move(controls)));
}

void GroomSession::setMaps(std::map<std::string, GroomMap> maps) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setMaps(std::move(maps)));
}

void GroomSession::setSearchPaths(std::vector<std::string> paths) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setSearchPaths(std::move(paths)));
}

void GroomSession::setColliders(std::map<std::string, GroomMesh> colliders) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setColliders(std::move(colliders)));
}

void GroomSession::setPrototypes(std::map<std::string, GroomPrototype> prototypes) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->prototypes, std::move(prototypes)));
}

void GroomSession::setSimCaches(Json bakes) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->simCaches, std::move(bakes)));
}

void GroomSession::setCardBake(GroomCardBake bake) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->cardBake, std::move(bake)));
}

void GroomSession::setSceneObject(const std::string& name, GraphValue value) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(state_->inputs.setObject(name, std::move(value)));
}

void GroomSession::setFramesPerSecond(double rate) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->inputs.framesPerSecond, rate));
}

void GroomSession::setUnits(std::string units) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->units, std::move(units)));
}

void GroomSession::setUpAxis(std::string axis) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->upAxis, std::move(axis)));
}

void GroomSession::setFollowScalp(bool follow) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->inputs.followScalp, follow));
}

void GroomSession::setMatchRender(bool match) {
  const std::scoped_lock lock(state_->mutex);
  state_->note(replace(state_->inputs.matchRender, match));
}

void GroomSession::setPreview(bool preview) {
  const std::scoped_lock lock(state_->mutex);
  state_->preview = preview;
}

void GroomSession::setIncremental(bool incremental) {
  const std::scoped_lock lock(state_->mutex);
  state_->incremental = incremental;
}

ScalpMeshPtr GroomSession::scalp() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->inputs.scalp().mesh;
}

int GroomSession::scalpRenderLevels() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->inputs.scalp().renderLevels;
}

std::uint64_t GroomSession::sceneRevision() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->sceneRevision;
}

std::vector<SessionMessage> GroomSession::evaluate(const EvaluateRequest& request) {
  const std::scoped_lock lock(state_->mutex);
  state_->evaluate(request);
  return state_->messages;
}

DetachedEvaluationPtr GroomSession::evaluateDetached(const EvaluateRequest& request) {
  const std::scoped_lock lock(state_->mutex);
  return state_->evaluateDetached(request);
}

void GroomSession::commit(const DetachedEvaluationPtr& evaluation) {
  const std::scoped_lock lock(state_->mutex);
  if (evaluation) state_->commit(*evaluation);
}

StrandSetPtr GroomSession::strands() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->output.strands;
}

ScalpMeshPtr GroomSession::surface() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->output.surface;
}

std::shared_ptr<const GuideHierarchy> GroomSession::guides() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->guides;
}

Extent GroomSession::extent() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->output.extent;
}

std::vector<SessionMessage> GroomSession::messages() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->messages;
}

std::uint64_t GroomSession::evaluations() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->evaluations;
}

}  // namespace kestrane
