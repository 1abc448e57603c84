// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kestrane {

/// Writes an uncompressed TGA file of 1 channel (grey), 3 (RGB) or 4 (RGBA) of 8 bits, rows from
/// top to bottom. Throws std::invalid_argument for other channels, sizes outside 1 to 65535 and
/// pixels of another count, and std::runtime_error "cannot write 'PATH'".
void writeTga(const std::string& path, int width, int height, int channels,
              std::span<const std::uint8_t> pixels);

}  // namespace kestrane
