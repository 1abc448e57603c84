// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/file.h"

#include <atomic>
#include <filesystem>
#include <stdexcept>

namespace kestrane {

namespace fs = std::filesystem;

std::string readWholeFile(const std::string& path) {
  const auto fail = [&] { return std::runtime_error("cannot read '" + path + "'"); };
  std::error_code error;
  if (fs::is_directory(path, error)) throw fail();
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw fail();
  std::string bytes;
  const auto expected = fs::is_regular_file(path, error) ? fs::file_size(path, error) : 0;
  if (!error) bytes.reserve(expected + 1);
  char buffer[1 << 16];
  std::size_t count = 0;
  while ((count = std::fread(buffer, 1, sizeof(buffer), file)) > 0) bytes.append(buffer, count);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) throw fail();
  return bytes;
}

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  const bool direct = fs::exists(status) && !fs::is_regular_file(status);
  if (fs::is_directory(status)) fail();
  if (!direct) {
    // A link is followed, so that it keeps pointing at the file that it points at. The number keeps
    // two writers in one process apart.
    static std::atomic<unsigned> number = 0;
    if (fs::is_symlink(fs::symlink_status(path_, error))) {
      const fs::path target = fs::weakly_canonical(path_, error);
      if (!error) path_ = target.string();
    }
    temporaryPath_ = path_ + ".tmp" + std::to_string(number++);
  }
  file_ = std::fopen((direct ? path_ : temporaryPath_).c_str(), "wb");
  if (file_ == nullptr) {
    temporaryPath_.clear();
    fail();
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr) std::fclose(file_);
  if (!temporaryPath_.empty()) {
    std::error_code error;
    fs::remove(temporaryPath_, error);
  }
}

void OutputFile::fail() const {
  throw std::runtime_error("cannot write '" + path_ + "'");
}

void OutputFile::write(std::string_view bytes) {
  if (file_ == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) fail();
}

void OutputFile::commit() {
  if (file_ == nullptr) fail();
  const bool flushed = std::fflush(file_) == 0 && std::ferror(file_) == 0;
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (!flushed || !closed) fail();
  if (temporaryPath_.empty()) return;
  std::error_code error;
  fs::rename(temporaryPath_, path_, error);
  if (error) fail();
  temporaryPath_.clear();
}

void writeWholeFile(const std::string& path, std::string_view bytes) {
  OutputFile file(path);
  file.write(bytes);
  file.commit();
}

}  // namespace kestrane
