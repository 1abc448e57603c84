// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/base/json.h"
#include "core/base/vec.h"

namespace kestrane {

/// A Blend of two colour nodes: the look is a mix of theirs.
struct ColorBlend {
  std::string node;
  std::vector<std::string> colors;  // the colour nodes that come in
};

/// How a shader should draw the groom, read from the parameters of its active colour nodes alone.
/// Where strands differ, their channels say more.
struct HairLook {
  Json hairColorParams = Json::object();   // of the colour node nearest the output
  Json renderDataParams = Json::object();  // of the RenderData nearest the output
  std::vector<std::string> colorNodes;     // the HairColor nodes, nearest the output first
  std::vector<ColorBlend> colorBlends;
  bool colorsByRgb = false;  // a node colours by more than pigment and dye
  bool bySource = false;     // strands choose between pigment and RGB one by one
  bool iridescent = false;
  Vec3f iridescenceColor;
  float iridescenceShift = 0.0f;  // hue turns from face-on to edge-on
  Vec3f specularTint{0.3f, 0.3f, 0.3f};
  float roughness = 0.5f;           // of the highlight along the fibre, as RenderData gives it
  float azimuthalRoughness = 0.5f;  // around the fibre
  float shift = 0.0f;               // tilt of the cuticle, radians
  std::array<float, 3> lobes{1.0f, 1.0f, 1.0f};  // weights of R, TT and TRT

  Json toJson() const;
};

}  // namespace kestrane
