// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/base/array.h"

namespace kestrane {

/// A picture to write: rows from top to bottom, channels interleaved (1 grey, 2 grey and alpha, 3
/// RGB, 4 RGBA), no padding between rows. The pixels belong to the caller.
struct PngImage {
  int width = 0;
  int height = 0;
  int channels = 0;
  std::span<const std::uint8_t> pixels;
};

/// The bytes of a PNG file, made on all cores; the same for every number of threads. Throws
/// std::invalid_argument for sizes below 1, channels other than 1 to 4, and pixels of another
/// count.
Array<std::uint8_t> encodePng(int width, int height, int channels,
                              std::span<const std::uint8_t> pixels);
/// The same with 16 bits a channel.
Array<std::uint8_t> encodePng16(int width, int height, int channels,
                                std::span<const std::uint16_t> pixels);

/// Several files at once, in the order of the images.
std::vector<Array<std::uint8_t>> encodePngs(std::span<const PngImage> images);

/// Encodes all images, then writes each to its path. Throws std::invalid_argument before a file is
/// touched, and std::runtime_error "can't write PATH".
void writeCompressedPngs(std::span<const std::string> paths, std::span<const PngImage> images);

/// Writes one PNG file of 8 bits a channel. Throws like writeCompressedPngs.
void writePng(const std::string& path, int width, int height, int channels,
              std::span<const std::uint8_t> pixels);

}  // namespace kestrane
