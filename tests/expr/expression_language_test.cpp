// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <locale>
#include <sstream>

#include "core/expr/expression.h"
#include "tests/expr/expression_cases.h"

namespace kestrane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// The message of a compile that must fail.
std::string messageOf(const std::string& text, ExpressionType wanted = ExpressionType::any,
                      const ExpressionEnvironment& environment = {}) {
  try {
    Expression::compile(text, environment, wanted);
  } catch (const ExpressionError& error) {
    return error.what();
  }
  return "no error";
}

/// With variables and one map, as a node gives them.
ExpressionEnvironment nodeEnvironment() {
  static const ExpressionVariables variables =
      parseExpressionVariables(R"({"amount": 0.5, "center": [1, 2, 3], "2nd": 7, "length": 99})");
  return {variables, [](const std::string& name) -> std::shared_ptr<const ExpressionMap> {
            if (name == "broken") throw ExpressionError("map(\"broken\"): the texture map is torn");
            if (name != "mask") return nullptr;
            return std::make_shared<ComponentMap>();
          }};
}

float valueOf(const std::string& text) {
  return Expression::compile(text, nodeEnvironment()).evaluate({});
}

TEST(ExpressionLanguage, NumbersFollowTheGrammar) {
  const std::pair<const char*, double> cases[] = {
      {"1 / 0", 0},
      {"2 ^ 3 ^ 2", 512},
      {"-2 ^ 2", -4},
      {"2 ^ -1", 0.5},
      {"1 < 2 < 3", 1},
      {"3 > 2 > 1", 0},
      {"1 == 0/0", 0},
      {"1 != 1", 0},
      {"2 >= 2", 1},
      {"2 <= 1", 0},
      {"7 - 2 - 1", 4},
      {"8 / 4 / 2", 1},
      {"2 + 3 * 4", 14},
      {"(2 + 3) * 4", 20},
      {"- - 3", 3},
      {"-+-3", 3},
      {"2 * -3", -6},
      {"1 + 1 < 3", 1},
      {"0 ? 1 : 2 ? 3 : 4", 3},
      {"0/0 ? 1 : 2", 2},
      {"pi", 3.1415927f},
      {"$pi", 3.1415927f},
      {".5 + 5.", 5.5},
      {"1e2 + 1E-1", 100.1f},
      {"0x10 + 0x.8p1", 17},
      {"1e999", 0},
      {"-1e999", 0},
      {"1e39", 0},
      {"0x1p9999", 0},
      {"1e-999", 0},
      {"0.0000000000000000000000000000000000000000000001e50", 10000},
      {"1e38 * 100", 0},
      {"3 // a comment\n + 4 # another", 7},
      {"1;", 1},
      {"$a = 2; $a * $a", 4},
      {"$a = 2; $b = $a + 1; $a = $b * $b; $a + $b", 12},
      {"$a = 1 ? 2 : 3 ;\n$a", 2},
      {"$v = [1, 2, 3]; $v.y + $v[2]", 5},
      {"[1, 2, 3].r + [1, 2, 3].g * 10 + [1, 2, 3].b * 100", 321},
      {"[1, 2, 3][0]", 1},
      {"([1, 2, 3] * 2).z", 6},
      {"-[1, 2, 3].y", -2},
      {"$amount", 0.5},
      {"$center.y + $center[0]", 3},
      {"$2nd", 7},
      {"$length", 99},
      {"$amount = 3; $amount", 3},
  };
  for (const auto& [text, value] : cases) {
    EXPECT_FLOAT_EQ(valueOf(text), static_cast<float>(value)) << text;
  }
}

TEST(ExpressionLanguage, VectorsFollowTheGrammar) {
  const std::pair<const char*, Vec3f> cases[] = {
      {"[1, 2, 3] / 0", {0, 0, 0}},
      {"[2, 4, 6] / [2, 0, 3]", {1, 0, 2}},
      {"0 ? 1 : [1, 2, 3]", {1, 2, 3}},
      {"1 ? 1 : [1, 2, 3]", {1, 1, 1}},
      {"1 ? [1, 2, 3] : 9", {1, 2, 3}},
      {"u ? [1, 2, 3] : v + 9", {9, 9, 9}},
      {"2 * [1, 2, 3] - 1", {1, 3, 5}},
      {"10 - [1, 2, 3]", {9, 8, 7}},
      {"[1, 2, 3] ^ 2", {1, 4, 9}},
      {"[1, 2, 3] * [2, 3, 4]", {2, 6, 12}},
      {"-[1, -2, 3]", {-1, 2, -3}},
      {"$v = [1, 2, 3]; $v + $v", {2, 4, 6}},
      {"$center + 1", {2, 3, 4}},
      // An infinity in a value that was assigned goes on as it does in one that was not.
      {"min([1e38, 1, 1] * 100 + [1, 2, 3] * 0, 5)", {5, 5, 5}},
      {"$v = [1e38, 1, 1] * 100 + [1, 2, 3] * 0; min($v, 5)", {5, 5, 5}},
      {"clamp([1, 5, 9], 2, [8, 8, 8])", {2, 5, 8}},
      {"mix(0, [2, 4, 6], 0.5)", {1, 2, 3}},
      {"[sin(0), cos(0), abs(-7)]", {0, 1, 7}},
  };
  for (const auto& [text, value] : cases) {
    const auto expression = Expression::compile(text, nodeEnvironment(), ExpressionType::vector);
    EXPECT_EQ(expression.evaluateVector({}), value) << text;
  }
}

TEST(ExpressionLanguage, MessagesAreExact) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "unexpected end at position 1"},
      {"# only a comment", "unexpected end at position 17"},
      {"1 +", "unexpected end at position 4"},
      {"1 + ;", "unexpected ';' at position 5"},
      {"1 )", "unexpected ')' at position 3"},
      {"u\nv",
       "expected ';' at the end of the line above (only the last line is the value) "
       "(line 2, column 1)"},
      {"1 .", "unexpected '.' at position 3"},
      {"1;;", "unexpected ';' at position 3"},
      {"1; )", "unexpected ')' at position 4"},
      {"a = 3", "unexpected '=' at position 3"},
      {"\xC3\xA9", "unexpected '\xC3\xA9' at position 1"},
      {"1 \xFF", "unexpected '\\xFF' at position 3"},
      {"# \xC3\xA9\n  @", "unexpected '@' (line 2, column 3)"},
      {"$a = 1\n$a", "expected ';' after the value of $a (line 2, column 1)"},
      {"$ + 1", "expected a name after '$' at position 2"},
      {"..5", "bad number at position 1"},
      {"(1", "expected ')' at position 3"},
      {"1 ? 2", "expected ':' at position 6"},
      {"[1,2,3] ? 1 : 2", "a condition is a number, not a vector at position 10"},
      {"1 < [1,2,3]",
       "comparisons are of numbers, not vectors (compare .x, length(...) or dot(...)) at position "
       "12"},
      {"[1, 2]", "a vector is [x, y, z]: expected ',' at position 6"},
      {"[1, 2, 3, 4]", "a vector is [x, y, z]: expected ']' at position 9"},
      {"[[1,2,3], 2, 3]", "a vector's components are numbers at position 9"},
      {"u.x", "a number has no . at position 2"},
      {"(1).x", "a number has no . at position 4"},
      {"P.q", "a vector has .x .y .z (or .r .g .b) at position 3"},
      {"u[0]", "a number has no components to index at position 3"},
      {"P[3]", "a vector's index is 0, 1 or 2 at position 3"},
      {"P[u]", "a vector's index is 0, 1 or 2 at position 3"},
      {"P[1", "expected ']' after the index at position 4"},
      {"$nobody.x", "unknown vector $nobody at position 8"},
      {"$length.x", "$length is a number: it has no . at position 8"},
      {"$amount.x", "$amount is a number: it has no . at position 8"},
      {"$a = 1; $a.x", "$a is a number: it has no . at position 11"},
      {"'mask'", "text in quotes names a map, in map(\"name\") at position 1"},
      {"sin('mask')", "text in quotes names a map, in map(\"name\") at position 5"},
      {"1 'mask'", "text in quotes names a map, in map(\"name\") at position 3"},
      {"1;\"mask\"", "text in quotes names a map, in map(\"name\") at position 3"},
      {"$a = 1 'mask'", "text in quotes names a map, in map(\"name\") at position 8"},
      {"P['x']", "text in quotes names a map, in map(\"name\") at position 3"},
      {"(1 \"", "the quotes are not closed at position 4"},
      {"1 'mask", "the quotes are not closed at position 3"},
      {"map('mask", "the quotes are not closed at position 5"},
      {"\"", "the quotes are not closed at position 1"},
      {"wave(1)", "unknown function 'wave' at position 1"},
      {"sin(1, 2)", "sin takes 1 argument(s), got 2 at position 10"},
      {"sin()", "sin takes 1 argument(s), got 0 at position 6"},
      {"pick(1, 2)", "pick takes 3 to 64 argument(s), got 2 at position 11"},
      {"fbm(P, 1, 2, 3, 4)", "fbm takes 1 to 4 argument(s), got 5 at position 19"},
      {"sin(1", "expected ')' after the arguments of sin at position 6"},
      {"dot(1, P)", "argument 1 of dot is a vector ([x, y, z]) at position 10"},
      {"rotate(P, P, P)", "argument 3 of rotate is a number at position 16"},
      {"fbm(1)", "argument 1 of fbm is a vector ([x, y, z]) at position 7"},
      {"noise(1)", "argument 1 of noise is a vector ([x, y, z]) at position 9"},
      {"noise(1, 2)", "noise takes (x, y, z) or a point (p), got 2 argument(s) at position 12"},
      {"noise()", "noise takes (x, y, z) or a point (p), got 0 argument(s) at position 8"},
      {"noise(P, 1, 2)", "noise's arguments are numbers at position 15"},
      {"rand(P)", "rand's arguments are numbers at position 8"},
      {"curve(P, 0, 1)", "curve's arguments are numbers at position 15"},
      {"voronoi(P, P)", "voronoi's arguments after the point are numbers at position 14"},
      {"curve(t, 0, 1, 1)",
       "curve takes t and pairs of position and value: (t, p0, v0, p1, v1, ...) at position 18"},
      {"linearcurve(t, 0, u)",
       "linearcurve's keys are numbers (or the node's own variables), fixed when the expression "
       "compiles at position 21"},
      {"spline(t, P)",
       "spline's keys are numbers (or the node's own variables), fixed when the expression "
       "compiles at position 13"},
      {"map(u)", "map needs the map's name at position 5"},
      {"cmap()", "cmap needs the map's name at position 6"},
      {"map('other')", "no map named 'other' (Groom Tools > Paint lists them) at position 5"},
      {"map('broken')", "map(\"broken\"): the texture map is torn at position 5"},
      {"map('mask', 'red')",
       "a map's channel is \"r\", \"g\", \"b\", \"a\" or \"luminance\" at position 13"},
      {"map('mask', 5)",
       "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance) at position 13"},
      {"map('mask', u)",
       "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance) at position 13"},
      {"map('mask', 1, 2)", "map takes 1 to 2 argument(s), got 3 at position 17"},
      {"map('mask' 1)", "expected ')' after the arguments of map at position 12"},
      {"cmap('mask', 'r')", "cmap takes the map's name alone (it gives r, g, b) at position 13"},
  };
  for (const auto& [text, message] : cases) {
    const std::string shown = std::string(text) == "1 \xFF" ? "1 \\xFF" : text;
    EXPECT_EQ(messageOf(text, ExpressionType::any, nodeEnvironment()),
              "expression '" + shown + "': " + message);
  }
}

TEST(ExpressionLanguage, OneValueStandsAtTheEnd) {
  for (const char* text : {"1 2", "1;2", "1 a", "1; a", "1 $a", "1 .5", "1;.5", "1 (2)", "1;(2)",
                           "1;[1,2,3]", "1;-1", "1;+1", "1\n(v)"}) {
    EXPECT_THAT(messageOf(text), HasSubstr("': expected ';' at the end of the line above (only the "
                                           "last line is the value) "));
  }
}

TEST(ExpressionLanguage, TypeIsCheckedAgainstTheWantedOne) {
  EXPECT_EQ(messageOf("P", ExpressionType::number),
            "expression 'P' gives a vector; this takes a number (use .x, length(...) or dot(...))");
  EXPECT_EQ(messageOf("u", ExpressionType::vector),
            "expression 'u' gives a number; this takes a vector, e.g. [0, -1, 0] or normalize(N)");
  EXPECT_EQ(Expression::compile("P", {}, ExpressionType::any).type(), ExpressionType::vector);
  EXPECT_EQ(Expression::compile("u", {}, ExpressionType::any).evaluateVector({}), Vec3f());
}

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(ExpressionLanguage, NestingIsBounded) {
  const auto parentheses = [](int count) {
    return repeated("(", count) + "1" + repeated(")", count);
  };
  EXPECT_EQ(valueOf(parentheses(99)), 1.0f);
  const std::string deep = parentheses(1000);
  EXPECT_EQ(messageOf(deep), "expression '" + deep + "' is nested too deeply");
  EXPECT_EQ(valueOf(repeated("-", 198) + "1"), 1.0f);
  for (const char* piece : {"-", "(", "[", "sin(", "1 ? 1 : ", "2 ^ ", "1 ? ", "P[", "min(1, "}) {
    EXPECT_THROW(Expression::compile(repeated(piece, 100000)), ExpressionError) << piece;
  }
}

TEST(ExpressionLanguage, StackIsBounded) {
  // Few levels, yet every definition holds 62 numbers while it reads the one before.
  std::string text = "$a0 = x;\n";
  const auto wide = [](int i) {
    return "$a" + std::to_string(i) + " = pick(" + repeated("1, ", 62) + "rand($a" +
           std::to_string(i - 1) + "));\n";
  };
  for (int i = 1; i <= 12; ++i) text += wide(i);
  const Expression expression = Expression::compile(text + "$a12");
  EXPECT_GT(expression.stackDepth(), 700u);
  EXPECT_EQ(expression.evaluate({}), 1.0f);
  for (int i = 13; i <= 40; ++i) text += wide(i);
  EXPECT_THAT(messageOf(text + "$a40"), HasSubstr("' is nested too deeply"));
}

TEST(ExpressionLanguage, CopiesOfDefinitionsAreBounded) {
  // Each level doubles, less one: level 18 has 2^20 - 1 operations.
  const auto doubling = [](int levels) {
    std::string text = "$a0 = x + x;";
    for (int i = 1; i <= levels; ++i) {
      const std::string before = "$a" + std::to_string(i - 1);
      text += "$a" + std::to_string(i) + " = " + before + " + " + before + ";";
    }
    return text + "$a" + std::to_string(levels);
  };
  EXPECT_EQ(Expression::compile(doubling(18)).instructions().size(), 1048575u);
  ExpressionRecord record;
  record[ExpressionSlot::x] = 0.5f;
  EXPECT_EQ(Expression::compile(doubling(10)).evaluate(record), 1024.0f);
  EXPECT_THAT(messageOf(doubling(19)),
              HasSubstr("': the expression is too long once $a18 is put in where it is read "
                        "(1048576 operations at most): read it in fewer places at position"));
  EXPECT_THROW(Expression::compile(doubling(5000)), ExpressionError);
}

TEST(ExpressionLanguage, CurveTableIsBounded) {
  const std::string sum = repeated("curve(t, 0, 1) + ", 256);
  EXPECT_EQ(valueOf(sum + "0"), 256.0f);
  EXPECT_THAT(messageOf(sum + "curve(t, 0, 1)"), HasSubstr("': too many curves at position"));
}

TEST(ExpressionLanguage, HostileTextsFailWithTheirSentence) {
  const std::string nul("1 + \0 2", 7);
  EXPECT_EQ(messageOf(nul), "expression '1 + \\x00 2': unexpected '\\x00' at position 5");
  EXPECT_EQ(valueOf(repeated("1 + ", 200000) + "1"), 200001.0f);
  EXPECT_THROW(Expression::compile(repeated("u ", 100000)), ExpressionError);
  EXPECT_THROW(Expression::compile("1" + repeated("0", 100000) + "e"), ExpressionError);
  // Every text cut short compiles or says why not.
  const std::string whole =
      "$a = [u, v, 1] * 2; # note\n$b = map('mask', \"r\");\n"
      "$a.x > 0.5 ? curve(t, 0, 1, 1, $amount) : fbm(P * 0x1.8p2, 3) ^ -$b + clumpId";
  for (std::size_t i = 0; i <= whole.size(); ++i) {
    const std::string text = whole.substr(0, i);
    const std::string message = messageOf(text, ExpressionType::number, nodeEnvironment());
    EXPECT_TRUE(message == "no error" || message.starts_with("expression '" + text + "'")) << text;
  }
}

TEST(ExpressionLanguage, NumbersDoNotDependOnTheStreamsLocale) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Comma));
  std::ostringstream shown;
  shown << 1.5;
  EXPECT_EQ(shown.str(), "1,5");
  EXPECT_EQ(valueOf("0.5 + 1.5"), 2.0f);
  std::locale::global(before);
}

TEST(ExpressionLanguage, NumbersDoNotDependOnTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  const char* chosen = nullptr;
  for (const char* name : {"de_DE.UTF-8", "de_DE", "fr_FR.UTF-8", "it_IT.UTF-8", "ru_RU.UTF-8"}) {
    chosen = std::setlocale(LC_ALL, name);
    if (chosen != nullptr) break;
  }
  if (chosen == nullptr) GTEST_SKIP() << "no locale with a decimal comma is installed";
  EXPECT_EQ(std::strtod("1,5", nullptr), 1.5);
  EXPECT_EQ(valueOf("0.5 + 1.5"), 2.0f) << chosen;
  std::setlocale(LC_ALL, before.c_str());
}

TEST(ExpressionLanguage, MapsAreOpenedOnce) {
  std::vector<std::string> opened;
  ExpressionEnvironment environment;
  environment.findMap = [&](const std::string& name) {
    opened.push_back(name);
    return std::make_shared<ComponentMap>();
  };
  const auto expression = Expression::compile(
      "map('b') + map('a', 'r') + map('b', 2) + cmap('b').x + cmap('a').y", environment);
  EXPECT_THAT(opened, ElementsAre("b", "a"));
  EXPECT_THAT(expression.mapNames(), ElementsAre("b", "a"));
}

TEST(ExpressionLanguage, ConstantsAreFolded) {
  const std::pair<const char*, std::size_t> cases[] = {
      {"1 + 2 * sin(3)", 1},
      {"x * (1 + 2)", 3},
      {"dot([1, 2, 3], [4, 5, 6]) + noise(1, 2, 3)", 1},
      {"[1, 2, 3].y", 1},
      {"rand(1)", 2},
      {"curve(0.5, 0, 1)", 2},
      {"P.y", 1},
      {"P", 3},
      {"$a = 2 * 3; $a + $a", 1},
      {"$v = cross([1, 2, 3], [3, 2, 1]); $v.x", 1},
      {"$v = [1, 2, 3] * 2 + [1, 2, 3] * 3; curve(t, 0, $v.x, 1, 1)", 2},
      {"$v = [1, 2, 3] * 2 + [1, 2, 3] * 3; $w = $v * $v + $v; $w.y + $w.z", 1},
      {"cmap('mask')", 3},
      {"0 ? u : [1, 2, v]", 7},
  };
  for (const auto& [text, count] : cases) {
    const auto expression = Expression::compile(text, nodeEnvironment(), ExpressionType::any);
    EXPECT_EQ(expression.instructions().size(), count) << text;
  }
}

TEST(ExpressionLanguage, ReadsAreListed) {
  const auto expression = Expression::compile(
      "clumpId + $longest + F * $wool + map('mask') + map('mask', 'a') + clumpId",
      nodeEnvironment());
  EXPECT_THAT(expression.channelNames(), ElementsAre("clumpId", "wool"));
  EXPECT_THAT(expression.mapNames(), ElementsAre("mask"));
  EXPECT_TRUE(expression.readsTime() && expression.readsWholeSet() && !expression.readsPoints());
  EXPECT_FALSE(expression.readsSeed() || expression.isConstant());
  for (const char* text : {"t", "pt", "px", "pointP", "pz", "$pointIndex"}) {
    EXPECT_TRUE(Expression::compile(text, {}, ExpressionType::any).readsPoints()) << text;
  }
  for (const char* text : {"u", "tip", "lift", "tipz", "frame", "time", "rand", "nx"}) {
    EXPECT_FALSE(Expression::compile(text, {}, ExpressionType::any).readsPoints()) << text;
  }
  EXPECT_TRUE(Expression::compile("rand(3)").readsSeed());
  EXPECT_FALSE(Expression::compile("rand").readsSeed());
  EXPECT_TRUE(Expression::compile("sin(3)").isConstant());
}

TEST(ExpressionLanguage, SlotsAndChannelsAreReadByName) {
  ExpressionRecord record;
  for (std::size_t i = 0; i < expressionSlotCount; ++i) {
    record.slots[i] = static_cast<float>(i) + 1.0f;
  }
  for (std::size_t i = 0; i < expressionSlotCount; ++i) {
    const std::string name(expressionSlotNames[i]);
    EXPECT_EQ(Expression::compile(name).evaluate(record), static_cast<float>(i) + 1.0f) << name;
    EXPECT_EQ(Expression::compile("$" + name).evaluate(record), static_cast<float>(i) + 1.0f);
  }
  EXPECT_EQ(Expression::compile("F").evaluate(record), 25.0f);
  const std::pair<const char*, Vec3f> vectors[] = {
      {"P", {3, 4, 5}}, {"N", {6, 7, 8}}, {"$tip", {16, 17, 18}}, {"pointP", {21, 22, 23}}};
  for (const auto& [text, value] : vectors) {
    EXPECT_EQ(Expression::compile(text, {}, ExpressionType::vector).evaluateVector(record), value);
    EXPECT_EQ(Expression::compile(std::string(text) + ".y").evaluate(record), value.y);
  }
  const std::vector<float> perStrand = {10, 20}, perPoint = {1, 2, 3};
  const ExpressionChannel channels[] = {{perStrand, false}, {perPoint, true}};
  record.strand = 1;
  record.point = 2;
  record.channels = channels;
  EXPECT_EQ(Expression::compile("clumpId + $weight").evaluate(record), 23.0f);
  record.point = 3;
  EXPECT_EQ(Expression::compile("clumpId + $weight + other").evaluate(record), 20.0f);
  record.channels = {};
  EXPECT_EQ(Expression::compile("clumpId").evaluate(record), 0.0f);
}

TEST(ExpressionLanguage, ScanFindsWhatATextMentions) {
  const ExpressionScan scan = Expression::scan(
      "$a = sin(clumpId) * 1e5; // frame\n map ( 'mask', 'r') + cmap(\"skin\") # $b\n + $time.x");
  EXPECT_THAT(scan.names, ElementsAre("clumpId", "x"));
  EXPECT_THAT(scan.dollarNames, ElementsAre("a", "time"));
  EXPECT_THAT(scan.functions, ElementsAre("cmap", "map", "sin"));
  EXPECT_THAT(scan.maps, ElementsAre("mask", "skin"));
  EXPECT_TRUE(scan.readsTime() && scan.readsMaps() && scan.reads("clumpId"));
  EXPECT_FALSE(Expression::scan("u + 'frame' # time").readsTime());
  EXPECT_TRUE(Expression::scan("F").readsTime());
  EXPECT_TRUE(Expression::scan("@ $ 'never closed + frame").names.empty());
}

}  // namespace
}  // namespace kestrane
