// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/evaluation_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "core/base/json.h"
#include "core/graph/graph_document.h"
#include "core/graph/operator_registry.h"
#include "hosts/cli/console.h"
#include "hosts/cli/progress.h"

namespace kestrane {

namespace {

struct Setting {
  std::string node;
  std::string param;
  Json value;
};

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
  throw CommandFailure(exitUsage, "--set " + text + ": " + why);
}

Setting parseSetting(const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::size_t dot = equals == std::string::npos ? equals : text.rfind('.', equals);
  if (dot == std::string::npos || dot == 0 || dot + 1 == equals) {
    refuse(text, "expected NODE.PARAM=JSON");
  }
  Setting setting{text.substr(0, dot), text.substr(dot + 1, equals - dot - 1), {}};
  try {
    setting.value = parseJson(std::string_view(text).substr(equals + 1));
  } catch (const std::exception& error) {
    refuse(text, std::string("the value is no JSON (") + error.what() +
                     "); a word needs its quotes: NODE.PARAM='\"word\"'");
  }
  return setting;
}

/// Whether a parameter declared with one kind may hold a value of another.
bool kindsFit(const ParamSpec& spec, ParamKind given) {
  const ParamKind declared = kindOf(spec.defaultValue);
  if (given == declared) return true;
  if (declared == ParamKind::number && given == ParamKind::integer) return true;
  return given == ParamKind::map && (spec.mappable() || spec.vectorExpression);
}

void checkSetting(const std::string& text, const Setting& setting, const std::string& type) {
  const auto op = OperatorRegistry::instance().create(type);
  const std::vector<ParamSpec> specs = effectiveParams(*op);
  const auto spec = std::find_if(specs.begin(), specs.end(), [&](const ParamSpec& candidate) {
    return candidate.name == setting.param;
  });
  if (spec == specs.end()) {
    std::string names;
    for (const ParamSpec& known : specs) names += (names.empty() ? "" : ", ") + known.name;
    refuse(text, type + " has no parameter '" + setting.param + "'" +
                     (names.empty() ? "" : "; it has " + names));
  }
  const ParamValue value = paramValueFromJson(setting.param, setting.value);
  if (!kindsFit(*spec, kindOf(value))) {
    refuse(text, "'" + setting.param + "' takes a " +
                     std::string(kindWord(kindOf(spec->defaultValue))) + ", not a " +
                     std::string(kindWord(kindOf(value))));
  }
  const auto* word = std::get_if<std::string>(&value);
  if (word != nullptr && !spec->choices.empty() &&
      std::find(spec->choices.begin(), spec->choices.end(), *word) == spec->choices.end()) {
    std::string choices;
    for (const std::string& choice : spec->choices) {
      choices += (choices.empty() ? "" : ", ") + choice;
    }
    refuse(text, "'" + setting.param + "' is one of " + choices);
  }
}

/// In a graph that loads.
Json* findNode(Json& graph, const std::string& name) {
  const auto nodes = graph.find("nodes");
  if (nodes == graph.end()) return nullptr;
  for (Json& node : *nodes) {
    if (node.contains("name") && node["name"] == name) return &node;
  }
  return nullptr;
}

}  // namespace

void EvaluationOptions::declare(CLI::App& command) {
  const auto setFrame = [this](const double& value) {
    if (!std::isfinite(value)) throw CLI::ValidationError("--frame", "must be a finite number");
    frame = value;
  };
  // The library's own range lets through what is no number.
  const auto setDetail = [this](const float& value) {
    if (!(value >= 0.0f && value <= 1.0f)) throw CLI::ValidationError("--detail", "must be 0 to 1");
    detail = value;
  };
  command.add_option_function<double>("--frame", setFrame, "The frame to evaluate (0 unless told)");
  command.add_option("--view", view, "viewport or render (render unless told)")
      ->check(CLI::IsMember({"viewport", "render"}));
  command.add_option_function<float>("--detail", setDetail,
                                     "Level of detail and preview density, 0 to 1");
  command
      .add_option("--set", settings,
                  "A parameter for this run alone, as NODE.PARAM=JSON; may be given many times")
      ->allow_extra_args(false);
}

EvaluateRequest EvaluationOptions::request() const {
  EvaluateRequest request;
  request.time = frame;
  request.viewport = view == "viewport";
  request.detail = detail;
  return request;
}

GroomDocument readGroom(const std::string& path) {
  try {
    return readGroomFile(path);
  } catch (const std::bad_alloc&) {
    throw CommandFailure(exitUnreadable, path + ": the file needs more memory than there is");
  } catch (const std::exception& error) {
    const std::string text = error.what();
    const bool named = text.find(path) != std::string::npos;
    throw CommandFailure(exitUnreadable, named ? text : path + ": " + text);
  }
}

std::vector<std::string> searchFolders(const GroomDocument& document, const std::string& path) {
  std::vector<std::string> folders = document.searchPaths;
  const std::string own = std::filesystem::path(path).parent_path().string();
  folders.push_back(own.empty() ? "." : own);
  return folders;
}

void applySettings(GroomDocument& document, const std::vector<std::string>& settings) {
  if (settings.empty()) return;
  // A setting is to blame only where there is a graph for it.
  if (document.graph.is_null() || document.graph.empty()) {
    throw CommandFailure(exitFailed, "the groom has no graph");
  }
  try {
    (void)graphFromJson(document.graph);
  } catch (const std::runtime_error& error) {
    throw CommandFailure(exitFailed, error.what());
  }
  for (const std::string& text : settings) {
    const Setting setting = parseSetting(text);
    Json* const node = findNode(document.graph, setting.node);
    if (node == nullptr) refuse(text, "the groom has no node '" + setting.node + "'");
    try {
      checkSetting(text, setting, (*node)["type"].get<std::string>());
    } catch (const GraphError& error) {
      refuse(text, error.what());
    }
    Json& params = (*node)["params"];
    if (!params.is_object()) params = Json::object();
    params[setting.param] = setting.value;
  }
}

void loadGroom(GroomSession& session, const std::string& path,
               const std::vector<std::string>& settings) {
  GroomDocument document = readGroom(path);
  applySettings(document, settings);
  document.searchPaths = searchFolders(document, path);
  if (const auto message = session.load(document)) {
    throw CommandFailure(exitFailed, message->text);
  }
}

std::vector<SessionMessage> evaluateGroom(GroomSession& session, const EvaluateRequest& request,
                                          const Console& console) {
  std::vector<SessionMessage> messages;
  {
    const Progress progress(console, "Growing");
    messages = session.evaluate(request);
  }
  console.report(messages);
  return messages;
}

StrandSetPtr growStrands(GroomSession& session, const EvaluateRequest& request,
                         const Console& console) {
  if (hasErrors(evaluateGroom(session, request, console))) throw CommandFailure(exitFailed, "");
  StrandSetPtr strands = session.strands();
  if (!strands) throw CommandFailure(exitFailed, "the groom gives no strands");
  return strands;
}

bool hasErrors(const std::vector<SessionMessage>& messages) {
  return std::any_of(messages.begin(), messages.end(),
                     [](const SessionMessage& message) { return message.isError; });
}

}  // namespace kestrane
