// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "core/base/array.h"
#include "core/base/vec.h"
#include "core/values/image.h"

namespace kestrane {

/// A read-only image, or a set of UDIM tiles that are loaded on demand. Everything may be called
/// from several threads; a loaded image is read without a lock.
///
/// UV (0, 0) is the lower left corner of the image, (1, 1) the upper right one.
class Texture {
 public:
  /// A single image, RGBA. Throws TextureError where a size is below 1 or the pixels are not width
  /// * height * 4 values.
  Texture(std::int32_t width, std::int32_t height, Array<float> pixels, std::int32_t bitDepth);
  /// UDIM tiles by the path with "<UDIM>" in it; without that it throws TextureError.
  explicit Texture(std::string pattern);
  ~Texture();

  /// The colour at a UV, bilinear with clamped edges. A single image repeats its edge outside 0 to
  /// 1. Of tiles, (1, 0) lies in the second one, and what has no file is black with alpha 0. The
  /// first sample of a tile loads it, and throws TextureError where that fails.
  Vec4f sample(float u, float v) const;
  /// The colour at a place within one tile (a single image is every tile).
  Vec4f sampleTile(int tile, float u, float v) const;
  /// The image of a tile, loaded if need be; null if it has no file. A single image is every tile.
  const Image* tile(int tile) const;

  /// The image; null for tiles.
  const std::shared_ptr<const Image>& image() const { return image_; }
  /// The pattern; empty for a single image.
  const std::string& pattern() const { return pattern_; }
  bool isUdim() const { return !pattern_.empty(); }
  /// The bytes of the pixels loaded so far.
  std::size_t byteSize() const;

  /// Where the texture came from, for messages; may be empty. Set before it is shared.
  std::string name;

 private:
  struct Tiles;

  const Image* loadTile(int tile) const;

  std::shared_ptr<const Image> image_;
  std::string pattern_;
  mutable std::mutex mutex_;
  std::unique_ptr<Tiles> tiles_;
};

using TexturePtr = std::shared_ptr<const Texture>;

/// The texture of a file, or of the UDIM tiles that the path names, through a cache that the whole
/// process shares, so that many nodes share one decode. A file that changed is read again. The
/// environment variable KESTRANE_TEXTURE_CACHE_MB limits the cache (1024 unless set, 1 at least).
/// Throws TextureError. Safe from any thread.
TexturePtr loadTexture(const std::string& path);
/// What changes whenever loadTexture would read the path anew: when its file, or any of its tiles,
/// comes or is written again. 0 where there is none. It does not depend on the path's text, and
/// costs a look at the file's folder.
std::uint64_t textureStamp(const std::string& path);

/// A texture of bytes: rows from top to bottom, 1 channel (grey), 2 (grey and alpha), 3 (RGB) or 4.
/// Throws TextureError for sizes below 1, other channels and pixels of another count.
TexturePtr textureFromPixels(int width, int height, int channels,
                             std::span<const std::uint8_t> pixels);

}  // namespace kestrane
