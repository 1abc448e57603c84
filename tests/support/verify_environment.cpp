// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>

#include "core/graph/graph_evaluation.h"

namespace kestrane::test {
namespace {

/// With the variable KESTRANE_VERIFY every incremental result of a test program is verified.
class VerifyEnvironment final : public testing::Environment {
 public:
  void SetUp() override {
    if (std::getenv("KESTRANE_VERIFY") != nullptr) setVerifyIncremental(true);
  }
};

const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new VerifyEnvironment);

}  // namespace
}  // namespace kestrane::test
