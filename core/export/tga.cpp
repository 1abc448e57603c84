// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/tga.h"

#include <stdexcept>

#include "core/base/file.h"

namespace kestrane {

void writeTga(const std::string& path, int width, int height, int channels,
              std::span<const std::uint8_t> pixels) {
  if (channels != 1 && channels != 3 && channels != 4) {
    throw std::invalid_argument("writeTga: 1, 3 or 4 channels");
  }
  // A side has 16 bits in the file.
  if (width < 1 || height < 1 || width > 0xffff || height > 0xffff ||
      pixels.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                           static_cast<std::size_t>(channels)) {
    throw std::invalid_argument("writeTga: pixel count does not match the size");
  }
  std::string bytes(18, '\0');
  bytes[2] = channels == 1 ? 3 : 2;
  bytes[12] = static_cast<char>(width & 0xff);
  bytes[13] = static_cast<char>(width >> 8);
  bytes[14] = static_cast<char>(height & 0xff);
  bytes[15] = static_cast<char>(height >> 8);
  bytes[16] = static_cast<char>(8 * channels);
  bytes[17] = channels == 4 ? 0x28 : 0x20;  // rows from the top; 8 bits of alpha
  const std::size_t start = bytes.size();
  bytes.append(reinterpret_cast<const char*>(pixels.data()), pixels.size());
  if (channels > 1) {
    for (std::size_t i = start; i < bytes.size(); i += static_cast<std::size_t>(channels)) {
      std::swap(bytes[i], bytes[i + 2]);
    }
  }
  writeWholeFile(path, bytes);
}

}  // namespace kestrane
