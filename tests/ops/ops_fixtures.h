// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/base/errors.h"
#include "core/data/guide_set.h"
#include "core/graph/operator_registry.h"
#include "tests/support/groom_checks.h"
#include "tests/support/test_meshes.h"

namespace kestrane::test {

/// Everything that an operator under test is evaluated with: a sphere to grow on, guides standing
/// on it, and strands rooted on it.
struct OpsFixture {
  ScalpMeshPtr scalp = std::make_shared<const ScalpMesh>(makeSphere(16, 24, 10.0f));
  GuideSetPtr guides = makeGuides(12);
  SceneTable scene;
  EvalResources resources;
  WarningSink warnings;
  EvalContext context;

  OpsFixture() {
    auto mesh = std::make_shared<SceneMesh>();
    mesh->mesh = scalp;
    scene.set("scalp", {std::shared_ptr<const SceneMesh>(mesh), 0.0, 1});
    scene.set("mesh:collider", {std::shared_ptr<const SceneMesh>(mesh), 0.0, 1});
    scene.set("guides", {guides, 0.0, 1});
    context.scene = &scene;
    context.resources = &resources;
    context.warnings = &warnings;
    context.resampleSegments = 8;
    context.surface = scalp;
  }

  /// Guides spread over the upper half of the sphere by the golden angle, each bending over.
  GuideSetPtr makeGuides(int count) const {
    auto set = std::make_shared<GuideSet>();
    for (int i = 0; i < count; ++i) {
      const float z = 1.0f - (static_cast<float>(i) + 0.5f) / static_cast<float>(count);
      const float r = std::sqrt(1.0f - z * z), angle = 2.3999632f * static_cast<float>(i);
      const SurfaceHit hit =
          scalp->closestPoint(Vec3f{r * std::cos(angle), z, r * std::sin(angle)} * 10.0f);
      const Vec3f normal = scalp->normalAt(hit.root);
      Guide guide;
      guide.id = static_cast<std::uint64_t>(i) + 1;
      guide.group = 1;
      guide.root = hit.root;
      guide.attributes["curliness"] = static_cast<float>(i) / static_cast<float>(count);
      for (int k = 0; k < 8; ++k) {
        const float t = static_cast<float>(k) / 7.0f;
        guide.points.push_back(hit.position + normal * (5.0f * t) + Vec3f{0, -2.0f * t * t, t});
      }
      set->guides.push_back(std::move(guide));
    }
    return set;
  }

  /// Strands rooted all over the sphere, growing outward with a bend, some far longer than others.
  StrandSet rootedStrands(std::size_t count, std::size_t pointsPerStrand = 9) const {
    StrandSet set;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t id = mix64(i + 77);
      StrandRoot root{static_cast<std::int32_t>(id % scalp->triangleCount()),
                      0.4f * unitFloat(mix64(id)), 0.4f * unitFloat(mix64(id + 1))};
      const Vec3f from = scalp->positionAt(root), normal = scalp->normalAt(root);
      const float size = 1.0f + 3.0f * unitFloat(mix64(id + 2));
      std::vector<Vec3f> points;
      std::vector<float> widths;
      for (std::size_t k = 0; k < pointsPerStrand; ++k) {
        const float t = pointsPerStrand > 1
                            ? static_cast<float>(k) / static_cast<float>(pointsPerStrand - 1)
                            : 0.0f;
        points.push_back(from + normal * (size * t) + Vec3f{0.5f * t * t, 0, -0.3f * t * t * size});
        widths.push_back(0.02f - 0.01f * t);
      }
      set.addStrand(id, root, points, widths);
    }
    set.addStrandChannel("clumpId", 0.0f);
    set.addPointChannel("wetness", 0.5f);
    for (std::size_t i = 0; i < count; ++i) {
      (*set.mutableStrandChannel("clumpId"))[i] = static_cast<float>(i % 5);
    }
    for (std::size_t p = 0; p < set.pointCount(); ++p) {
      (*set.mutablePointChannel("wetness"))[p] = static_cast<float>(p % 7) / 7.0f;
    }
    return set;
  }

  /// A value for each input port: the strands where curves go in, guides and the scalp beside them.
  std::vector<GraphValue> inputsFor(const Operator& op, StrandSetPtr strands) const {
    std::vector<GraphValue> inputs;
    for (const PortSpec& port : op.inputs()) {
      switch (port.type) {
        case PortType::strands:
        case PortType::curves:
          inputs.emplace_back(strands);
          break;
        case PortType::guides:
          inputs.emplace_back(guides);
          break;
        case PortType::mesh:
          inputs.emplace_back(scalp);
          break;
        default:
          inputs.emplace_back();
      }
    }
    return inputs;
  }

  std::unique_ptr<Operator> make(const std::string& type) const {
    return OperatorRegistry::instance().create(type);
  }

  StrandSetPtr run(Operator& op, const StrandSet& strands) {
    const auto inputs = inputsFor(op, std::make_shared<const StrandSet>(strands));
    return valueAs<StrandSet>(op.evaluate(context, inputs));
  }

  /// Expects evaluate to throw GraphError with exactly these words.
  void expectError(Operator& op, const StrandSet& strands, const std::string& words) {
    try {
      run(op, strands);
      ADD_FAILURE() << "no error; wanted: " << words;
    } catch (const GraphError& error) {
      EXPECT_EQ(error.what(), words);
    }
  }
};

}  // namespace kestrane::test
