// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

namespace kestrane {

/// The SplitMix64 step (Steele, Lea and Flood 2014): every hash and random draw rests on it.
constexpr std::uint64_t mix64(std::uint64_t x) {
  std::uint64_t z = x + 0x9E3779B97F4A7C15u;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

/// Folds a value into a seed; not symmetric, so the order of a fold is part of the key.
constexpr std::uint64_t hashCombine(std::uint64_t seed, std::uint64_t value) {
  return mix64(((seed << 6) + (seed >> 2) + 0x9E3779B97F4A7C15u + value) ^ seed);
}

/// Folds the text's length, then its bytes.
constexpr std::uint64_t hashString(std::uint64_t seed, std::string_view text) {
  seed = hashCombine(seed, text.size());
  for (const char c : text) seed = hashCombine(seed, static_cast<unsigned char>(c));
  return seed;
}

/// Folds a number by its bit pattern.
constexpr std::uint64_t hashNumber(std::uint64_t seed, double value) {
  return hashCombine(seed, std::bit_cast<std::uint64_t>(value));
}
constexpr std::uint64_t hashNumber(std::uint64_t seed, float value) {
  return hashCombine(seed, std::bit_cast<std::uint32_t>(value));
}

/// The top 24 bits of h as a number in [0, 1).
constexpr float unitFloat(std::uint64_t h) {
  return static_cast<float>(h >> 40) * 5.9604645e-8f;
}

/// A yes or no that is stable per key: never at probability 0, always at 1.
constexpr bool hashPick(std::uint64_t key, float probability) {
  return probability > 0.0f && probability > unitFloat(mix64(key));
}

}  // namespace kestrane
