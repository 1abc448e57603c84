// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kestrane {

struct SessionMessage;

/// How the program ends.
enum ExitCode {
  exitDone = 0,
  exitFailed = 1,      // the groom or a check failed
  exitUsage = 2,       // wrong usage
  exitUnreadable = 3,  // input cannot be read
  exitUnwritable = 4,  // output cannot be written
};

/// A failure that ends a command: what to tell the user, and the exit code. An empty text says that
/// everything has been said.
struct CommandFailure : std::runtime_error {
  CommandFailure(ExitCode exitCode, const std::string& text)
      : std::runtime_error(text), code(exitCode) {}
  ExitCode code;
};

/// Where a command speaks: results on the standard output, the rest on the standard error.
class Console {
 public:
  bool quiet = false;  // no progress, notes or warnings; errors and results stay

  /// Throws CommandFailure (unwritable) when the output does not take it.
  void result(std::string_view text) const;
  void note(const std::string& text) const;
  void warning(const std::string& text) const;
  void error(const std::string& text) const;
  void report(const std::vector<SessionMessage>& messages) const;
};

}  // namespace kestrane
