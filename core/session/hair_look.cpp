// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/hair_look.h"

#include "core/base/json.h"
#include "core/base/text.h"
#include "core/graph/graph_evaluation.h"

namespace kestrane {

namespace {

Json valuesOf(const ParamSet& parameters) {
  Json json = Json::object();
  for (const ParamSpec& spec : parameters.declarations().specs) {
    json[spec.name] = paramValueToJson(parameters.value(spec.name));
  }
  return json;
}

/// Whether a number is other than 0 somewhere; a map may be.
bool isUsed(const ParamSet& parameters, const char* name) {
  return parameters.map(name) != nullptr || parameters.number(name) > 0.0;
}

/// Whether a HairColor colours by more than pigment and dye.
bool colorsByRgb(const ParamSet& parameters) {
  const std::string source = parameters.text("colorSource");
  return source == "rgb" || source == "mix" || !parameters.text("map").empty() ||
         parameters.number("hueRandom") > 0.0 || parameters.number("saturationRandom") > 0.0 ||
         isUsed(parameters, "tipStrength");
}

/// Whether Bands tint what they colour, which pigment cannot.
bool tints(const ParamSet& parameters) {
  constexpr Vec3f white{1.0f, 1.0f, 1.0f};
  return parameters.vec3("dye") != white || parameters.vec3("undercoatDye") != white;
}

bool isColorNode(const Operator& op) {
  return op.category() == "color" && op.type() != "RenderData";
}

Json vectorJson(Vec3f v) {
  return Json::array({shortestDouble(v.x), shortestDouble(v.y), shortestDouble(v.z)});
}

}  // namespace

HairLook hairLookOf(GraphDocument& document, bool viewport) {
  HairLook look;
  Graph& graph = document.graph;
  EvalContext context;
  context.viewport = viewport;
  forEachActiveUpstream(
      graph, document.output, context, [&](const std::string& name, Operator& op) {
        const ParamSet& parameters = op.parameters;
        if (isColorNode(op)) look.colorNodes.push_back(name);
        if (op.type() == "HairColor") {
          if (look.hairColor.empty()) {
            look.hairColor = name;
            look.hairColorParams = valuesOf(parameters);
          }
          look.colorsByRgb |= colorsByRgb(parameters);
          look.bySource |= parameters.text("colorSource") != "auto";
        } else if (op.type() == "Bands") {
          look.colorsByRgb |= tints(parameters);
        } else if (op.type() == "RenderData" && look.renderData.empty()) {
          look.renderData = name;
          look.renderDataParams = valuesOf(parameters);
          const auto specular = static_cast<float>(parameters.number("specular"));
          look.specularTint = {specular, specular, specular};
          look.roughness = static_cast<float>(parameters.number("roughness"));
          look.azimuthalRoughness = look.roughness;
        } else if (op.type() == "FeatherColor" && isUsed(parameters, "iridescence") &&
                   !look.iridescent) {
          look.iridescent = true;
          look.iridescenceColor = parameters.vec3("iridescenceColor");
          look.iridescenceShift = static_cast<float>(parameters.number("iridescenceShift"));
        } else if (op.type() == "Blend") {
          const std::uint32_t id = graph.findNode(name);
          if (id == 0) return true;  // inside a compound
          ColorBlend blend{name, {}};
          for (const std::uint32_t source : graph.node(id).sources) {
            if (source == 0 || !isColorNode(*graph.node(source).op)) continue;
            blend.colors.push_back(graph.node(source).name);
          }
          if (blend.colors.size() > 1) look.colorBlends.push_back(std::move(blend));
        }
        return true;
      });
  return look;
}

Json HairLook::toJson() const {
  Json blends = Json::array();
  for (const ColorBlend& blend : colorBlends) {
    blends.push_back(Json{{"node", blend.node}, {"colors", blend.colors}});
  }
  return Json{{"hairColorParams", hairColorParams},
              {"renderDataParams", renderDataParams},
              {"colorNodes", colorNodes},
              {"colorBlends", std::move(blends)},
              {"colorsByRgb", colorsByRgb},
              {"bySource", bySource},
              {"iridescent", iridescent},
              {"iridescenceColor", vectorJson(iridescenceColor)},
              {"iridescenceShift", shortestDouble(iridescenceShift)},
              {"specularTint", vectorJson(specularTint)},
              {"roughness", shortestDouble(roughness)},
              {"azimuthalRoughness", shortestDouble(azimuthalRoughness)},
              {"shift", shortestDouble(shift)},
              {"lobes", Json::array({shortestDouble(lobes[0]), shortestDouble(lobes[1]),
                                     shortestDouble(lobes[2])})}};
}

}  // namespace kestrane
