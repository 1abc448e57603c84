// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "core/base/json.h"
#include "core/expr/expression.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/json_text.h"

namespace kestrane {

namespace {

struct Options {
  std::string text;
  std::string variables;
  bool json = false;
};

/// What a value is made of, with as many digits as a float has.
std::string valueText(const Json& value) {
  const auto number = [](const Json& json) {
    char text[40];
    std::snprintf(text, sizeof text, "%.9g", json.get<double>());
    return std::string(text);
  };
  if (!value.is_array()) return number(value) + "\n";
  return number(value[0]) + " " + number(value[1]) + " " + number(value[2]) + "\n";
}

/// The value with every variable and channel at 0.
Json valueOf(const Expression& expression) {
  const std::vector<ExpressionChannel> channels(expression.channelNames().size());
  ExpressionRecord record;
  record.channels = channels;
  if (expression.type() == ExpressionType::number) return expression.evaluate(record);
  const Vec3f vector = expression.evaluateVector(record);
  return Json::array({vector.x, vector.y, vector.z});
}

ExpressionVariables readVariables(const std::string& text) {
  try {
    return parseExpressionVariables(text);
  } catch (const std::exception& error) {
    throw CommandFailure(exitUsage, std::string("--variables: ") + error.what());
  }
}

void evaluateText(const Options& options, const Console& console) {
  const ExpressionVariables variables = readVariables(options.variables);
  ExpressionEnvironment environment;
  environment.variables = variables;
  try {
    const Expression expression =
        Expression::compile(options.text, environment, ExpressionType::any);
    const Json value = valueOf(expression);
    console.result(options.json ? jsonText(Json{{"value", value}}) : valueText(value));
  } catch (const ExpressionError& error) {
    if (options.json) console.result(jsonText(Json{{"error", error.what()}}));
    throw CommandFailure(exitFailed, error.what());
  }
}

}  // namespace

void addExpressionCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("expression", "Compile an expression and print its value");
  command->add_option("TEXT", options->text, "The expression; behind -- where it begins with a -")
      ->required();
  command->add_option("--variables", options->variables,
                      "The node's own variables, as a JSON object from name to value");
  command->add_flag("--json", options->json, "The value or the error as JSON");
  command->callback([options, &work] {
    work = [options](const Console& console) { evaluateText(*options, console); };
  });
}

}  // namespace kestrane
