// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The form for compilers without vector types.
#define KESTRANE_PLAIN_LANES
#include "tests/base/lanes_checks.h"

namespace kestrane {
namespace {

TEST(PlainLanes, AreFourFloats) {
  static_assert(sizeof(Float4) == 16 && std::is_aggregate_v<Float4>);
  expectLanesAreFourFloats();
}

TEST(PlainLanes, TakePoints) {
  expectPointsGoIntoLanes();
}

}  // namespace
}  // namespace kestrane
