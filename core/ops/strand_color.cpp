// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/strand_color.h"

#include <cmath>

#include "core/ops/melanin.h"

namespace kestrane {

namespace {

const float* values(const Array<float>* channel) {
  return channel ? channel->data() : nullptr;
}

Vec3f triple(const float* const (&channels)[3], std::size_t index) {
  return {channels[0][index], channels[1][index], channels[2][index]};
}

bool all(const float* const (&channels)[3]) {
  return channels[0] != nullptr && channels[1] != nullptr && channels[2] != nullptr;
}

}  // namespace

StrandColorReader::StrandColorReader(const StrandSet& strands)
    : pointMelanin_(values(strands.pointChannel(colorChannels::melanin))),
      pointRedness_(values(strands.pointChannel(colorChannels::redness))),
      melanin_(values(strands.strandChannel(colorChannels::melanin))),
      redness_(values(strands.strandChannel(colorChannels::redness))),
      dyeAmount_(values(strands.strandChannel(colorChannels::dyeAmount))) {
  for (int axis = 0; axis < 3; ++axis) {
    pointColor_[axis] = values(strands.pointChannel(colorChannels::color[axis]));
    strandColor_[axis] = values(strands.strandChannel(colorChannels::color[axis]));
    dye_[axis] = values(strands.strandChannel(colorChannels::dye[axis]));
  }
}

Vec3f StrandColorReader::at(std::size_t strand, std::size_t point) const {
  if (all(pointColor_)) return triple(pointColor_, point);
  if (pointMelanin_ == nullptr) return strandAt(strand);
  return strandLook(strand, pointMelanin_[point], pointRedness_ ? pointRedness_[point] : 0.2f);
}

Vec3f StrandColorReader::strandAt(std::size_t strand) const {
  return strandLook(strand, melanin_ ? melanin_[strand] : 0.5f, redness_ ? redness_[strand] : 0.2f);
}

Vec3f StrandColorReader::strandLook(std::size_t strand, float melanin, float redness) const {
  const Vec3f dye = all(dye_) ? triple(dye_, strand) : Vec3f{1.0f, 1.0f, 1.0f};
  const Vec3f pigment = melaninColor(melaninConcentration(melanin), redness, dye);
  if (!all(strandColor_)) return pigment;
  return lerp(pigment, triple(strandColor_, strand), dyeAmount_ ? dyeAmount_[strand] : 1.0f);
}

Vec3f hsvFromRgb(Vec3f rgb) {
  const float high = std::max({rgb.x, rgb.y, rgb.z});
  const float low = std::min({rgb.x, rgb.y, rgb.z});
  const float range = high - low;
  if (!(range > 0.0f) || !(high > 0.0f)) return {0.0f, 0.0f, high};
  float hue = high == rgb.x   ? (rgb.y - rgb.z) / range
              : high == rgb.y ? 2.0f + (rgb.z - rgb.x) / range
                              : 4.0f + (rgb.x - rgb.y) / range;
  hue /= 6.0f;
  return {hue - std::floor(hue), range / high, high};
}

Vec3f rgbFromHsv(Vec3f hsv) {
  const float hue = (hsv.x - std::floor(hsv.x)) * 6.0f;
  const auto channel = [&](float offset) {
    const float place = std::fmod(offset + hue, 6.0f);
    const float ramp = std::clamp(std::min(place, 4.0f - place), 0.0f, 1.0f);
    return hsv.z * (1.0f - hsv.y * ramp);
  };
  return {channel(5.0f), channel(3.0f), channel(1.0f)};
}

}  // namespace kestrane
