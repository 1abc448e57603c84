// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/data/strand_set.h"

namespace kestrane {

/// The channels in which colour operators write. Per strand: melanin, melaninRedness, hueShift
/// (turns), saturationScale, dyeAmount (the share of the RGB look), the dye where it is not white,
/// and the colour where an RGB look applies. Per point: the pigment of bands, and colours that vary
/// along strands; they come before the strands' own.
namespace colorChannels {
inline constexpr const char* melanin = "melanin";
inline constexpr const char* redness = "melaninRedness";
inline constexpr const char* dyeAmount = "dyeAmount";
inline constexpr const char* hueShift = "hueShift";
inline constexpr const char* saturationScale = "saturationScale";
inline constexpr const char* dye[3] = {"dyeR", "dyeG", "dyeB"};
inline constexpr const char* color[3] = {"colorR", "colorG", "colorB"};
}  // namespace colorChannels

/// Reads the colour in which a viewport shows strands, linear RGB. The set must outlive it; at()
/// may be called from many threads.
class StrandColorReader {
 public:
  explicit StrandColorReader(const StrandSet& strands);

  /// Whether the colour varies along strands.
  bool perPoint() const { return pointColor_[0] != nullptr || pointMelanin_ != nullptr; }
  /// `point` is an index into the set's points. Strands that no operator coloured are a mid brown.
  Vec3f at(std::size_t strand, std::size_t point) const;
  /// The strand's own colour, without what varies along it.
  Vec3f strandAt(std::size_t strand) const;

 private:
  Vec3f strandLook(std::size_t strand, float melanin, float redness) const;

  const float* pointColor_[3] = {};
  const float* strandColor_[3] = {};
  const float* dye_[3] = {};
  const float* pointMelanin_ = nullptr;
  const float* pointRedness_ = nullptr;
  const float* melanin_ = nullptr;
  const float* redness_ = nullptr;
  const float* dyeAmount_ = nullptr;
};

/// Hue, saturation and value (0 to 1 each; value may be more) of a linear RGB colour, and back.
Vec3f hsvFromRgb(Vec3f rgb);
Vec3f rgbFromHsv(Vec3f hsv);

}  // namespace kestrane
