// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/session_scene.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include "core/base/hash.h"
#include "core/guides/parts.h"
#include "core/values/search_paths.h"

namespace kestrane {

namespace {

/// Of things that are told apart by when they were set.
std::uint64_t nextRevision() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

template <class Value>
bool replace(Value& kept, Value value) {
  if (kept == value) return false;
  kept = std::move(value);
  return true;
}

/// Shared data are equal where they are one object or hold the same.
template <class Data>
bool replaceShared(std::shared_ptr<const Data>& kept, std::shared_ptr<const Data> value) {
  if (kept == value || (kept && value && *kept == *value)) return false;
  kept = std::move(value);
  return true;
}

/// Rest points that are not told apart are the points.
const std::vector<Vec3f>& restPointsOf(const ScalpMesh& mesh) {
  return mesh.restPoints().empty() ? mesh.points() : mesh.restPoints();
}

void clampLevels(GroomMesh& mesh) {
  mesh.renderLevels = std::clamp(mesh.renderLevels, 0, 3);
}

bool sameMesh(const GroomMesh& a, const GroomMesh& b) {
  if (a.renderLevels != b.renderLevels || a.subdivisionFrom != b.subdivisionFrom) return false;
  if (a.mesh == b.mesh) return true;
  return a.mesh && b.mesh && a.mesh->contentHash() == b.mesh->contentHash();
}

GuideSetPtr guideSetFrom(const std::vector<GroomGuide>& flat) {
  auto set = std::make_shared<GuideSet>();
  set->guides.reserve(flat.size());
  for (const GroomGuide& guide : flat) {
    if (guide.points.size() < 2) continue;
    set->guides.push_back({.id = guide.id, .root = guide.root, .points = guide.points});
  }
  return set;
}

}  // namespace

bool SessionInputs::setScalp(GroomMesh scalp) {
  clampLevels(scalp);
  if (sameMesh(scalp_, scalp)) return false;
  scalp_ = std::move(scalp);
  restScalp_ = nullptr;
  return true;
}

bool SessionInputs::updateScalpPoints(std::vector<Vec3f> points, std::vector<Vec3f> restPoints) {
  if (!scalp_.mesh) throw std::invalid_argument("updateScalpPoints: the session has no scalp");
  const ScalpMesh& scalp = *scalp_.mesh;
  for (const auto* given : {&points, &restPoints}) {
    if (given->size() == scalp.points().size() || (given == &restPoints && given->empty()))
      continue;
    throw std::invalid_argument("updateScalpPoints: " + std::to_string(given->size()) +
                                " points for a scalp of " + std::to_string(scalp.points().size()));
  }
  if (restPoints.empty()) restPoints = restPointsOf(scalp);
  const bool sameRest = restPoints == restPointsOf(scalp);
  if (points == scalp.points() && sameRest) return false;
  if (!sameRest) restScalp_ = nullptr;
  scalp_.mesh = scalp.withPoints(std::move(points), std::move(restPoints));
  return true;
}

bool SessionInputs::setGuides(std::shared_ptr<const GuideHierarchy> guides) {
  if (guides_ == guides) return false;
  if (guides_ && guides && guides_->contentHash() == guides->contentHash()) return false;
  guides_ = guides;
  poser_.setGuides(std::move(guides));
  return true;
}

bool SessionInputs::setFlatGuides(std::vector<GroomGuide> guides) {
  if (!replace(flatGuides_, std::move(guides))) return false;
  flatSet_ = flatGuides_.empty() ? nullptr : guideSetFrom(flatGuides_);
  guideInputs_ = {};
  return true;
}

bool SessionInputs::setParts(std::shared_ptr<const PartData> parts) {
  if (!replaceShared(parts_, std::move(parts))) return false;
  partsRevision_ = nextRevision();
  return true;
}

bool SessionInputs::setCorrectives(std::shared_ptr<const CorrectiveData> layers) {
  return replaceShared(correctives_, std::move(layers));
}

bool SessionInputs::setMaps(std::map<std::string, GroomMap> maps) {
  if (!replace(maps_, std::move(maps))) return false;
  painted_ = nullptr;
  return true;
}

bool SessionInputs::setColliders(std::map<std::string, GroomMesh> colliders) {
  for (auto& [name, mesh] : colliders) clampLevels(mesh);
  const bool same = std::equal(colliders_.begin(), colliders_.end(), colliders.begin(),
                               colliders.end(), [](const auto& a, const auto& b) {
                                 return a.first == b.first && sameMesh(a.second, b.second);
                               });
  if (!same) colliders_ = std::move(colliders);
  return !same;
}

bool SessionInputs::setSearchPaths(std::vector<std::string> paths) {
  if (!replace(searchPaths_, std::move(paths))) return false;
  resolvePath_ = searchPaths_.empty() ? nullptr : searchPathResolver(searchPaths_);
  return true;
}

bool SessionInputs::setObject(const std::string& name, GraphValue value) {
  const auto found = objects_.find(name);
  if (isEmpty(value)) return objects_.erase(name) > 0;
  if (found != objects_.end() && found->second.value == value) return false;
  objects_[name] = {std::move(value), 0.0, nextRevision()};
  return true;
}

std::shared_ptr<const GuideHierarchy> SessionInputs::boundGuides() {
  return poser_.bound(scalp_.mesh);
}

bool SessionInputs::follows() const {
  return followScalp && scalp_.mesh;
}

int SessionInputs::effectiveLevels(const GroomMesh& mesh) const {
  return matchRender ? mesh.renderLevels : 0;
}

ScalpMeshPtr SessionInputs::restScalp() {
  const std::vector<Vec3f>& rest = restPointsOf(*scalp_.mesh);
  if (!restScalp_) restScalp_ = scalp_.mesh->withPoints(rest, rest);
  return restScalp_;
}

void SessionInputs::addMesh(SceneTable& table, const std::string& name,
                            const GroomMesh& mesh) const {
  if (!mesh.mesh) return;
  const int levels = effectiveLevels(mesh);
  std::uint64_t revision = hashCombine(mesh.mesh->contentHash(), static_cast<unsigned>(levels));
  revision = hashString(revision, mesh.subdivisionFrom);
  auto value = std::make_shared<const SceneMesh>(
      SceneMesh{.mesh = mesh.mesh, .renderLevels = levels, .levelsFrom = mesh.subdivisionFrom});
  table.set(name, {std::move(value), 0.0, revision});
}

void SessionInputs::addGuides(SceneTable& table,
                              const std::shared_ptr<const GuideHierarchy>& posed) {
  const bool known = guideInputs_.posed == posed && guideInputs_.flat.revision != 0;
  if (!known) {
    guideInputs_ = {.posed = posed};
    if (posed) guideInputs_.hierarchy = {posed, 0.0, posed->contentHash()};
    // Without flat guides, those of the hierarchy stand in: they are what carries painted layers.
    GuideSetPtr flat = flatSet_;
    if (!flat && posed) flat = std::make_shared<const GuideSet>(posed->guidesAtLevel(-1));
    guideInputs_.flat = {flat ? GraphValue(flat) : GraphValue(), 0.0,
                         flat ? contentHash(*flat) : 1};
  }
  if (posed) table.set("hierarchy", guideInputs_.hierarchy);
  if (!isEmpty(guideInputs_.flat.value)) table.set("guides", guideInputs_.flat);
}

std::shared_ptr<const PaintedMaps> SessionInputs::paintedMaps(const ScalpMeshPtr& scalp,
                                                              const std::vector<int>& levels) {
  if (painted_ && paintedScalp_ == scalp && paintedLevels_ == levels) return painted_;
  std::vector<ScalpRefinement> used;
  if (scalp && !maps_.empty()) {
    std::erase_if(refinements_, [&](const auto& kept) {
      return !kept.second.mesh || !kept.second.plan->fits(*scalp);
    });
    for (const int level : levels) {
      ScalpRefinement& refinement = refinements_[level];
      if (!refinement.mesh) {
        refinement.plan = makeSubdivisionPlan(*scalp, level);
        refinement.mesh = refinement.plan->refineMesh(*scalp);
      }
      used.push_back(refinement);
    }
  }
  painted_ = std::make_shared<const PaintedMaps>(maps_, scalp, used);
  paintedScalp_ = scalp;
  paintedLevels_ = levels;
  return painted_;
}

SessionScenePtr SessionInputs::scene(double time, bool atRest, const std::vector<int>* levels) {
  auto scene = std::make_shared<SessionScene>();
  GroomMesh scalp = scalp_;
  if (atRest && scalp.mesh) scalp.mesh = restScalp();
  scene->scalp = scalp.mesh;
  poser_.bound(scalp_.mesh);  // to the scalp as it is posed, whichever pose is asked for first
  scene->guides = poser_.pose(scalp.mesh, correctives_, time);

  addMesh(scene->table, "scalp", scalp);
  addGuides(scene->table, scene->guides);
  for (const auto& [name, collider] : colliders_) {
    addMesh(scene->table, "mesh:" + name, collider);
  }
  for (const auto& [name, value] : controls) {
    scene->table.set("control:" + name, {{}, value, hashNumber(0xC047801, value)});
  }
  for (const auto& [name, object] : objects_) scene->table.set(name, object);

  EvalResources& resources = scene->resources;
  resources.resolvePath = resolvePath_;
  resources.parts = parts_;
  resources.partsRevision = partsRevision_;
  if (framesPerSecond > 0.0) resources.framesPerSecond = framesPerSecond;
  if (!maps_.empty() && levels != nullptr) {
    const auto painted = paintedMaps(scalp.mesh, *levels);
    resources.paintedMap = [painted, resolve = resolvePath_](std::string_view name) {
      return painted->find(name, resolve);
    };
  }
  return scene;
}

}  // namespace kestrane
