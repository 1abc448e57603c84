// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace kestrane::test {

/// A path for files of one test program, its own even where several run at once; ends in "/".
inline std::string tempFolder(const std::string& name) {
  return testing::TempDir() + "kestrane_" + name + "_" + std::to_string(getpid()) + "/";
}

}  // namespace kestrane::test
