// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/texture.h"

#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>

#include "core/base/errors.h"
#include "core/base/parallel.h"
#include "core/values/udim.h"

namespace kestrane {

namespace {

/// The four values of a pixel, mixed.
Vec4f lerpPixels(const float* a, const float* b, float t) {
  return {lerp(a[0], b[0], t), lerp(a[1], b[1], t), lerp(a[2], b[2], t), lerp(a[3], b[3], t)};
}

/// Where a sample lies between two pixel centres of one axis.
struct Between {
  std::size_t first = 0;
  std::size_t second = 0;
  float share = 0.0f;
};

/// A place of 0 to 1 on an axis of `size` pixels. Written so that not-a-number is the first pixel.
Between between(float place, std::int32_t size) {
  const float last = static_cast<float>(size - 1);
  const float x = place * static_cast<float>(size) - 0.5f;
  if (!(x > 0.0f)) return {0, 0, 0.0f};
  if (x >= last) return {static_cast<std::size_t>(size - 1), static_cast<std::size_t>(size - 1), 0};
  const float floor = std::floor(x);
  const auto first = static_cast<std::size_t>(floor);
  return {first, first + 1, x - floor};
}

Vec4f sampleImage(const Image& image, float u, float v) {
  const Between x = between(u, image.width), y = between(1.0f - v, image.height);
  const auto pixel = [&](std::size_t column, std::size_t row) {
    return image.pixels.data() + 4 * (row * static_cast<std::size_t>(image.width) + column);
  };
  const Vec4f above = lerpPixels(pixel(x.first, y.first), pixel(x.second, y.first), x.share);
  const Vec4f below = lerpPixels(pixel(x.first, y.second), pixel(x.second, y.second), x.share);
  return lerpPixels(&above.x, &below.x, y.share);
}

constexpr Vec4f noColor{0.0f, 0.0f, 0.0f, 0.0f};

}  // namespace

/// The slots of the tiles. A slot's image is set once, before its state says so.
struct Texture::Tiles {
  enum State { unknown, loaded, missing };
  struct Slot {
    std::atomic<State> state = unknown;
    Image image;
  };
  std::array<Slot, lastUdimTile - firstUdimTile + 1> slots;
};

Texture::Texture(std::int32_t width, std::int32_t height, Array<float> pixels,
                 std::int32_t bitDepth) {
  if (width < 1 || height < 1 ||
      pixels.size() != 4 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    throw TextureError("Texture: size does not match its data");
  }
  image_ = std::make_shared<Image>(Image{width, height, std::move(pixels), bitDepth});
}

Texture::Texture(std::string pattern) : pattern_(std::move(pattern)) {
  if (pattern_.find("<UDIM>") == std::string::npos) {
    throw TextureError("Texture: a UDIM pattern needs <UDIM>");
  }
  tiles_ = std::make_unique<Tiles>();
}

Texture::~Texture() = default;

const Image* Texture::tile(int tile) const {
  if (image_) return image_.get();
  if (tile < firstUdimTile || tile > lastUdimTile) return nullptr;
  const Tiles::Slot& slot = tiles_->slots[static_cast<std::size_t>(tile - firstUdimTile)];
  switch (slot.state.load(std::memory_order_acquire)) {
    case Tiles::loaded:
      return &slot.image;
    case Tiles::missing:
      return nullptr;
    case Tiles::unknown:
      break;
  }
  return loadTile(tile);
}

const Image* Texture::loadTile(int tile) const {
  const std::lock_guard lock(mutex_);
  Tiles::Slot& slot = tiles_->slots[static_cast<std::size_t>(tile - firstUdimTile)];
  Tiles::State state = slot.state.load(std::memory_order_relaxed);
  if (state == Tiles::unknown) {
    const std::string path = udimTilePath(pattern_, tile);
    std::error_code error;
    state = Tiles::missing;
    if (std::filesystem::exists(path, error)) {
      slot.image = decodeImage(path);
      state = Tiles::loaded;
    }
    slot.state.store(state, std::memory_order_release);
  }
  return state == Tiles::loaded ? &slot.image : nullptr;
}

Vec4f Texture::sampleTile(int tile, float u, float v) const {
  const Image* image = this->tile(tile);
  return image == nullptr ? noColor : sampleImage(*image, u, v);
}

Vec4f Texture::sample(float u, float v) const {
  if (image_) return sampleImage(*image_, u, v);
  const float column = std::floor(u), row = std::floor(v);
  const float number = static_cast<float>(firstUdimTile) + column + 10.0f * row;
  // Also false where a coordinate is not a number.
  if (!(number >= firstUdimTile && number <= lastUdimTile)) return noColor;
  return sampleTile(static_cast<int>(number), u - column, v - row);
}

std::size_t Texture::byteSize() const {
  if (image_) return image_->pixels.size() * sizeof(float);
  std::size_t size = 0;
  for (const Tiles::Slot& slot : tiles_->slots) {
    if (slot.state.load(std::memory_order_acquire) == Tiles::loaded) {
      size += slot.image.pixels.size() * sizeof(float);
    }
  }
  return size;
}

TexturePtr textureFromPixels(int width, int height, int channels,
                             std::span<const std::uint8_t> pixels) {
  const std::size_t count =
      width < 1 || height < 1 ? 0
                              : static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (count == 0 || channels < 1 || channels > 4 ||
      pixels.size() != count * static_cast<std::size_t>(channels)) {
    throw TextureError("textureFromPixels: size does not match its pixels");
  }
  Array<float> values(4 * count);
  parallelRange(0, count, 16384, [&](std::size_t first, std::size_t last) {
    const bool grey = channels < 3, alpha = channels % 2 == 0;
    for (std::size_t i = first; i < last; ++i) {
      const std::uint8_t* from = pixels.data() + i * static_cast<std::size_t>(channels);
      float* to = values.data() + 4 * i;
      for (std::size_t c = 0; c < 3; ++c) to[c] = static_cast<float>(from[grey ? 0 : c]) / 255.0f;
      to[3] = alpha ? static_cast<float>(from[channels - 1]) / 255.0f : 1.0f;
    }
  });
  return std::make_shared<Texture>(width, height, std::move(values), 8);
}

}  // namespace kestrane
