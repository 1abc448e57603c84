// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/param_value.h"
#include "core/base/json.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <set>

#include "core/base/errors.h"

namespace kestrane {
namespace {

ParamValue read(const char* text) {
  return paramValueFromJson("p", Json::parse(text));
}

std::string errorOf(const char* text) {
  try {
    read(text);
  } catch (const GraphError& error) {
    return error.what();
  }
  return "read";
}

TEST(ParamValue, EachShapeReadsAsItsKindAndIsWrittenAsItCame) {
  const struct {
    const char* text;
    const char* kind;
  } cases[] = {
      {"true", "bool"},
      {"-9223372036854775808", "int"},
      {"9223372036854775807", "int"},
      {"0.25", "float"},
      {"1.0", "float"},
      {R"("even")", "string"},
      {"[0.1,2.0,-3.0]", "vec3"},
      {R"({"keys":[[0.0,0.1],[1.0,2.0]]})", "ramp"},
      {R"({"keys":[],"linear":true})", "ramp"},
      {R"({"texture":"a.png"})", "map"},
      {R"({"colorSet":"c","component":"g"})", "map"},
      {R"({"attribute":"a","min":0.1})", "map"},
      {R"({"expression":"$x","min":2.0,"max":-1.0})", "map"},
      {R"({"guide":"g","component":"a","max":0.5})", "map"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const ParamValue value = read(c.text);
    EXPECT_EQ(kindWord(kindOf(value)), c.kind);
    EXPECT_EQ(paramValueToJson(value).dump(), c.text);
    EXPECT_EQ(hashValue(paramValueFromJson("p", paramValueToJson(value))), hashValue(value));
  }
}

TEST(ParamValue, OtherSpellingsReadTheSame) {
  EXPECT_EQ(read("[[1, 2], [0, 1]]"), read(R"({"keys": [[0, 1], [1, 2]], "linear": false})"));
  EXPECT_EQ(read("[1, 2, 3]"), ParamValue(Vec3f{1, 2, 3}));
  EXPECT_EQ(read(R"({"texture": "t", "luminance": true})"), read(R"({"texture": "t"})"));
  EXPECT_EQ(read(R"({"texture": "t", "luminance": true, "component": "r", "other": 1})"),
            read(R"({"texture": "t", "component": "r"})"));
}

TEST(ParamValue, WhatIsNoValueIsToldInASentence) {
  const char* source =
      "map for param 'p' needs exactly one of texture, colorSet, attribute, "
      "expression, guide";
  const char* keys = "ramp for param 'p' needs keys [[position, value], ...]";
  const char* unsupported = "unsupported value for param 'p'";
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {"9223372036854775808", "param 'p' is out of range for an integer"},
      {"null", unsupported},
      {"[1, 2]", unsupported},
      {"[1, 2, 3, 4]", unsupported},
      {R"([1, "2", 3])", unsupported},
      {"[1e39, 0, 0]", "param 'p' is out of range for a float"},
      {R"({"keys": 3})", keys},
      {R"({"keys": [[1]]})", keys},
      {R"({"keys": [[0, 1]], "linear": 1})", keys},
      {"[[0, 1], 2]", keys},
      {"{}", source},
      {R"({"texture": "a", "guide": "b"})", source},
      {R"({"texture": "a", "guide": "b", "expression": "c"})", source},
      {R"({"min": 1})", source},
      {R"({"guide": 3})", unsupported},
      {R"({"guide": "g", "component": "x"})", "map for param 'p': unknown component 'x'"},
      {R"({"guide": "g", "component": 2})", "map for param 'p': unknown component '2'"},
      {R"({"guide": "g", "luminance": "yes"})", unsupported},
      {R"({"guide": "g", "min": "0"})", unsupported},
      {R"({"guide": "g", "max": null})", unsupported},
      {R"({"guide": "g", "max": -1e300})", "map for param 'p': max is out of range for a float"},
  };
  for (const auto& c : cases) EXPECT_EQ(errorOf(c.text), c.message) << c.text;
}

TEST(ParamValue, HashesTellKindsAndContentsApart) {
  const char* texts[] = {"true",
                         "false",
                         "0",
                         "1",
                         "0.0",
                         "-0.0",
                         "1.0",
                         R"("")",
                         R"("1")",
                         "[0,0,0]",
                         "[0,0,1]",
                         "[0,1,0]",
                         R"({"keys":[]})",
                         R"({"keys":[],"linear":true})",
                         R"({"keys":[[0,1]]})",
                         R"({"texture":"a"})",
                         R"({"guide":"a"})",
                         R"({"guide":"a","component":"r"})",
                         R"({"guide":"a","min":1})",
                         R"({"guide":"a","max":0})"};
  std::set<std::uint64_t> seen;
  for (const char* text : texts) {
    EXPECT_TRUE(seen.insert(hashValue(read(text))).second) << text;
  }
}

TEST(MapRef, ARangeScalesAndNeverOverflows) {
  MapRef map;
  map.min = 0.2f;
  map.max = 0.9f;
  EXPECT_EQ(map.scaled(0.3f), 0.2f + (0.9f - 0.2f) * 0.3f);
  EXPECT_EQ(map.scaled(3.0f), 0.2f + (0.9f - 0.2f) * 3.0f) << "no clamp";
  map.min = -3e38f;
  map.max = 3e38f;
  EXPECT_EQ(map.scaled(0.0f), -3e38f);
  EXPECT_EQ(map.scaled(0.5f), 0.0f);
  EXPECT_EQ(map.scaled(1.0f), 3e38f);
  EXPECT_EQ(map.scaled(Vec3f{2.0f, -1.0f, 0.5f}), (Vec3f{FLT_MAX, -FLT_MAX, 0.0f}));
  EXPECT_TRUE(std::isnan(map.scaled(std::nanf("")))) << "what is no number stays none";
}

}  // namespace
}  // namespace kestrane
