// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace kestrane::test {

/// A path for files of one test program, its own even where several run at once; ends in "/".
inline std::string tempFolder(const std::string& name) {
  return testing::TempDir() + "kestrane_" + name + "_" + std::to_string(getpid()) + "/";
}

/// A device in that folder on which every write fails for want of room, or the machine's own where
/// an administrator alone may make devices: who may not make one cannot harm it either.
inline std::string fullDevice(const std::string& folder) {
  const std::string device = folder + "full";
  const bool made = mknod(device.c_str(), S_IFCHR | 0600, makedev(1, 7)) == 0;
  if (std::FILE* opened = made ? std::fopen(device.c_str(), "wb") : nullptr) {
    std::fclose(opened);
    return device;
  }
  std::remove(device.c_str());
  return "/dev/full";
}

}  // namespace kestrane::test
