// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "core/base/hash.h"

#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/ops/strand_profile.h"

namespace kestrane {

namespace {

constexpr std::uint64_t opacitySalt = 0x2E4DE201ull;
constexpr std::uint64_t specularSalt = 0x2E4DE202ull;
constexpr std::uint64_t roughnessSalt = 0x2E4DE203ull;

const OperatorDeclaration& renderDataDeclaration() {
  static const OperatorDeclaration declaration{
      "RenderData",
      "color",
      "Render controls per strand for the shader: opacity along the strands, the highlight's "
      "specular and roughness.",
      {{"strands", PortType::strands}},
      {"out", PortType::strands},
      {
          param("opacity", 1.0, "How opaque each strand is, 0-1 (mappable), times opacityProfile")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Opacity"),
          param("opacityProfile", Ramp({{0.0f, 1.0f}}),
                "Opacity along the strand, root to tip, times opacity")
              .animatable()
              .group("Opacity"),
          param("opacityRandom", 0.0, "Each strand up to this share less opaque, at random")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Opacity"),
          param("specular", 0.3,
                "Highlight strength, 0 none to 1 bright (mappable): the hair shader's, and the "
                "viewport's hair shading (strands and cards)")
              .range(0, 1)
              .animatable()
              .group("Highlight"),
          param("specularRandom", 0.0,
                "Each strand's specular up to this share more or less, at random")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Highlight"),
          param("roughness", 0.5, "Highlight spread, 0 sharp to 1 broad (mappable; the same two)")
              .range(0, 1)
              .animatable()
              .group("Highlight"),
          param("roughnessRandom", 0.0,
                "Each strand's roughness up to this share more or less, at random")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Highlight"),
          param("seed", 0, "Random seed").advanced(),
      }};
  return declaration;
}

class RenderDataOp final : public StrandOperator {
 public:
  RenderDataOp() : StrandOperator(renderDataDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const ScalarField opacityField = edit.field("opacity");
    const ScalarField specularField = edit.field("specular");
    const ScalarField roughnessField = edit.field("roughness");
    const Ramp opacityProfile = parameters.ramp("opacityProfile");
    const float opacityRandom = number("opacityRandom");
    const float specularRandom = number("specularRandom");
    const float roughnessRandom = number("roughnessRandom");
    const std::uint64_t seed = static_cast<std::uint64_t>(parameters.integer("seed"));

    const StrandSet& in = edit.input();
    const std::span<float> opacities = edit.pointChannel("opacity", 1.0f);
    const std::span<float> speculars = edit.strandChannel("specular", 0.3f);
    const std::span<float> roughnesses = edit.strandChannel("roughness", 0.5f);
    edit.run(256, [&](const StrandRange& strands) {
      FieldReader opacity(opacityField), specular(specularField), roughness(roughnessField);
      StrandProfile opacityAlong(opacityProfile);
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const auto varied = [&](float value, float randomness, std::uint64_t salt) {
          const float draw = 2.0f * unitFloat(hashCombine(id, seed ^ salt)) - 1.0f;
          return std::clamp(value * (1.0f + randomness * draw), 0.0f, 1.0f);
        };
        speculars[strand] = varied(specular.strand(strand), specularRandom, specularSalt);
        roughnesses[strand] = varied(roughness.strand(strand), roughnessRandom, roughnessSalt);
        const float kept = 1.0f - opacityRandom * unitFloat(hashCombine(id, seed ^ opacitySalt));
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::span<const float> values = opacityAlong.along(points);
        const float* base = opacity.points(strand, points.size());
        float* out = opacities.data() + in.offsets()[strand];
        for (std::size_t i = 0; i < points.size(); ++i) {
          out[i] = std::clamp(base[i] * values[i] * kept, 0.0f, 1.0f);
        }
      }
    });
  }

 private:
  float number(const char* name) const { return static_cast<float>(parameters.number(name)); }
};

}  // namespace

void registerRenderDataOperator(OperatorRegistry& registry) {
  registry.add<RenderDataOp>();
}

}  // namespace kestrane
