// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_stats.h"

#include "core/base/json.h"

namespace kestrane {

namespace {

Json jsonOf(const CardNodeStats& node) {
  return Json{{"triangles", node.triangles},
              {"textures", node.textures},
              {"feathers", node.feathers},
              {"stale", node.stale}};
}

Json jsonOf(const SimulationStats& simulation) {
  return Json{{"startFrame", simulation.startFrame},
              {"frames", simulation.frames},
              {"live", simulation.live},
              {"baked", simulation.baked},
              {"bakedFirst", simulation.bakedFirst},
              {"bakedLast", simulation.bakedLast},
              {"bakedFile", simulation.bakedFile},
              {"stepMs", simulation.stepMs},
              {"bytes", simulation.bytes}};
}

template <class Value>
const Value& jsonOf(const Value& value) {
  return value;
}

/// An object by node name, in the order of the list. No name stands there twice.
template <class Value>
Json byNode(const std::vector<std::pair<std::string, Value>>& entries) {
  Json::object_t object;
  object.reserve(entries.size());
  // By way of the key, each entry would be looked for among all before it.
  for (const auto& [name, value] : entries) object.emplace_back(name, jsonOf(value));
  return object;
}

}  // namespace

Json GroomStats::toJson() const {
  Json json = Json::object();
  json["view"] = view;
  json["strands"] = strands;
  json["points"] = points;
  json["guides"] = guides;
  json["cards"] = cards;
  json["cardStrands"] = cardStrands;
  json["cardTriangles"] = cardTriangles;
  json["cardTextures"] = cardTextures;
  json["cardFeathers"] = cardFeathers;
  json["cardsBaked"] = cardsBaked;
  json["cardsStale"] = cardsStale;
  json["cardNodes"] = byNode(cardNodes);
  json["hairColor"] = hairColor;
  json["renderData"] = renderData;
  json["colorNodes"] = colorNodes;
  json["colorBlends"] = colorBlends;
  json["times"] = byNode(times);
  json["runs"] = byNode(runs);
  json["channels"] = channels;
  json["notes"] = byNode(notes);
  json["scalpHistory"] = Json{{"frames", scalpHistoryFrames}, {"reads", scalpHistoryReads}};
  json["instances"] = byNode(instances);
  json["restEvaluations"] = restEvaluations;
  json["distanceFieldsMade"] = distanceFieldsMade;
  json["strokeDocument"] = strokeDocument;
  json["simulations"] = byNode(simulations);
  return json;
}

}  // namespace kestrane
