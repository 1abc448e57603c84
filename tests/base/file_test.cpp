// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/file.h"

#include <gtest/gtest.h>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#endif

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/temp_folder.h"

namespace kestrane {
namespace {

namespace fs = std::filesystem;

template <class Action>
std::string messageOf(const Action& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

/// A folder of its own for each test.
class Files : public testing::Test {
 protected:
  void SetUp() override {
    folder_ =
        fs::path(testing::TempDir()) /
        (std::string("kestrane_") + testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path(const char* name) const { return (folder_ / name).string(); }
  std::size_t fileCount() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
  }

  fs::path folder_;
};

TEST_F(Files, BytesReadBackAsWritten) {
  std::string bytes = "text\r\n";
  for (int i = 0; i < 200000; ++i) bytes += static_cast<char>(i * 7);
  for (const std::string& content : {bytes, std::string()}) {
    writeWholeFile(path("a"), content);
    EXPECT_EQ(readWholeFile(path("a")), content);
  }
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(Files, TargetStaysOldUntilTheCommit) {
  writeWholeFile(path("a"), "old");
  {
    OutputFile file(path("a"));
    file.write(std::string(1 << 20, 'n'));
    EXPECT_EQ(readWholeFile(path("a")), "old");
    EXPECT_EQ(fileCount(), 2u);
  }
  EXPECT_EQ(readWholeFile(path("a")), "old");
  EXPECT_EQ(fileCount(), 1u) << "an uncommitted file left something behind";
  OutputFile file(path("a"));
  file.write("new");
  file.commit();
  EXPECT_EQ(readWholeFile(path("a")), "new");
  EXPECT_THROW(file.write("more"), std::runtime_error);
  EXPECT_THROW(file.commit(), std::runtime_error);
  EXPECT_EQ(readWholeFile(path("a")), "new");
}

TEST_F(Files, FilesOfTheTemporaryNameAreNotTouched) {
  writeWholeFile(path("a.tmp0"), "mine");
  OutputFile one(path("a")), other(path("a"));
  one.write("one");
  other.write("other");
  one.commit();
  EXPECT_EQ(readWholeFile(path("a")), "one");
  other.commit();
  EXPECT_EQ(readWholeFile(path("a")), "other");
  EXPECT_EQ(readWholeFile(path("a.tmp0")), "mine");
  EXPECT_EQ(fileCount(), 2u);
}

TEST_F(Files, ThreadsWritingOneTargetLeaveOneWholeFile) {
  std::vector<std::thread> writers;
  for (char c = 'a'; c < 'e'; ++c) {
    writers.emplace_back([this, c] { writeWholeFile(path("a"), std::string(100000, c)); });
  }
  for (std::thread& writer : writers) writer.join();
  const std::string text = readWholeFile(path("a"));
  EXPECT_EQ(text, std::string(100000, text.front()));
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(Files, WhatCannotBeReadOrWrittenIsNamed) {
  const std::string folder = folder_.string(), missing = path("none/a");
  EXPECT_EQ(messageOf([&] { readWholeFile(folder); }), "cannot read '" + folder + "'");
  EXPECT_EQ(messageOf([&] { readWholeFile(missing); }), "cannot read '" + missing + "'");
  EXPECT_EQ(messageOf([&] { readWholeFile(""); }), "cannot read ''");
  EXPECT_EQ(messageOf([&] { OutputFile file(folder); }), "cannot write '" + folder + "'");
  EXPECT_EQ(messageOf([&] { OutputFile file(missing); }), "cannot write '" + missing + "'");
  EXPECT_EQ(messageOf([&] { OutputFile file(""); }), "cannot write ''");
  EXPECT_EQ(fileCount(), 0u);
}

TEST_F(Files, TargetThatBecomesAFolderFailsTheCommit) {
  OutputFile file(path("a"));
  file.write("text");
  fs::create_directory(path("a"));
  EXPECT_EQ(messageOf([&] { file.commit(); }), "cannot write '" + path("a") + "'");
}

#ifndef _WIN32

TEST_F(Files, LinksKeepPointingAndPermissionsStay) {
  writeWholeFile(path("target"), "old");
  fs::permissions(path("target"), fs::perms(0640));
  fs::create_symlink("target", path("link"));
  fs::create_symlink("fresh", path("dangling"));
  writeWholeFile(path("link"), "new");
  writeWholeFile(path("dangling"), "born");
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(readWholeFile(path("target")), "new");
  EXPECT_EQ(fs::status(path("target")).permissions(), fs::perms(0640));
  EXPECT_TRUE(fs::is_symlink(path("dangling")));
  EXPECT_EQ(readWholeFile(path("fresh")), "born");
  EXPECT_EQ(fileCount(), 4u);
}

// These tests make what they write to: were they pointed at the machine's own devices, a fault in
// the code would replace those.

TEST_F(Files, PipesAreWrittenAndNeverReplaced) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  writeWholeFile(path("pipe"), "through");
  char text[16] = {};
  EXPECT_EQ(read(reader, text, sizeof(text)), 7);
  close(reader);
  EXPECT_STREQ(text, "through");
  EXPECT_TRUE(fs::is_fifo(path("pipe")));
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(Files, FullDeviceFailsAndStays) {
  // Small texts fail at the commit, large ones at the write.
  const std::string full = test::fullDevice(path(""));
  const std::size_t files = fileCount();
  for (const std::size_t size : {std::size_t{1}, std::size_t{1} << 20}) {
    EXPECT_EQ(messageOf([&] { writeWholeFile(full, std::string(size, 'x')); }),
              "cannot write '" + full + "'");
  }
  EXPECT_TRUE(fs::is_character_file(full));
  EXPECT_EQ(fileCount(), files);
}

TEST_F(Files, PipesAreReadAndDevicesAreNot) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(write(ends[1], "through", 7), 7);
  close(ends[1]);
  std::string text;
  EXPECT_NO_THROW(text = readWholeFile("/dev/fd/" + std::to_string(ends[0])));
  close(ends[0]);
  EXPECT_EQ(text, "through");
  EXPECT_EQ(messageOf([] { readWholeFile("/dev/null"); }), "cannot read '/dev/null'");
}

TEST_F(Files, WhatHasNoRoomInMemoryCannotBeRead) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers end the program where memory runs out";
#endif
  writeWholeFile(path("vast"), "");
  fs::resize_file(path("vast"), std::uintmax_t{8} << 30);  // takes no room on the disk
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  rlimit small = before;
  small.rlim_cur = rlim_t{4} << 30;
  setrlimit(RLIMIT_AS, &small);
  const std::string message = messageOf([this] { readWholeFile(path("vast")); });
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(message, "cannot read '" + path("vast") + "'");
}

TEST_F(Files, WithoutRoomTheOldFileStays) {
  writeWholeFile(path("a"), "old");
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  std::vector<std::string> messages;
  for (const std::size_t size : {std::size_t{5000}, std::size_t{1} << 20}) {
    rlimit small = before;
    small.rlim_cur = 1000;
    setrlimit(RLIMIT_FSIZE, &small);
    messages.push_back(messageOf([&] { writeWholeFile(path("a"), std::string(size, 'x')); }));
    setrlimit(RLIMIT_FSIZE, &before);
  }
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(messages, std::vector<std::string>(2, "cannot write '" + path("a") + "'"));
  EXPECT_EQ(readWholeFile(path("a")), "old");
  EXPECT_EQ(fileCount(), 1u);
}

#endif

}  // namespace
}  // namespace kestrane
