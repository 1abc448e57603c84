// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/console.h"

#include <cstdio>

#include "core/session/groom_session.h"

namespace kestrane {

namespace {

void say(const std::string& text) {
  // A standard error that cannot be written leaves nobody to tell.
  std::fputs((text + "\n").c_str(), stderr);
}

}  // namespace

void Console::result(std::string_view text) const {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw CommandFailure(exitUnwritable, "cannot write to the standard output");
  }
}

void Console::note(const std::string& text) const {
  if (!quiet) say(text);
}

void Console::warning(const std::string& text) const {
  if (!quiet) say("warning: " + text);
}

void Console::error(const std::string& text) const {
  say("error: " + text);
}

void Console::report(const std::vector<SessionMessage>& messages) const {
  for (const SessionMessage& message : messages) {
    message.isError ? error(message.text) : warning(message.text);
  }
}

}  // namespace kestrane
