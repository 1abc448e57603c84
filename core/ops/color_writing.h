// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "core/base/hash.h"
#include "core/graph/strand_operator.h"
#include "core/ops/strand_color.h"

namespace kestrane {

/// Salts of the draws that HairColor and Bands share, so that one seed offsets both alike.
inline constexpr std::uint64_t melaninSalt = 0xC0108001ull;
inline constexpr std::uint64_t rednessSalt = 0xC0108002ull;

/// A draw of -1 to 1 for a key.
inline float signedDraw(std::uint64_t key, std::uint64_t salt) {
  return 2.0f * unitFloat(hashCombine(key, salt)) - 1.0f;
}

/// The three channels of a colour, to write.
struct ColorSpans {
  std::span<float> channel[3];
  void set(std::size_t index, Vec3f color) const {
    for (int axis = 0; axis < 3; ++axis) channel[axis][index] = color[axis];
  }
};

inline ColorSpans writeStrandColor(StrandEdit& edit, const char* const (&names)[3], float fill) {
  ColorSpans spans;
  for (int axis = 0; axis < 3; ++axis) spans.channel[axis] = edit.strandChannel(names[axis], fill);
  return spans;
}

inline ColorSpans writePointColor(StrandEdit& edit) {
  ColorSpans spans;
  for (int axis = 0; axis < 3; ++axis) {
    spans.channel[axis] = edit.pointChannel(colorChannels::color[axis]);
  }
  return spans;
}

}  // namespace kestrane
