// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/graph/graph_evaluation.h"

namespace kestrane::test {

/// Turns the verification of incremental results on, or off, for one test. Tests that do not say
/// run without, unless the environment variable KESTRANE_VERIFY is there.
class Verifying {
 public:
  explicit Verifying(bool on = true) : before_(verifyIncremental()) { setVerifyIncremental(on); }
  ~Verifying() { setVerifyIncremental(before_); }
  Verifying(const Verifying&) = delete;
  Verifying& operator=(const Verifying&) = delete;

 private:
  const bool before_;
};

}  // namespace kestrane::test
