// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/file.h"

#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>

namespace kestrane {

namespace fs = std::filesystem;

std::string readWholeFile(const std::string& path) {
  const auto fail = [&] { return std::runtime_error("cannot read '" + path + "'"); };
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  // A device need not end.
  if (!fs::is_regular_file(status) && !fs::is_fifo(status)) throw fail();
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  if (!file) throw fail();
  const std::uintmax_t expected = fs::is_regular_file(status) ? fs::file_size(path, error) : 0;
  std::string bytes;
  try {
    if (!error) bytes.reserve(expected + 1);
    char buffer[1 << 16];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0) {
      bytes.append(buffer, count);
    }
  } catch (const std::bad_alloc&) {
    throw fail();
  } catch (const std::length_error&) {
    throw fail();
  }
  if (std::ferror(file.get())) throw fail();
  return bytes;
}

std::string followLinks(const std::string& path) {
  std::error_code error;
  fs::path target = path;
  for (int links = 0; links < 40 && fs::is_symlink(fs::symlink_status(target, error)); ++links) {
    target = target.parent_path() / fs::read_symlink(target, error);
  }
  return target.string();
}

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  if (path_.empty() || fs::is_directory(status)) fail();
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    file_ = std::fopen(path_.c_str(), "wb");
  } else {
    openBeside(status);
  }
  if (file_ == nullptr) fail();
}

/// Opens a new file beside the target, which has this status.
void OutputFile::openBeside(const fs::file_status& status) {
  std::error_code error;
  // A link is followed, so that it keeps pointing at the file that it points at.
  target_ = followLinks(path_);
  if (fs::exists(status)) {
    // A file that is protected against writing is not replaced either.
    std::FILE* old = std::fopen(target_.c_str(), "r+b");
    if (old == nullptr) return;
    std::fclose(old);
  }
  // Opening fails where the name is taken: by another writer, or by somebody's own file.
  for (int number = 0; number < 1000 && file_ == nullptr; ++number) {
    const std::string name = target_ + ".tmp" + std::to_string(number);
    file_ = std::fopen(name.c_str(), "wbx");
    if (file_ != nullptr) temporaryPath_ = name;
    if (file_ == nullptr && errno != EEXIST) return;
  }
  if (file_ != nullptr && fs::exists(status)) {
    fs::permissions(temporaryPath_, status.permissions(), error);
  }
}

OutputFile::~OutputFile() {
  if (file_ != nullptr) std::fclose(file_);
  if (!temporaryPath_.empty()) std::remove(temporaryPath_.c_str());
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
  fs::rename(temporaryPath_, target_, error);
  if (error) fail();
  temporaryPath_.clear();
}

void writeWholeFile(const std::string& path, std::string_view bytes) {
  OutputFile file(path);
  file.write(bytes);
  file.commit();
}

}  // namespace kestrane
