// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "core/session/groom_session.h"

namespace CLI {
class App;
}

namespace kestrane {

class Console;

/// What evaluate, export and draw share: which frame, view and detail, and parameters that differ
/// from the file's for this run.
struct EvaluationOptions {
  double frame = 0.0;
  std::string view = "render";
  float detail = 1.0f;
  std::vector<std::string> settings;  // NODE.PARAM=JSON

  /// Declares the options; the record must outlive the parsing.
  void declare(CLI::App& command);
  EvaluateRequest request() const;
};

/// Reads a groom file. Throws CommandFailure (unreadable).
GroomDocument readGroom(const std::string& path);

/// Where files that the groom names are looked for: in its own search paths, then beside its file.
std::vector<std::string> searchFolders(const GroomDocument& document, const std::string& path);

/// Puts settings of the form NODE.PARAM=JSON into the document's graph. Throws CommandFailure:
/// failed for a graph that does not load, usage for a form, node, parameter or value that cannot
/// be.
void applySettings(GroomDocument& document, const std::vector<std::string>& settings);

/// Fills the session from a groom file with the settings applied; textures are also looked for
/// beside the file. Throws CommandFailure; a graph that does not load is a groom that failed.
void loadGroom(GroomSession& session, const std::string& path,
               const std::vector<std::string>& settings);

/// Evaluates, reports the messages and returns them.
std::vector<SessionMessage> evaluateGroom(GroomSession& session, const EvaluateRequest& request,
                                          const Console& console);
/// The same; throws CommandFailure (failed) when there were errors, and returns the strands.
StrandSetPtr growStrands(GroomSession& session, const EvaluateRequest& request,
                         const Console& console);

bool hasErrors(const std::vector<SessionMessage>& messages);

}  // namespace kestrane
