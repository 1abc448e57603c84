// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/base/json.h"
#include "core/base/text.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/evaluation_options.h"
#include "hosts/cli/json_text.h"

namespace kestrane {

namespace {

struct Options {
  std::string groom;
  EvaluationOptions evaluation;
  bool json = false;
};

Json messagesJson(const std::vector<SessionMessage>& messages) {
  Json list = Json::array();
  for (const SessionMessage& message : messages) {
    list.push_back(Json{{"text", message.text}, {"isError", message.isError}});
  }
  return list;
}

/// What says something of a groom; figures of parts that it lacks are left out.
std::string statsText(const GroomStats& stats) {
  std::string text = "strands  " + std::to_string(stats.strands) + "\npoints   " +
                     std::to_string(stats.points) + "\nguides   " + std::to_string(stats.guides) +
                     "\nview     " + stats.view + "\nchannels";
  for (const std::string& name : stats.channels) text += " " + name;
  text += "\n";
  for (const auto& [node, milliseconds] : stats.times) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-20s %10.2f ms", node.c_str(), milliseconds);
    text += line;
    for (const auto& [name, run] : stats.runs) {
      if (name == node) text += "  " + run;
    }
    text += "\n";
  }
  return text;
}

std::string resultJson(const std::vector<SessionMessage>& messages, const GroomSession& session) {
  return jsonText(Json{{"messages", messagesJson(messages)}, {"stats", session.stats().toJson()}});
}

void evaluate(const Options& options, const Console& console) {
  GroomSession session;
  try {
    loadGroom(session, options.groom, options.evaluation.settings);
  } catch (const CommandFailure& failure) {
    if (options.json && failure.code == exitFailed) {
      console.result(resultJson({{failure.what(), true}}, session));
    }
    throw;
  }
  const auto messages = evaluateGroom(session, options.evaluation.request(), console);
  if (options.json) {
    console.result(resultJson(messages, session));
  } else if (!hasErrors(messages)) {
    console.result(statsText(session.stats()));
  }
  if (hasErrors(messages)) throw CommandFailure(exitFailed, "");
}

}  // namespace

void addEvaluateCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("evaluate", "Grow the strands and say how it went");
  command->add_option("FILE.groom", options->groom, "The groom")->required();
  command->add_flag("--json", options->json, "Messages and figures as JSON");
  options->evaluation.declare(*command);
  command->callback([options, &work] {
    work = [options](const Console& console) { evaluate(*options, console); };
  });
}

}  // namespace kestrane
