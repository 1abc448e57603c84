// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"
#include "hosts/view/camera.h"

namespace kestrane {

struct PictureOptions {
  int width = 1000;
  int height = 1000;
  CameraSide camera = CameraSide::front;
  int upAxis = 1;  // 1: Y, 2: Z
  /// Called with strands drawn and strands in all, now and then.
  std::function<void(std::size_t, std::size_t)> progress;
};

/// The widest and highest picture.
inline constexpr int largestPicture = 8192;

/// Draws strands and the surfaces under them, all of them in view, on a neutral ground: 8-bit sRGB,
/// three channels, rows from top to bottom. No window is needed. Strands are streamed, so memory
/// does not grow with their number. Throws ViewError without a driver, or without the memory for
/// the size.
std::vector<std::uint8_t> drawPicture(const std::vector<ScalpMeshPtr>& surfaces,
                                      const StrandSet& strands, const PictureOptions& options);

}  // namespace kestrane
