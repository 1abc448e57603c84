// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace kestrane {

/// The bytes of a whole file or pipe. Throws std::runtime_error "cannot read 'PATH'" for anything
/// else (a folder or a device too), and for a file that has no room in memory.
std::string readWholeFile(const std::string& path);

/// The path that symbolic links at the end of this one lead to, there yet or not.
std::string followLinks(const std::string& path);

/// A file being written. The bytes go to a temporary file beside the target, which commit() moves
/// into place, so that the target is either the old file or the whole new one. A target that exists
/// and is no plain file (a device, a pipe) is written to directly and never replaced; one that may
/// not be written is not replaced either. Without a commit the destructor removes the temporary
/// file. Not thread-safe.
class OutputFile {
 public:
  /// Throws std::runtime_error "cannot write 'PATH'" where the file cannot be opened.
  explicit OutputFile(std::string path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Throws std::runtime_error "cannot write 'PATH'" when the disk is full or the write fails.
  void write(std::string_view bytes);
  /// Closes the file and moves the file into place; throws like write.
  void commit();

 private:
  void openBeside(const std::filesystem::file_status& status);
  [[noreturn]] void fail() const;

  std::string path_;
  std::string target_;         // the path with links followed
  std::string temporaryPath_;  // empty when the target is written directly
  std::FILE* file_ = nullptr;
};

/// Writes a whole file through OutputFile.
void writeWholeFile(const std::string& path, std::string_view bytes);

}  // namespace kestrane
