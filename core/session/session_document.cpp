// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"
#include "core/session/session_state.h"

namespace kestrane {

std::optional<SessionMessage> GroomSession::State::load(const GroomDocument& document) {
  const bool matchRender = inputs.matchRender;  // how to evaluate, which is no part of a groom
  inputs = SessionInputs();
  inputs.matchRender = matchRender;
  inputs.setScalp(document.scalp);
  inputs.setGuides(document.hierarchy);
  inputs.setFlatGuides(document.guides);
  inputs.setParts(document.parts);
  inputs.setCorrectives(document.correctives);
  inputs.setMaps(document.maps);
  inputs.setColliders(document.colliders);
  inputs.setSearchPaths(document.searchPaths);
  inputs.controls = document.controls;
  inputs.framesPerSecond = document.framesPerSecond;
  inputs.followScalp = document.followScalp;
  note(true);
  flow = document.flow;
  units = document.units;
  upAxis = document.upAxis;
  source = document.source;
  scalpCache = document.scalpCache;
  guideCache = document.guideCache;
  cardBake = document.cardBake;
  simCaches = document.simCaches;
  prototypes = document.prototypes;
  guides = inputs.boundGuides();
  dropResult();
  messages.clear();
  return setGraph(document.graph.is_null()
                      ? std::string()
                      : document.graph.dump(-1, ' ', false, Json::error_handler_t::replace));
}

GroomDocument GroomSession::State::document() {
  GroomDocument document;
  document.framesPerSecond = inputs.framesPerSecond;
  document.units = units;
  document.upAxis = upAxis;
  document.source = source;
  try {
    document.graph = parseJson(graphText);
  } catch (const std::exception&) {
    // A text that is no JSON was never a graph, and a file could not hold it.
    document.graph = nullptr;
  }
  document.hierarchy = inputs.boundGuides();
  document.parts = inputs.parts();
  document.correctives = inputs.correctives();
  document.flow = flow;
  document.controls = inputs.controls;
  document.maps = inputs.maps();
  document.scalp = inputs.scalp();
  document.guides = inputs.flatGuides();
  document.scalpCache = scalpCache;
  document.guideCache = guideCache;
  document.searchPaths = inputs.searchPaths();
  document.followScalp = inputs.followScalp;
  document.cardBake = cardBake;
  document.simCaches = simCaches;
  document.prototypes = prototypes;
  document.colliders = inputs.colliders();
  return document;
}

}  // namespace kestrane
