// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/checksums.h"

#include <algorithm>
#include <array>

#include "core/export/bit_writer.h"

namespace kestrane::detail {

namespace {

constexpr std::uint32_t adlerModulus = 65521;

/// Eight bytes are folded at once: table[k] advances a byte's share over k more bytes.
using CrcTables = std::array<std::array<std::uint32_t, 256>, 8>;

CrcTables makeCrcTables() {
  CrcTables tables;
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xedb88320u : 0u);
    tables[0][byte] = crc;
  }
  for (std::size_t k = 1; k < tables.size(); ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[k - 1][byte];
      tables[k][byte] = before >> 8 ^ tables[0][before & 0xff];
    }
  }
  return tables;
}

}  // namespace

std::uint32_t adler32(std::span<const std::uint8_t> bytes) {
  // Columns of bytes are summed side by side; no sum of a stripe exceeds 16 bits.
  constexpr std::size_t columns = 64, rows = 16, stripe = columns * rows;
  // The most bytes before a sum could exceed 32 bits, in whole stripes.
  constexpr std::size_t run = 5552 / stripe * stripe;
  std::uint32_t a = 1, b = 0;
  for (std::size_t from = 0; from < bytes.size();) {
    const std::size_t stop = std::min(bytes.size(), from + run);
    for (; from + stripe <= stop; from += stripe) {
      std::uint16_t sums[columns] = {}, sumsOfSums[columns] = {};
      for (std::size_t row = 0; row < rows; ++row) {
        const std::uint8_t* values = bytes.data() + from + row * columns;
        for (std::size_t i = 0; i < columns; ++i) {
          sumsOfSums[i] = static_cast<std::uint16_t>(sumsOfSums[i] + sums[i]);
          sums[i] = static_cast<std::uint16_t>(sums[i] + values[i]);
        }
      }
      b += static_cast<std::uint32_t>(stripe) * a;
      for (std::uint32_t i = 0; i < columns; ++i) {
        // A byte counts once for itself and once for every byte behind it.
        b += static_cast<std::uint32_t>(columns) * sumsOfSums[i];
        b += (static_cast<std::uint32_t>(columns) - i) * sums[i];
        a += sums[i];
      }
    }
    for (; from < stop; ++from) b += a += bytes[from];
    a %= adlerModulus;
    b %= adlerModulus;
  }
  return b << 16 | a;
}

std::uint32_t joinedAdler32(std::uint32_t first, std::uint32_t second, std::size_t secondSize) {
  constexpr std::uint64_t modulus = adlerModulus;
  const std::uint64_t a1 = first & 0xffff, b1 = first >> 16;
  const std::uint64_t a2 = second & 0xffff, b2 = second >> 16;
  // The second run was summed from a = 1, and would have been from a1.
  const std::uint64_t a = (a1 + a2 + modulus - 1) % modulus;
  const std::uint64_t b = (b1 + b2 + secondSize % modulus * (a1 + modulus - 1)) % modulus;
  return static_cast<std::uint32_t>(b << 16 | a);
}

std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t crc) {
  static const CrcTables tables = makeCrcTables();
  crc = ~crc;
  std::size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    const std::uint64_t word = loadEight(bytes.data() + i) ^ crc;
    crc = 0;
    for (std::size_t k = 0; k < 8; ++k) crc ^= tables[7 - k][word >> (8 * k) & 0xff];
  }
  for (; i < bytes.size(); ++i) crc = crc >> 8 ^ tables[0][(crc ^ bytes[i]) & 0xff];
  return ~crc;
}

}  // namespace kestrane::detail
