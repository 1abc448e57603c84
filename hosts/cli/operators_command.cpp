// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/base/json.h"
#include "core/graph/operator_registry.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/json_text.h"

namespace kestrane {

namespace {

struct Options {
  std::string type;
  bool json = false;
};

/// Wraps words to lines of at most 100 columns, each behind the indentation.
std::string wrapped(const std::string& text, std::size_t indent) {
  std::string result, line(indent, ' ');
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (line.size() > indent && line.size() + word.size() >= 100) {
      result += line + "\n";
      line.assign(indent, ' ');
    }
    line += (line.size() > indent ? " " : "") + word;
  }
  return result + line + "\n";
}

std::string portsText(const Json& ports) {
  std::string text;
  for (const Json& port : ports) {
    text += (text.empty() ? "" : ", ") + port["name"].get<std::string>() + " (" +
            port["type"].get<std::string>() + (port.contains("optional") ? ", optional)" : ")");
  }
  return text.empty() ? "none" : text;
}

std::string paramText(const Json& param) {
  std::string text = "  " + param["name"].get<std::string>() + "  " +
                     param["kind"].get<std::string>() + " " + param["default"].dump();
  if (param.contains("min") || param.contains("max")) {
    text += "  " + (param.contains("min") ? param["min"].dump() : "") + " to " +
            (param.contains("max") ? param["max"].dump() : "any");
  }
  if (param.contains("choices")) {
    text += "  one of";
    for (const Json& choice : param["choices"]) text += " " + choice.get<std::string>();
  }
  return text + "\n" + wrapped(param["description"].get<std::string>(), 6);
}

std::string entryText(const Json& entry) {
  std::string text = entry["type"].get<std::string>() + "  (" +
                     entry["category"].get<std::string>() + ")\n" +
                     wrapped(entry["description"].get<std::string>(), 2);
  text += "inputs  " + portsText(entry["inputs"]) + "\noutput  " +
          portsText(entry.contains("outputs") ? entry["outputs"] : Json::array({entry["output"]})) +
          "\n";
  if (!entry["params"].empty()) text += "parameters\n";
  for (const Json& param : entry["params"]) text += paramText(param);
  return text;
}

std::string overviewText(const Json& catalogue) {
  std::size_t widest = 0;
  for (const Json& entry : catalogue) {
    widest = std::max(widest, entry["type"].get<std::string>().size());
  }
  std::string text;
  for (const Json& entry : catalogue) {
    std::string type = entry["type"].get<std::string>();
    type.resize(widest, ' ');
    text += type + "  " + entry["description"].get<std::string>() + "\n";
  }
  return text;
}

void showOperators(const Options& options, const Console& console) {
  const OperatorRegistry& registry = OperatorRegistry::instance();
  if (options.type.empty()) {
    const Json catalogue = operatorCatalogue();
    console.result(options.json ? jsonText(catalogue) : overviewText(catalogue));
    return;
  }
  if (!registry.has(options.type)) {
    throw CommandFailure(exitUsage, "there is no operator type '" + options.type +
                                        "' (kestrane operators lists them)");
  }
  const Json entry = operatorCatalogueEntry(*registry.create(options.type));
  console.result(options.json ? jsonText(entry) : entryText(entry));
}

}  // namespace

void addOperatorsCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("operators", "List the operators that a graph may hold");
  command->add_option("TYPE", options->type, "One operator, with its parameters");
  command->add_flag("--json", options->json, "The catalogue as JSON");
  command->callback([options, &work] {
    work = [options](const Console& console) { showOperators(*options, console); };
  });
}

}  // namespace kestrane
