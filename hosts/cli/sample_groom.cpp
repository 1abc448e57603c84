// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/sample_groom.h"

#include "core/base/json.h"
#include "core/graph/graph_document.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/parts.h"
#include "hosts/cli/sample_hair.h"
#include "hosts/cli/sample_head.h"

namespace kestrane {

namespace {

/// The default graph, its parameters set for fine brown hair in centimetres.
Json sampleGraph() {
  Json graph = parseJson(defaultGraphText());
  const auto set = [&graph](const char* node, const Json& params) {
    for (Json& entry : graph["nodes"]) {
      if (entry["name"] == node) entry["params"] = params;
    }
  };
  set("scatter", {{"density", {{"expression", "140 * map(\"hair\")"}}}});
  set("interpolate", {{"neighbors", 3}, {"reach", 1.4}});
  set("length", {{"trimMin", 0.0}, {"trimMax", 0.12}});
  set("noise", {{"amplitude", 0.22}, {"frequency", 2.2}});
  set("color", {{"melanin", 0.41}, {"redness", 0.22}, {"melaninRandom", 0.08}});
  set("width", {{"width", 0.01}, {"randomness", 0.2}});
  return graph;
}

}  // namespace

GroomDocument sampleGroom() {
  const SampleHead head;
  GroomDocument document;
  document.source = "the built-in sample";
  document.scalp.mesh = sampleHeadMesh(head);
  const ScalpMesh& scalp = *document.scalp.mesh;

  GroomMap& hair = document.maps["hair"];
  for (const Vec3f& point : scalp.points()) hair.values.push_back(sampleHairShare(point));

  auto guides = std::make_shared<GuideHierarchy>();
  const std::uint32_t group = guides->addGroup("guides", 0);
  for (auto& points : sampleGuides(head)) guides->addGuide(group, std::move(points));
  guides->updateFromScalp(&scalp);
  document.hierarchy = guides;

  auto parts = std::make_shared<PartData>();
  const std::vector<Vec3f> stroke = samplePart(head);
  addPart(*parts, "part", stroke, scalp, static_cast<int>(stroke.size()));
  document.parts = parts;

  document.graph = sampleGraph();
  return document;
}

}  // namespace kestrane
