// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/variables.h"

#include <gtest/gtest.h>

#include "core/base/errors.h"

namespace kestrane {
namespace {

TEST(ExpressionVariables, AreReadInTheirOrder) {
  const ExpressionVariables variables = parseExpressionVariables(
      R"( {"z": 0.5, "center": [0, 1, 2.5], "sway": {"value": 3, "control": "wind"},
          "gap": {"value": 2, "unit": "length"}} )");
  ASSERT_EQ(variables.size(), 4u);
  EXPECT_EQ(variables[0].name, "z");
  EXPECT_EQ(variables[0].value.x, 0.5f);
  EXPECT_FALSE(variables[0].isVector);
  EXPECT_TRUE(variables[1].isVector);
  EXPECT_EQ(variables[1].value, (Vec3f{0, 1, 2.5f}));
  EXPECT_EQ(variables[2].value.x, 3.0f);
  EXPECT_EQ(variables[2].control, "wind");
  EXPECT_EQ(variables[3].unit, "length");
  for (const char* empty : {"", " \n", "{}"}) EXPECT_TRUE(parseExpressionVariables(empty).empty());
}

TEST(ExpressionVariables, MessagesAreExact) {
  const std::string object = "variables are a JSON object of numbers and vectors";
  const auto neither = [](const char* name) {
    return std::string(name) + " is neither a number nor a vector of three";
  };
  const auto noName = [](const char* name) {
    return "'" + std::string(name) + "' is not a variable name (letters, digits and _)";
  };
  const std::pair<const char*, std::string> cases[] = {
      {"[1]", object},
      {"3", object},
      {"{\"a\": 1", object},
      {"nonsense", object},
      {"{\"a b\": 1}", noName("a b")},
      {"{\"$a\": 1}", noName("$a")},
      {"{\"\": 1}", noName("")},
      {"{\"\xC3\xA9\": 1}", noName("\xC3\xA9")},
      {"{\"a\": \"1\"}", neither("a")},
      {"{\"a\": null}", neither("a")},
      {"{\"a\": true}", neither("a")},
      {"{\"a\": [1, 2]}", neither("a")},
      {"{\"a\": [1, 2, \"3\"]}", neither("a")},
      {"{\"a\": 1e60}", neither("a")},
      {"{\"a\": {\"control\": \"b\"}}", neither("a")},
      {"{\"a\": {\"value\": [1, 2, 3]}}", neither("a")},
      {"{\"a\": {\"value\": 1, \"control\": 2}}", neither("a")},
      {"{\"a\": {\"value\": 1, \"unit\": \"mass\"}}", neither("a")},
  };
  for (const auto& [json, message] : cases) {
    try {
      parseExpressionVariables(json);
      ADD_FAILURE() << json << " is accepted";
    } catch (const ExpressionError& error) {
      EXPECT_EQ(error.what(), message) << json;
    }
  }
  EXPECT_THROW(parseExpressionVariables(std::string(100000, '[')), ExpressionError);
}

}  // namespace
}  // namespace kestrane
