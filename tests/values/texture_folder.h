// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "core/base/errors.h"
#include "core/base/file.h"
#include "core/base/vec.h"
#include "tests/support/temp_folder.h"

namespace kestrane {

/// A folder of the test's own to write pictures to.
class Textures : public testing::Test {
 protected:
  Textures() : folder(test::tempFolder("textures")) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
  }
  ~Textures() override { std::filesystem::remove_all(folder); }
  std::string write(const std::string& name, const std::string& bytes) {
    writeWholeFile(folder + name, bytes);
    return folder + name;
  }
  std::string folder;
};

/// The message of a TextureError that the call must throw.
inline std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const TextureError& error) {
    return error.what();
  }
  return "no failure";
}

inline void expectColor(Vec4f found, Vec4f wanted, const std::string& where = "") {
  EXPECT_NEAR(found.x, wanted.x, 1e-6f) << where;
  EXPECT_NEAR(found.y, wanted.y, 1e-6f) << where;
  EXPECT_NEAR(found.z, wanted.z, 1e-6f) << where;
  EXPECT_NEAR(found.w, wanted.w, 1e-6f) << where;
}

}  // namespace kestrane
