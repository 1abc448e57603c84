// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/text.h"

namespace kestrane {
namespace {

using testing::HasSubstr;

template <class Error, class Action>
std::string messageOf(const Action& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

std::string nested(int levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(Json, RefusesDeepNestingAndNothingShallower) {
  EXPECT_NO_THROW(parseJson(nested(256)));
  const std::string deep = messageOf<std::runtime_error>([] { parseJson(nested(257)); });
  EXPECT_EQ(deep, "the JSON is nested deeper than 256 levels");
  // Objects count, whatever becomes of them; a text's brackets do not.
  std::string objects;
  for (int i = 0; i < 100000; ++i) objects += "{\"a\":";
  EXPECT_EQ(messageOf<std::runtime_error>([&] { parseJson(objects); }), deep);
  EXPECT_NO_THROW(
      parseJson("\"" + std::string(1000, '[') + "\\\"" + std::string(1000, '{') + "\""));
  EXPECT_NO_THROW(parseJson("[" + std::string(1000, ' ') + "[],[],[[]],{}]"));
}

TEST(Json, AHolderMayNestDeeperThanWhatItHolds) {
  const std::string whole = "{\"graph\": " + nested(256) + "}";
  EXPECT_THROW(parseJson(whole), std::runtime_error);
  EXPECT_NO_THROW(parseJson(whole, deepestHolder));
  EXPECT_EQ(messageOf<std::runtime_error>([] { parseJson(nested(265), deepestHolder); }),
            "the JSON is nested deeper than 264 levels");
}

TEST(Json, ParametersAreWholeNumbersOf64BitsOrFloats) {
  const auto read = [](const std::string& value) {
    return messageOf<GraphError>(
        [&] { parseJson("{\"nodes\": [{\"params\": {\"a\": [1], \"seed\": " + value + "}}]}"); });
  };
  const std::string refused = "param 'seed' is out of range for an integer";
  const std::string fine = "nothing was thrown";
  EXPECT_EQ(read("18446744073709551616"), refused);
  EXPECT_EQ(read("-9223372036854775809"), refused);
  EXPECT_EQ(read("18446744073709551616.0"), fine);
  EXPECT_EQ(read("1e30"), fine);
  EXPECT_EQ(read("[18446744073709551616, 0, 0]"), fine) << "a vector's numbers are floats anyhow";
  EXPECT_EQ(read("{\"min\": 18446744073709551616}"), fine);
  EXPECT_EQ(parseJson("{\"a\": 18446744073709551616}").dump(), "{\"a\":1.8446744073709552e+19}");
}

TEST(Json, ReadsWhatTheLibraryReads) {
  const char* texts[] = {"7",
                         "null",
                         "[]",
                         "{}",
                         "[[], {}, [{}]]",
                         "{\"a\": {\"b\": [1, {\"c\": null}], \"d\": 2}}",
                         "{\"a\": 1, \"b\": 2, \"a\": [3]}",
                         "[true, -1, 18446744073709551615, 0.1, \"\\u00e9\"]"};
  for (const char* text : texts) EXPECT_EQ(parseJson(text), Json::parse(text)) << text;
}

TEST(Json, KeepsTheOrderOfKeys) {
  EXPECT_EQ(parseJson(" \t\r\n{\"z\": 1, \"a\": 2}\n").dump(), "{\"z\":1,\"a\":2}");
}

TEST(Json, LastOfRepeatedKeysStandsInTheFirstOnesPlace) {
  EXPECT_EQ(
      parseJson(R"({"b": 1, "a": {"x": 1}, "b": [2], "c": {}, "a": 3, "b": {"y": 4}})").dump(),
      R"({"b":{"y":4},"a":3,"c":{}})");
  std::string text = "{";
  for (std::uint64_t i = 0; i < 500; ++i) {
    if (i > 0) text += ",";
    text += "\"" + std::to_string(mix64(i) % 200) + "\": " + std::to_string(i);
  }
  text += "}";
  EXPECT_EQ(parseJson(text), Json::parse(text));
}

// Corrective layers have an object with a key for every guide.
TEST(Json, ObjectsOfManyKeysAreReadAboutAsFastAsArrays) {
  constexpr int kCount = 60000;
  std::string object = "{", array = "[";
  for (int i = 0; i < kCount; ++i) {
    object += "\"" + std::to_string(i) + "\": [1.5, 0, 0],";
    array += "[1.5, 0, 0],";
  }
  const auto timeOf = [](const std::string& text) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(parseJson(text).size(), kCount + 1u);
    return std::chrono::steady_clock::now() - start;
  };
  // Searching all keys for each one would take a hundred times as long.
  EXPECT_LT(timeOf(object + "\"last\": 1}"), 20 * timeOf(array + "1]"));
}

TEST(Json, EveryCutOfADocumentIsAPlainError) {
  const std::string text = "{\"points\": [1.5e3, -2], \"name\": \"a\\u00e9\\\\\", \"on\": true}";
  ASSERT_NO_THROW(parseJson(text));
  for (std::size_t cut = 0; cut < text.size(); ++cut) {
    const std::string message =
        messageOf<std::runtime_error>([&] { parseJson(text.substr(0, cut)); });
    EXPECT_THAT(message, HasSubstr("parse error")) << "cut at " << cut;
    EXPECT_THAT(message, Not(HasSubstr("json.exception"))) << "cut at " << cut;
  }
  EXPECT_THAT(messageOf<std::runtime_error>([] { parseJson("[1e999]"); }), HasSubstr("1e999"));
}

TEST(Json, VersionsAreCheckedInWords) {
  const struct {
    const char* document;
    const char* message;
  } cases[] = {
      {"[]", "graph must be a JSON object"},
      {"{\"version\": 2.0}", "graph version 2.0 is not a whole number"},
      {"{\"version\": \"1\"}", "graph version \"1\" is not a whole number"},
      {"{\"version\": null}", "graph version null is not a whole number"},
      {"{\"version\": 4}",
       "graph version 4 is newer than this Kestrane supports (3); update Kestrane to open it"},
      {"{\"version\": 18446744073709551615}",
       "graph version 18446744073709551615 is newer than this Kestrane supports (3); update "
       "Kestrane to open it"},
      {"{\"version\": 18446744073709551616}",
       "graph version 1.8446744073709552e+19 is newer than this Kestrane supports (3); update "
       "Kestrane to open it"},
      {"{\"version\": -18446744073709551616}",
       "graph version -1.8446744073709552e+19 is not valid"},
      {"{\"version\": 0}", "graph version 0 is not valid"},
      {"{\"version\": -1}", "graph version -1 is not valid"},
      {"{\"version\": 1}", "graph version 1 is older than this Kestrane reads (2)"},
      {"{\"version\": 2}", "nothing was thrown"},
      {"{\"version\": 3}", "nothing was thrown"},
      {"{}", "nothing was thrown"},
  };
  for (const auto& c : cases) {
    const Json document = parseJson(c.document);
    EXPECT_EQ(messageOf<SchemaError>([&] { checkVersion(document, "graph", 3, 2); }), c.message)
        << c.document;
  }
}

TEST(Text, NumbersAreShortAndReadBackAsTheyWere) {
  const float third = 1.0f / 3.0f;
  const float floats[] = {0.1f,       -0.0f, third, 1e-45f, std::numeric_limits<float>::max(),
                          16777217.0f};
  for (const float value : floats) {
    const double wide = shortestDouble(value);
    EXPECT_EQ(static_cast<float>(wide), value);
    EXPECT_EQ(std::signbit(wide), std::signbit(value));
    std::string fromFloat, fromDouble;
    appendNumber(fromFloat, value);
    appendNumber(fromDouble, wide);
    EXPECT_EQ(std::stod(fromFloat), std::stod(fromDouble));
  }
  EXPECT_EQ(shortestDouble(0.1f), 0.1);
  EXPECT_TRUE(std::isnan(shortestDouble(std::nanf(""))));
  EXPECT_TRUE(std::isinf(shortestDouble(std::numeric_limits<float>::infinity())));
}

TEST(Text, TrimsBlanksAtBothEndsOnly) {
  EXPECT_EQ(trimmed(" \t\r\n a b \n"), "a b");
  EXPECT_EQ(trimmed(" \t\r\n"), "");
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed("\va\v"), "\va\v");
}

}  // namespace
}  // namespace kestrane
