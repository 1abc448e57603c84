// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "core/base/json.h"
#include "core/guides/correctives.h"
#include "core/guides/flow.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/parts.h"
#include "core/session/groom_document.h"
#include "tests/support/test_meshes.h"

namespace kestrane::test {

/// Bytewise, so that -0.0 and 0.0 differ.
template <class Values>
bool sameBytes(const Values& a, const Values& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

inline GuideHierarchy makeGuides() {
  GuideHierarchy guides;
  const std::uint32_t group = guides.addGroup("guides", 0);
  for (int i = 0; i < 5; ++i) {
    const float x = 0.2f + 0.15f * static_cast<float>(i);
    guides.addGuide(group, {{x, 0, 0.3f}, {x, 1.1f, 0.4f}, {x + 0.3f, 2, 0.7f}});
  }
  guides.generateChildren(group, "children", {.count = 3, .seed = 4});
  guides.setAttribute(guides.guides().front().id, "wet", 0.25f);
  return guides;
}

/// A groom in which every field says something.
inline GroomDocument makeDocument() {
  GroomDocument document;
  document.framesPerSecond = 23.976;
  document.units = "m";
  document.source = "a \"quoted\" scene, ünïcode";
  document.graph = Json::parse(R"({"version":1,"nodes":[{"name":"output","type":"Output"}],
    "connections":[],"output":"output","backdrops":[1,2.5,null,{"x":[0.5]}]})");
  document.hierarchy = std::make_shared<const GuideHierarchy>(makeGuides());
  document.parts =
      std::make_shared<const PartData>(PartData{{{"part", {{0, 0.25f, 0.5f}, {1, 0.125f, 0.5f}}}}});
  CorrectiveLayer layer;
  layer.name = "shot1";
  layer.time = 12.5;
  layer.offsets[3] = {{0.1f, 0, 0}, {0, -0.25f, 1}};
  document.correctives = std::make_shared<const CorrectiveData>(CorrectiveData{{layer}});
  document.flow = std::make_shared<const FlowData>(
      FlowData{{{{0, 0.5f, 0.25f}, {1, 0, 0}, 2, 1}}, {{{1, 0.1f, 0.2f}, 70, 3}}});
  document.controls = {{"wind", 0.1}, {"wet", -3}};
  document.maps["density"] = {.kind = "vertices", .values = {0, 0.5f, 1, 0.25f}};
  document.maps["color"] = {.kind = "vertices", .channels = 4, .values = {1, 0, 0, 1, 0, 1, 0, 1}};
  document.maps["mask"] = {.kind = "texture", .texture = "maps/mask.png"};

  ScalpMesh scalp = makeGrid(3, 2.0f);
  std::vector<Vec2f> uvs;
  std::vector<Vec4f> colors;
  for (std::size_t i = 0; i < scalp.triangleCount() * 3; ++i) {
    const float f = static_cast<float>(i);
    uvs.push_back({0.1f * f, -0.0f});
    colors.push_back({0, 0.3f * f, 1, 1});
  }
  scalp.setUvs(uvs);
  scalp.setColorSet("tint", colors);
  std::vector<Vec3f> rest = scalp.points();
  for (Vec3f& point : rest) point.y -= 0.7f;
  scalp.setRestPoints(rest);
  document.scalp = {std::make_shared<const ScalpMesh>(scalp), 2, "smooth mesh preview"};

  document.guides.push_back({77, {0, 0.25f, 0.25f}, {{0, 0, 0}, {0.1f, -0.0f, 1e-45f}}, {}});
  document.guides.push_back({UINT64_MAX, {}, {{1e20f, 3.4028235e38f, 3}}, Vec3f{0, 0.6f, 0.8f}});
  document.scalpCache = {"scalp.abc", "/head/shape", "17-4"};
  document.guideCache = {"guides.abc", "/curves", "x"};
  document.searchPaths = {"../maps", "C:\\grooms"};
  document.followScalp = true;
  document.cardBake = {"cards/head", 1200};
  document.simCaches = Json{{"simulate", {{"file", "sim.abc"}, {"first", 1}}}};
  document.prototypes["leaf"] = {
      {{0, 0, 0}, {1, 0, 0}, {0, 2, 0.1f}}, {{0, 1, 2}}, {{0, 0, 1}}, {{0.5f, 1}}};
  // A file keeps no UVs of colliders.
  ScalpMesh body(scalp.points(), scalp.triangles());
  body.setPolygons(scalp.polygons());
  body.setRestPoints(rest);
  document.colliders["body"] = {std::make_shared<const ScalpMesh>(std::move(body)), 1, ""};
  return document;
}

inline void expectSameMesh(const GroomMesh& a, const GroomMesh& b) {
  ASSERT_EQ(a.mesh == nullptr, b.mesh == nullptr);
  EXPECT_EQ(a.renderLevels, b.renderLevels);
  EXPECT_EQ(a.subdivisionFrom, b.subdivisionFrom);
  if (a.mesh == nullptr) return;
  EXPECT_TRUE(sameBytes(a.mesh->points(), b.mesh->points()));
  EXPECT_TRUE(sameBytes(a.mesh->restPoints(), b.mesh->restPoints()));
  EXPECT_TRUE(sameBytes(a.mesh->uvs(), b.mesh->uvs()));
  EXPECT_EQ(a.mesh->contentHash(), b.mesh->contentHash());
}

inline void expectSameDocument(const GroomDocument& a, const GroomDocument& b) {
  EXPECT_EQ(a.framesPerSecond, b.framesPerSecond);
  EXPECT_EQ(a.units, b.units);
  EXPECT_EQ(a.upAxis, b.upAxis);
  EXPECT_EQ(a.source, b.source);
  EXPECT_EQ(a.graph, b.graph);
  ASSERT_EQ(a.hierarchy == nullptr, b.hierarchy == nullptr);
  if (a.hierarchy) {
    EXPECT_EQ(a.hierarchy->contentHash(), b.hierarchy->contentHash());
  }
  ASSERT_EQ(a.parts == nullptr, b.parts == nullptr);
  if (a.parts) {
    EXPECT_EQ(*a.parts, *b.parts);
  }
  ASSERT_EQ(a.correctives == nullptr, b.correctives == nullptr);
  if (a.correctives) {
    EXPECT_EQ(*a.correctives, *b.correctives);
  }
  ASSERT_EQ(a.flow == nullptr, b.flow == nullptr);
  if (a.flow) {
    EXPECT_EQ(*a.flow, *b.flow);
  }
  EXPECT_EQ(a.controls, b.controls);
  EXPECT_EQ(a.maps, b.maps);
  expectSameMesh(a.scalp, b.scalp);
  ASSERT_EQ(a.guides.size(), b.guides.size());
  for (std::size_t i = 0; i < a.guides.size(); ++i) {
    EXPECT_EQ(a.guides[i], b.guides[i]) << i;
    EXPECT_TRUE(sameBytes(a.guides[i].points, b.guides[i].points)) << i;
  }
  EXPECT_EQ(a.scalpCache, b.scalpCache);
  EXPECT_EQ(a.guideCache, b.guideCache);
  EXPECT_EQ(a.searchPaths, b.searchPaths);
  EXPECT_EQ(a.followScalp, b.followScalp);
  EXPECT_EQ(a.cardBake, b.cardBake);
  EXPECT_EQ(a.simCaches, b.simCaches);
  EXPECT_EQ(a.prototypes, b.prototypes);
  ASSERT_EQ(a.colliders.size(), b.colliders.size());
  for (const auto& [name, mesh] : a.colliders) {
    ASSERT_TRUE(b.colliders.contains(name)) << name;
    expectSameMesh(mesh, b.colliders.at(name));
  }
}

}  // namespace kestrane::test
