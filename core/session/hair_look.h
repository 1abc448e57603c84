// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/base/json.h"
#include "core/base/vec.h"
#include "core/graph/graph_document.h"

namespace kestrane {

/// A Blend whose inputs come straight from colour nodes: the look is a mix of theirs.
struct ColorBlend {
  std::string node;
  std::vector<std::string> colors;  // the colour nodes, by input
};

/// How a shader should draw the groom, read from the parameters of its active colour nodes alone.
/// Where strands differ, their channels say more.
struct HairLook {
  std::string hairColor;                   // the HairColor nearest the output; empty for none
  std::string renderData;                  // the same of RenderData
  Json hairColorParams = Json::object();   // of that HairColor: every parameter
  Json renderDataParams = Json::object();  // of that RenderData
  std::vector<std::string> colorNodes;     // all that colour, nearest the output first
  std::vector<ColorBlend> colorBlends;
  bool colorsByRgb = false;  // a node colours by more than pigment and dye
  bool bySource = false;     // strands choose between pigment and RGB one by one
  bool iridescent = false;
  Vec3f iridescenceColor;
  float iridescenceShift = 0.0f;  // hue turns from face-on to edge-on
  Vec3f specularTint{0.3f, 0.3f, 0.3f};
  float roughness = 0.5f;           // of the highlight along the fibre, as RenderData gives it
  float azimuthalRoughness = 0.5f;  // around the fibre
  float shift = 0.0523599f;         // tilt of the cuticle, radians
  std::array<float, 3> lobes{1.0f, 1.0f, 1.0f};  // weights of R, TT and TRT

  Json toJson() const;
};

/// The look of a graph's result, for the view or for a render.
HairLook hairLookOf(GraphDocument& document, bool viewport);

}  // namespace kestrane
