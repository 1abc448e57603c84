// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

#include "core/export/bit_writer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrane::detail {

/// Which of 64 bytes equal the value: bit i for byte i. Eight at a time within a number.
inline std::uint64_t equalBytesPlain(const std::uint8_t* bytes, std::uint8_t value) {
  constexpr std::uint64_t ones = 0x0101010101010101u, low = 0x7f * ones;
  std::uint64_t mask = 0;
  for (std::size_t i = 0; i < 64; i += 8) {
    const std::uint64_t differing = loadEight(bytes + i) ^ value * ones;
    // The high bit of every byte that is 0; no carry leaves a byte.
    const std::uint64_t equal = ~(((differing & low) + low) | differing | low);
    // The product gathers these bits, 8 apart, in the highest byte.
    mask |= ((equal >> 7) * 0x0102040810204080u >> 56) << i;
  }
  return mask;
}

/// The same answer; the bytes are aligned to 16.
inline std::uint64_t equalBytes(const std::uint8_t* bytes, std::uint8_t value) {
#if defined(__SSE2__)
  const __m128i values = _mm_set1_epi8(static_cast<char>(value));
  const auto sixteen = [&](std::size_t i) {
    const __m128i* at = reinterpret_cast<const __m128i*>(bytes + i);
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_load_si128(at), values));
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(mask)) << i;
  };
  return sixteen(0) | sixteen(16) | sixteen(32) | sixteen(48);
#else
  return equalBytesPlain(bytes, value);
#endif
}

}  // namespace kestrane::detail
