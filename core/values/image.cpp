// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/image.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#include "core/base/errors.h"
#include "core/base/file.h"

namespace kestrane {

namespace {

/// The decoder's memory on one thread. A few kilobytes can claim to unpack to any size, so every
/// decode has a budget that follows from what its header says; and a decode that is broken off
/// leaves its blocks behind, which the next start frees.
class DecoderMemory {
 public:
  DecoderMemory() = default;
  DecoderMemory(const DecoderMemory&) = delete;
  ~DecoderMemory() { start(0); }

  void start(std::size_t budget) {
    while (first_ != nullptr) give(first_ + 1);
    budget_ = budget;
  }

  void* take(std::size_t size) {
    if (size > budget_) return nullptr;
    // Zeroed, so that nothing random shows where a damaged file leaves pixels out.
    auto* block = static_cast<Block*>(std::calloc(1, sizeof(Block) + size));
    if (block == nullptr) return nullptr;
    budget_ -= size;
    block->size = size;
    block->next = first_;
    if (first_ != nullptr) first_->previous = block;
    first_ = block;
    return block + 1;
  }

  void give(void* memory) {
    if (memory == nullptr) return;
    Block* block = static_cast<Block*>(memory) - 1;
    if (block->next != nullptr) block->next->previous = block->previous;
    (block->previous != nullptr ? block->previous->next : first_) = block->next;
    budget_ += block->size;
    std::free(block);
  }

  void* resize(void* memory, std::size_t size) {
    void* larger = take(size);
    if (larger == nullptr || memory == nullptr) return larger;
    std::memcpy(larger, memory, std::min(size, (static_cast<Block*>(memory) - 1)->size));
    give(memory);
    return larger;
  }

 private:
  /// What stands in front of each block; as large as keeps the block aligned for any type.
  struct alignas(std::max_align_t) Block {
    std::size_t size;
    Block* previous;
    Block* next;
  };

  std::size_t budget_ = 0;
  Block* first_ = nullptr;
};

thread_local DecoderMemory decoderMemory;

}  // namespace

}  // namespace kestrane

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#define STBI_FAILURE_USERMSG
#define STBI_ASSERT(condition) static_cast<void>(0)
#define STBI_MALLOC(size) kestrane::decoderMemory.take(size)
#define STBI_REALLOC(block, size) kestrane::decoderMemory.resize(block, size)
#define STBI_FREE(block) kestrane::decoderMemory.give(block)
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wunused-function"
#endif
#include <stb/stb_image.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace kestrane {

namespace {

/// No more pixels than a 16384 by 16384 image are read; they take 4 GiB.
constexpr std::size_t mostPixels = std::size_t{1} << 28;
/// The most pixels that a byte of a file can stand for: deflate packs 1032 bytes into one, and a
/// byte of a bitmap is 8 pixels. Small images are let through without asking.
constexpr std::size_t pixelsPerByte = 8256;
constexpr std::size_t fewPixels = std::size_t{1} << 22;

/// Thrown where the decoder reads past the end of the file. Left to itself it goes on with zeros,
/// which some of its loaders take for pixels and others follow for ever.
struct FileEnded {};

/// The file as the decoder reads it.
struct Source {
  std::string bytes;
  std::size_t position = 0;
  const char* buffer = nullptr;  // the decoder's, which it fills ahead of its needs

  static int read(void* user, char* out, int size) {
    auto& source = *static_cast<Source*>(user);
    if (source.buffer == nullptr) source.buffer = out;  // it begins by filling its buffer
    const auto wanted = static_cast<std::size_t>(std::max(size, 0));
    const std::size_t count = std::min(wanted, source.bytes.size() - source.position);
    if (count < wanted && (count == 0 || out != source.buffer)) throw FileEnded();
    std::memcpy(out, source.bytes.data() + source.position, count);
    source.position += count;
    return static_cast<int>(count);
  }
  static void skip(void* user, int count) {
    auto& source = *static_cast<Source*>(user);
    if (count < 0 || static_cast<std::size_t>(count) > source.bytes.size() - source.position) {
      throw FileEnded();
    }
    source.position += static_cast<std::size_t>(count);
  }
  static int atEnd(void* user) {
    const auto& source = *static_cast<Source*>(user);
    return source.position >= source.bytes.size() ? 1 : 0;
  }
};

constexpr stbi_io_callbacks callbacks = {Source::read, Source::skip, Source::atEnd};

/// Whether a JPEG file has a Huffman table of more than 256 codes. The library writes past its own
/// table for such a file, so none is shown to it. Follows the markers as the library does; other
/// damage is left for it to find.
bool overfullHuffmanTable(const std::string& file) {
  std::size_t at = 0;
  const auto next = [&]() -> int {
    return at < file.size() ? static_cast<unsigned char>(file[at++]) : -1;
  };
  const auto nextMarker = [&] {
    int byte = next();
    while (byte != 0xff && byte >= 0) byte = next();
    while (byte == 0xff) byte = next();
    return byte;
  };
  if (next() != 0xff) return false;
  --at;
  if (nextMarker() != 0xd8) return false;
  for (int marker = nextMarker(); marker >= 0; marker = nextMarker()) {
    // In the data of a scan, zeros and restarts are no markers; they have no length.
    if (marker == 0 || (marker >= 0xd0 && marker <= 0xd9)) continue;
    const std::size_t start = at;
    const int high = next(), low = next();
    const std::size_t end = start + static_cast<std::size_t>(std::max(256 * high + low, 2));
    while (marker == 0xc4 && at < end) {
      ++at;  // which table
      int codes = 0;
      for (int i = 0; i < 16; ++i) codes += std::max(next(), 0);
      if (codes > 256) return true;
      at += static_cast<std::size_t>(codes);
    }
    // A table may end behind its segment's end: the library reads it all before it notices.
    at = marker == 0xc4 ? at : end;
  }
  return false;
}

struct FreeBlock {
  void operator()(void* block) const { stbi_image_free(block); }
};

/// Reads one image with the decoder; fails with the words of decodeImage.
class Decoder {
 public:
  explicit Decoder(const std::string& path) : path_(path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) fail("file not found");
    if (std::filesystem::file_size(path, error) > 0x7fffffff || error) fail("too large");
    try {
      source_.bytes = readWholeFile(path);
    } catch (const std::runtime_error&) {
      fail("unable to open file");
    }
    if (overfullHuffmanTable(source_.bytes)) fail("Corrupt JPEG");
  }

  Image decode() {
    const std::size_t budget = checkClaims();
    start(budget);
    const bool hdr = stbi_is_hdr_from_callbacks(&callbacks, &source_) != 0;
    start(budget);
    const bool wide = !hdr && stbi_is_16_bit_from_callbacks(&callbacks, &source_) != 0;
    start(budget);
    if (hdr) return read<float>(stbi_loadf_from_callbacks, 4, 32, 1.0f);
    // In the file's own channels: the library widens 16-bit PNM pixels as if they had 8 bits.
    if (wide) return read<stbi_us>(stbi_load_16_from_callbacks, 0, 16, 65535.0f);
    return read<stbi_uc>(stbi_load_from_callbacks, 4, 8, 255.0f);
  }

 private:
  [[noreturn]] void fail(const char* reason) const {
    throw TextureError("cannot read '" + path_ + "': " + reason);
  }

  /// Begins a reading of the file from its start.
  void start(std::size_t budget) {
    source_.position = 0;
    source_.buffer = nullptr;
    decoderMemory.start(budget);
  }

  /// Holds the size that the header claims against the file. Returns the memory that a decode of
  /// that size may take.
  std::size_t checkClaims() {
    int width = 0, height = 0, channels = 0;
    start(fewPixels);
    if (stbi_info_from_callbacks(&callbacks, &source_, &width, &height, &channels) == 0) {
      fail(stbi_failure_reason());
    }
    if (width < 1 || height < 1) fail("empty image");
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (pixels > mostPixels || pixels > std::max(fewPixels, source_.bytes.size() * pixelsPerByte)) {
      fail("too large");
    }
    // The unpacked and the final pixels, at up to 16 bytes each, and once more while they grow.
    return fewPixels + 4 * source_.bytes.size() + 48 * pixels;
  }

  /// Loads the pixels with so many channels (0: the file's), whose largest value is `one`.
  template <class Sample, class Load>
  Image read(Load load, int channels, int bitDepth, float one) {
    int width = 0, height = 0, ownChannels = 0;
    const std::unique_ptr<Sample, FreeBlock> samples(
        load(&callbacks, &source_, &width, &height, &ownChannels, channels));
    if (channels == 0) channels = ownChannels;
    if (!samples) fail(stbi_failure_reason());
    if (width < 1 || height < 1) fail("empty image");
    if (bitDepth == 16 && keepsBigEndian()) swapBytes(samples.get(), width, height, channels);
    return widen(samples.get(), width, height, channels, bitDepth, one);
  }

  /// PNM is the one format whose 16-bit samples the library hands over as they stand in the file.
  bool keepsBigEndian() const {
    return source_.bytes.starts_with("P5") || source_.bytes.starts_with("P6");
  }

  template <class Sample>
  static void swapBytes(Sample* samples, int width, int height, int channels) {
    if constexpr (sizeof(Sample) == 2 && std::endian::native == std::endian::little) {
      const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                static_cast<std::size_t>(channels);
      for (std::size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<Sample>(samples[i] << 8 | samples[i] >> 8);
      }
    }
  }

  template <class Sample>
  Image widen(const Sample* samples, int width, int height, int channels, int bitDepth, float one) {
    Image image;
    image.width = width;
    image.height = height;
    image.bitDepth = bitDepth;
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    image.pixels.resize(4 * count);
    const bool grey = channels < 3, alpha = channels % 2 == 0;
    for (std::size_t i = 0; i < count; ++i) {
      const Sample* from = samples + i * static_cast<std::size_t>(channels);
      float* to = image.pixels.data() + 4 * i;
      for (std::size_t c = 0; c < 3; ++c) to[c] = static_cast<float>(from[grey ? 0 : c]) / one;
      to[3] = alpha ? static_cast<float>(from[channels - 1]) / one : 1.0f;
    }
    return image;
  }

  const std::string& path_;
  Source source_;
};

}  // namespace

Image decodeImage(const std::string& path) {
  try {
    return Decoder(path).decode();
  } catch (const FileEnded&) {
    throw TextureError("cannot read '" + path + "': the file ends too early");
  } catch (const std::bad_alloc&) {
    throw TextureError("cannot read '" + path + "': out of memory");
  }
}

}  // namespace kestrane
