// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include "core/base/array.h"

namespace kestrane {

/// A decoded picture: RGBA in linear floats, rows from top to bottom. Values of 8 and 16 bits span
/// 0 to 1; no gamma is applied. Grey fills RGB, and a missing alpha is 1.
struct Image {
  std::int32_t width = 0;
  std::int32_t height = 0;
  Array<float> pixels;        // width * height * 4
  std::int32_t bitDepth = 8;  // of the file: 8, 16 or 32
};

/// Reads an image file. Throws TextureError "cannot read 'PATH': " and the reason for a file that
/// is missing, no picture, cut short or damaged, and for one that claims more pixels than its bytes
/// can hold. Safe from any thread; runs no parallel loops, so that it may be called under a lock.
Image decodeImage(const std::string& path);

}  // namespace kestrane
