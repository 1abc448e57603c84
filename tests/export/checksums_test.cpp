// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/checksums.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <vector>

#include "core/base/hash.h"
#include "core/export/byte_mask.h"

namespace kestrane::detail {
namespace {

TEST(Checksums, AreThoseOfAnotherLibrary) {
  constexpr std::size_t most = 20000;
  // The largest bytes make the sums overflow first.
  std::vector<std::uint8_t> largest(most, 255), mixed(most);
  for (std::size_t i = 0; i < most; ++i) mixed[i] = static_cast<std::uint8_t>(mix64(i));
  for (const auto& bytes : {largest, mixed}) {
    for (const std::size_t size : {0u, 1u, 7u, 8u, 63u, 1023u, 1024u, 1025u, 5119u, 5120u, 5121u,
                                   5552u, 6144u, 10240u, 15000u, 20000u}) {
      const auto count = static_cast<uInt>(size);
      const std::span<const std::uint8_t> part(bytes.data() + most - size, size);
      EXPECT_EQ(adler32(part), ::adler32(1, part.data(), count)) << size;
      EXPECT_EQ(crc32(part), ::crc32(0, part.data(), count)) << size;
      for (const std::size_t cut : {std::size_t{0}, size / 3, size}) {
        const std::uint32_t first = adler32(part.first(cut)), rest = adler32(part.subspan(cut));
        EXPECT_EQ(joinedAdler32(first, rest, size - cut), adler32(part)) << size << " at " << cut;
        EXPECT_EQ(crc32(part.subspan(cut), crc32(part.first(cut))), crc32(part)) << size;
      }
    }
  }
}

TEST(ByteMask, HasABitForEveryEqualByte) {
  alignas(64) std::uint8_t bytes[64];
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    // Few values, and those around the ends of a byte's range, where borrows and carries would
    // show.
    constexpr std::uint8_t values[] = {0, 1, 2, 127, 128, 129, 254, 255};
    for (std::size_t i = 0; i < 64; ++i) bytes[i] = values[hashCombine(seed, i) % 8];
    for (const std::uint8_t value : values) {
      std::uint64_t expected = 0;
      for (std::size_t i = 0; i < 64; ++i) expected |= std::uint64_t{bytes[i] == value} << i;
      ASSERT_EQ(equalBytes(bytes, value), expected) << seed;
      ASSERT_EQ(equalBytesPlain(bytes, value), expected) << seed;
    }
  }
}

}  // namespace
}  // namespace kestrane::detail
