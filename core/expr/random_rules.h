// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace kestrane::detail {

/// The random functions of expressions. Each depends on nothing but its arguments and, for rand,
/// the seed: the same numbers on every machine and in every order.

/// A random number in [0, 1) that differs per seed (a strand's stable key) and x.
float randomOf(float x, std::uint64_t seed);
/// A random number in [0, 1) that depends on x alone.
float hashOf(float x);
/// A whole number from lo to hi, drawn by x; with weights, of lo, lo + 1 and so on (1 for those
/// past the list).
float pickOf(float x, float lo, float hi, const float* weights, int weightCount);
/// One of the options, the x-th share of the list.
float chooseOf(float x, const float* options, int optionCount);
/// The whole number below x, brought into lo to hi by whole turns.
float cycleOf(float x, float lo, float hi);

}  // namespace kestrane::detail
