// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrane::detail {

/// Eight bytes as a number whose lowest byte is the first.
inline std::uint64_t loadEight(const std::uint8_t* bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, 8);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

inline void storeEight(std::uint8_t* bytes, std::uint64_t value) {
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  std::memcpy(bytes, &value, 8);
}

/// Writes bits, the first lowest in a byte, to a buffer that the caller has made large enough: 8
/// bytes larger than the bits need.
class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : begin_(out), out_(out) {}

  /// At most 32 bits; those above `count` are 0. Whole bytes are written at every call, since a
  /// branch that waits for 32 bits to gather would be foreseen half of the time.
  void put(std::uint32_t bits, std::uint32_t count) {
    held_ |= static_cast<std::uint64_t>(bits) << heldCount_;
    heldCount_ += count;
    storeEight(out_, held_);
    out_ += heldCount_ / 8;
    held_ >>= heldCount_ & ~7u;
    heldCount_ &= 7u;
  }

  /// The bits of another buffer from `first` to `end` - 1; it must be readable for 8 bytes more.
  void putAll(const std::uint8_t* bits, std::size_t first, std::size_t end) {
    for (; first + 32 <= end; first += 32) {
      put(static_cast<std::uint32_t>(loadEight(bits + first / 8) >> (first % 8)), 32);
    }
    if (first == end) return;
    const auto rest = static_cast<std::uint32_t>(end - first);
    const std::uint64_t last = loadEight(bits + first / 8) >> (first % 8);
    put(static_cast<std::uint32_t>(last & ((std::uint64_t{1} << rest) - 1)), rest);
  }

  /// The end of the bits, in whole bytes; the last one is padded with zeros.
  std::uint8_t* end() const { return out_ + (heldCount_ + 7) / 8; }

  std::size_t bitCount() const { return static_cast<std::size_t>(out_ - begin_) * 8 + heldCount_; }

 private:
  std::uint8_t* begin_;
  std::uint8_t* out_;
  std::uint64_t held_ = 0;
  std::uint32_t heldCount_ = 0;
};

}  // namespace kestrane::detail
