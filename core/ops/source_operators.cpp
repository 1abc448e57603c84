// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "core/base/errors.h"
#include "core/graph/operator_registry.h"
#include "core/guides/guide_hierarchy.h"
#include "core/ops/mesh_refiner.h"

namespace kestrane {

namespace {

const OperatorDeclaration& scalpDeclaration() {
  static const OperatorDeclaration declaration{
      "Scalp",
      "source",
      "The mesh the hair grows on.",
      {},
      {"scalp", PortType::mesh},
      {
          param("input", "scalp", "Name of the external mesh input").animatable().advanced(),
          param("subdivision", "matchRender",
                "Catmull-Clark levels the scalp is refined by, so hair sits on the surface the "
                "render draws: matchRender takes the mesh's render subdivision (Maya: its Arnold "
                "subdivision, else its smooth mesh preview; a groom file: the level saved with "
                "it), off the mesh as it is")
              .choices({"matchRender", "off", "1", "2", "3"}),
      }};
  return declaration;
}

class ScalpOp final : public DeclaredOperator {
 public:
  ScalpOp() : DeclaredOperator(scalpDeclaration()) {}

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue>) override {
    const SceneInput* input =
        context.scene ? context.scene->find(parameters.text("input")) : nullptr;
    const auto scene = input ? valueAs<SceneMesh>(input->value) : nullptr;
    if (!scene || !scene->mesh) return {};
    return refiner_.refine(*scene, parameters.text("subdivision"));
  }
  std::vector<std::string> sceneInputs() const override { return {parameters.text("input")}; }
  bool refreshesOnHit() const override { return true; }
  std::string note(const EvalContext&) const override { return refiner_.note(); }
  void adoptState(Operator& previous) override {
    refiner_ = static_cast<ScalpOp&>(previous).refiner_;
  }

 private:
  MeshRefiner refiner_;
};

const OperatorDeclaration& colliderMeshDeclaration() {
  static const OperatorDeclaration declaration{
      "ColliderMesh",
      "source",
      "Another mesh (a body, a collar) for Collide to keep strands out of.",
      {},
      {"mesh", PortType::mesh},
      {
          param("name", "collider",
                "The collider mesh's name, as registered with the groom (Maya: Attribute Editor > "
                "Colliders, or kestrane.add_collider)")
              .animatable(),
          param("subdivision", "matchRender",
                "Catmull-Clark levels the collider is refined by, so hair sits on the surface the "
                "render draws: matchRender takes the mesh's render subdivision (Maya: its Arnold "
                "subdivision, else its smooth mesh preview; a groom file: the level saved with "
                "it), off the mesh as it is")
              .choices({"matchRender", "off", "1", "2", "3"}),
          param("friction", -1.0,
                "How much simulated hair resting on this mesh is kept from sliding, 0-1, in a "
                "Simulate node it feeds (-1: the Simulate node's friction)")
              .range(-1, 1),
      }};
  return declaration;
}

class ColliderMeshOp final : public DeclaredOperator {
 public:
  ColliderMeshOp() : DeclaredOperator(colliderMeshDeclaration()) {}

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue>) override {
    const SceneInput* input = context.scene ? context.scene->find(sceneInputs()[0]) : nullptr;
    const auto scene = input ? valueAs<SceneMesh>(input->value) : nullptr;
    if (!scene || !scene->mesh) return {};
    return refiner_.refine(*scene, parameters.text("subdivision"));
  }
  std::vector<std::string> sceneInputs() const override {
    return {"mesh:" + parameters.text("name")};
  }
  std::string note(const EvalContext&) const override { return refiner_.note(); }
  void adoptState(Operator& previous) override {
    refiner_ = static_cast<ColliderMeshOp&>(previous).refiner_;
  }

 private:
  MeshRefiner refiner_;
};

const OperatorDeclaration& guidesDeclaration() {
  static const OperatorDeclaration declaration{
      "Guides",
      "source",
      "The groom's guides, by group: what Interpolate, Clump and friends follow.",
      {},
      {"guides", PortType::guides},
      {
          param("input", "guides", "Name of the external flat guide input").animatable().advanced(),
          param("hierarchy", "hierarchy", "Name of the external guide hierarchy input")
              .animatable()
              .advanced(),
          param("level", -1, "Hierarchy level to use (-1: deepest), without groups")
              .slider(-1, 5)
              .showWhen("group", words({""})),
          param("group", "",
                "Hierarchy groups to use instead of a level, space or comma separated, with their "
                "guides together (empty: use level)")
              .animatable(),
          param("exclude", "",
                "Groups left out, with their child groups (space or comma separated), e.g. braid "
                "paths that are not hair")
              .animatable(),
      }};
  return declaration;
}

/// The pieces of a list of names, split at blanks and commas.
std::vector<std::string> splitNames(const std::string& text) {
  std::vector<std::string> names;
  std::string name;
  for (const char c : text + ' ') {
    if (c != ' ' && c != ',') {
      name += c;
    } else if (!name.empty()) {
      names.push_back(std::move(name));
      name.clear();
    }
  }
  return names;
}

class GuidesOp final : public DeclaredOperator {
 public:
  GuidesOp() : DeclaredOperator(guidesDeclaration()) {}

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue>) override {
    const auto hierarchy = sceneValue<GuideHierarchy>(context, "hierarchy");
    if (!hierarchy || hierarchy->groups().empty()) {
      const auto flat = sceneValue<GuideSet>(context, "input");
      return flat ? GraphValue(flat) : GraphValue();
    }
    const auto groupsNamed = [&](const char* param, const char* ending) {
      std::vector<std::uint32_t> groups;
      for (const std::string& name : splitNames(parameters.text(param))) {
        const GuideGroup* group = hierarchy->findGroupNamed(name);
        if (group == nullptr) {
          throw GraphError("Guides: no guide group named '" + name + "'" + ending);
        }
        groups.push_back(group->id);
      }
      return groups;
    };
    const auto wanted = groupsNamed("group", "");
    const auto level =
        static_cast<int>(std::clamp<std::int64_t>(parameters.integer("level", -1), -1, INT_MAX));
    GuideSet guides =
        wanted.empty() ? hierarchy->guidesAtLevel(level) : hierarchy->guidesOfGroups(wanted);
    const auto unwanted = groupsNamed("exclude", " to exclude");
    if (!unwanted.empty()) guides = hierarchy->withoutGroups(std::move(guides), unwanted);
    return std::make_shared<const GuideSet>(std::move(guides));
  }

  std::vector<std::string> sceneInputs() const override {
    return {parameters.text("input"), parameters.text("hierarchy")};
  }

 private:
  template <class T>
  std::shared_ptr<const T> sceneValue(const EvalContext& context, const char* param) const {
    const SceneInput* input = context.scene ? context.scene->find(parameters.text(param)) : nullptr;
    return input ? valueAs<T>(input->value) : nullptr;
  }
};

const OperatorDeclaration& outputDeclaration() {
  static const OperatorDeclaration declaration{"Output",
                                               "utility",
                                               "What the groom shows and renders.",
                                               {{"strands", PortType::strands}},
                                               {"out", PortType::strands},
                                               {}};
  return declaration;
}

/// The marker of the graph's result.
class OutputOp final : public DeclaredOperator {
 public:
  OutputOp() : DeclaredOperator(outputDeclaration()) {}

  GraphValue evaluate(const EvalContext&, std::span<const GraphValue> inputs) override {
    return inputs[0];
  }
};

}  // namespace

void registerSourceOperators(OperatorRegistry& registry) {
  registry.add<ScalpOp>();
  registry.add<ColliderMeshOp>();
  registry.add<GuidesOp>();
  registry.add<OutputOp>();
}

}  // namespace kestrane
