// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/base/lanes_checks.h"

namespace kestrane {
namespace {

TEST(Lanes, AreFourFloats) {
  expectLanesAreFourFloats();
}

TEST(Lanes, TakePoints) {
  expectPointsGoIntoLanes();
}

}  // namespace
}  // namespace kestrane
