// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/png.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include "core/base/file.h"
#include "core/base/parallel.h"
#include "core/export/checksums.h"
#include "core/export/deflate.h"
#include "core/export/png_filter.h"

namespace kestrane {

namespace {

using Bytes = Array<std::uint8_t>;

void appendNumber(Bytes& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    out.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

/// Appends one chunk; `writeData` appends its data.
template <class WriteData>
void appendChunk(Bytes& out, std::string_view type, const WriteData& writeData) {
  const std::size_t start = out.size();
  appendNumber(out, 0);
  out.insert(out.end(), type.begin(), type.end());
  writeData();
  const std::size_t length = out.size() - start - 8;
  if (length > 0x7fffffff) throw std::runtime_error("the picture is too large for a PNG file");
  for (std::size_t i = 0; i < 4; ++i) {
    out[start + i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
  }
  appendNumber(out, detail::crc32(std::span(out).subspan(start + 4)));
}

void checkImage(const std::string& caller, int width, int height, int channels,
                std::size_t samples) {
  if (width < 1 || height < 1 || channels < 1 || channels > 4) {
    throw std::invalid_argument(caller + ": bad size or channels");
  }
  if (samples / static_cast<std::size_t>(channels) / static_cast<std::size_t>(width) !=
          static_cast<std::size_t>(height) ||
      samples != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                     static_cast<std::size_t>(channels)) {
    throw std::invalid_argument(caller + ": pixel count does not match the size");
  }
}

/// One row as the file holds it: the caller's bytes, or 16-bit samples with the high byte first.
const std::uint8_t* rowBytes(std::span<const std::uint8_t> pixels, std::size_t row,
                             std::size_t samples, Bytes&) {
  return pixels.data() + row * samples;
}
const std::uint8_t* rowBytes(std::span<const std::uint16_t> pixels, std::size_t row,
                             std::size_t samples, Bytes& scratch) {
  scratch.resize(2 * samples);
  const std::uint16_t* values = pixels.data() + row * samples;
  for (std::size_t i = 0; i < samples; ++i) {
    scratch[2 * i] = static_cast<std::uint8_t>(values[i] >> 8);
    scratch[2 * i + 1] = static_cast<std::uint8_t>(values[i]);
  }
  return scratch.data();
}

template <class Sample>
Bytes filteredRows(std::size_t width, std::size_t height, std::size_t channels,
                   std::span<const Sample> pixels) {
  const std::size_t samples = width * channels, size = samples * sizeof(Sample);
  Bytes raw(height * (size + 1));
  parallelRange(0, height, 16, [&](std::size_t first, std::size_t last) {
    Bytes scratch, scratchAbove;
    const Bytes noRow(first == 0 ? size : 0, std::uint8_t{0});
    for (std::size_t row = first; row < last; ++row) {
      const std::uint8_t* above =
          row == 0 ? noRow.data() : rowBytes(pixels, row - 1, samples, scratchAbove);
      const std::uint8_t* bytes = rowBytes(pixels, row, samples, scratch);
      detail::filterPngRow(bytes, above, size, channels * sizeof(Sample),
                           raw.data() + row * (size + 1));
    }
  });
  return raw;
}

template <class Sample>
Bytes encode(int width, int height, int channels, std::span<const Sample> pixels) {
  const Bytes raw =
      filteredRows<Sample>(static_cast<std::size_t>(width), static_cast<std::size_t>(height),
                           static_cast<std::size_t>(channels), pixels);
  constexpr std::array<std::uint8_t, 8> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  constexpr std::array<std::uint8_t, 5> colorTypes = {0, 0, 4, 2, 6};  // by channels
  Bytes out(signature.begin(), signature.end());
  appendChunk(out, "IHDR", [&] {
    appendNumber(out, static_cast<std::uint32_t>(width));
    appendNumber(out, static_cast<std::uint32_t>(height));
    out.push_back(8 * sizeof(Sample));
    out.push_back(colorTypes[static_cast<std::size_t>(channels)]);
    out.insert(out.end(), 3, 0);  // compression, filter and interlace methods
  });
  appendChunk(out, "IDAT", [&] { detail::appendZlib(raw, 0, out); });
  appendChunk(out, "IEND", [] {});
  return out;
}

void writeFile(const std::string& path, const Bytes& bytes) {
  try {
    writeWholeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  } catch (const std::runtime_error&) {
    throw std::runtime_error("can't write " + path);
  }
}

}  // namespace

Bytes encodePng(int width, int height, int channels, std::span<const std::uint8_t> pixels) {
  checkImage("encodePng", width, height, channels, pixels.size());
  return encode(width, height, channels, pixels);
}

Bytes encodePng16(int width, int height, int channels, std::span<const std::uint16_t> pixels) {
  checkImage("encodePng16", width, height, channels, pixels.size());
  return encode(width, height, channels, pixels);
}

std::vector<Bytes> encodePngs(std::span<const PngImage> images) {
  for (const PngImage& image : images) {
    if (image.pixels.empty()) throw std::invalid_argument("encodePngs: an image has no pixels");
    checkImage("encodePng", image.width, image.height, image.channels, image.pixels.size());
  }
  std::vector<Bytes> files(images.size());
  parallelRange(0, images.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      const PngImage& image = images[i];
      files[i] = encode(image.width, image.height, image.channels, image.pixels);
    }
  });
  return files;
}

void writeCompressedPngs(std::span<const std::string> paths, std::span<const PngImage> images) {
  if (paths.size() != images.size()) {
    throw std::invalid_argument("writeCompressedPngs: a path per image");
  }
  const std::vector<Bytes> files = encodePngs(images);
  for (std::size_t i = 0; i < files.size(); ++i) writeFile(paths[i], files[i]);
}

void writePng(const std::string& path, int width, int height, int channels,
              std::span<const std::uint8_t> pixels) {
  checkImage("writePng", width, height, channels, pixels.size());
  writeFile(path, encode(width, height, channels, pixels));
}

}  // namespace kestrane
