// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

/// Before a loop whose iterations touch no element of each other, so that it may be vectorised
/// although its operands may lie where its result goes.
#if defined(__clang__)
#define KESTRANE_INDEPENDENT_LOOP _Pragma("clang loop vectorize(assume_safety)")
#elif defined(__GNUC__)
#define KESTRANE_INDEPENDENT_LOOP _Pragma("GCC ivdep")
#else
#define KESTRANE_INDEPENDENT_LOOP
#endif
