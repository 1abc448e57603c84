// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <map>
#include <optional>

#include "core/expr/cursor.h"
#include "core/expr/evaluate.h"
#include "core/expr/expression.h"
#include "core/expr/functions.h"
#include "core/expr/program_builder.h"

namespace kestrane {

namespace {

using detail::EmittedValue;

constexpr int deepestNesting = 200;

std::optional<ExpressionSlot> slotNamed(std::string_view name) {
  if (name == "F") return ExpressionSlot::frame;
  const auto found = std::find(expressionSlotNames.begin(), expressionSlotNames.end(), name);
  if (found == expressionSlotNames.end()) return std::nullopt;
  return static_cast<ExpressionSlot>(found - expressionSlotNames.begin());
}

/// The first slot of the vectors that every expression can read.
std::optional<ExpressionSlot> vectorNamed(std::string_view name) {
  if (name == "P") return ExpressionSlot::x;
  if (name == "N") return ExpressionSlot::nx;
  if (name == "tip") return ExpressionSlot::tipx;
  if (name == "pointP") return ExpressionSlot::px;
  return std::nullopt;
}

ExpressionSlot offset(ExpressionSlot first, unsigned by) {
  return static_cast<ExpressionSlot>(static_cast<unsigned>(first) + by);
}

std::string countText(const FunctionRow& row) {
  const std::string least = std::to_string(row.least);
  return row.least == row.most ? least : least + " to " + std::to_string(row.most);
}

}  // namespace

/// Reads the text by recursive descent, a function per level of the grammar, and emits as it goes.
class ExpressionParser {
 public:
  ExpressionParser(std::string_view text, const ExpressionEnvironment& environment)
      : text_(text), environment_(environment), cursor_(text) {
    for (const ExpressionVariable& variable : environment.variables) {
      variables_.emplace(variable.name, &variable);
    }
  }

  Expression compile(ExpressionType wanted);

 private:
  using Op = BinaryOperator;

  [[noreturn]] void fail(const std::string& message) const;
  /// With the place of the word that is wrong.
  [[noreturn]] void failAt(std::size_t position, const std::string& message);
  [[noreturn]] void failWhole(const std::string& message) const;
  [[noreturn]] void failUnexpected();

  EmittedValue program();
  void endOfProgram(std::size_t endOfValue);
  /// Takes "$name =" if an assignment begins here, and leaves the cursor alone otherwise.
  std::optional<std::string_view> assignedName();

  EmittedValue conditional();
  EmittedValue comparison();
  EmittedValue sum();
  EmittedValue product();
  EmittedValue unary();
  EmittedValue power();
  EmittedValue postfix();
  EmittedValue primary();

  std::optional<Op> comparisonOperator();
  /// The component that ".x" and the like name, if one stands here.
  std::optional<unsigned> componentName(const std::string& onNumber, bool isVector);
  EmittedValue indexed(EmittedValue value);
  EmittedValue vectorLiteral();
  EmittedValue dollarName();
  EmittedValue nodeVariable(const ExpressionVariable& variable);
  /// A name that is no call and was not assigned: a variable of every expression, or a channel.
  EmittedValue plainName(std::string_view name, bool dollar);

  EmittedValue call(std::string_view name, std::size_t position);
  std::vector<EmittedValue> arguments(std::string_view function);
  const FunctionRow& checkedNoise(const FunctionRow& row, std::span<const EmittedValue> values);
  void checkArguments(const FunctionRow& row, std::span<const EmittedValue> values);
  EmittedValue callCurve(const FunctionRow& row, std::span<const EmittedValue> values);
  EmittedValue callMap(const FunctionRow& row);
  MapComponent mapChannel();
  std::shared_ptr<const ExpressionMap> mapNamed(std::string_view name, std::size_t position);

  /// Counts the levels of recursion that a text asks for.
  class Level {
   public:
    explicit Level(ExpressionParser& parser) : parser_(parser) {
      if (++parser.level_ > deepestNesting) parser.failWhole("is nested too deeply");
    }
    ~Level() { --parser_.level_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    ExpressionParser& parser_;
  };

  std::string_view text_;
  const ExpressionEnvironment& environment_;
  detail::ExpressionCursor cursor_;
  detail::ProgramBuilder builder_;
  std::map<std::string_view, const ExpressionVariable*> variables_;
  std::map<std::string_view, std::size_t> assigned_;  // to the builder's definitions
  std::vector<std::string> mapNames_;
  int level_ = 0;
};

void ExpressionParser::fail(const std::string& message) const {
  const std::string_view before = text_.substr(0, cursor_.position());
  const auto characters = [](std::string_view part) {
    return 1 + std::count_if(part.begin(), part.end(),
                             [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
  };
  std::string whole = "expression '" + detail::printableText(text_) + "': " + message;
  if (text_.find('\n') == std::string_view::npos) {
    whole += " at position " + std::to_string(characters(before));
  } else {
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const auto column = characters(before.substr(before.rfind('\n') + 1));
    whole += " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
  }
  throw ExpressionError(whole);
}

void ExpressionParser::failAt(std::size_t position, const std::string& message) {
  cursor_.moveTo(position);
  fail(message);
}

void ExpressionParser::failWhole(const std::string& message) const {
  throw ExpressionError("expression '" + detail::printableText(text_) + "' " + message);
}

void ExpressionParser::failUnexpected() {
  cursor_.skipSpace();
  if (cursor_.atEnd()) fail("unexpected end");
  fail("unexpected '" + detail::printableCharacter(text_, cursor_.position()) + "'");
}

Expression ExpressionParser::compile(ExpressionType wanted) {
  const EmittedValue value = program();
  if (wanted == ExpressionType::number && value.isVector()) {
    failWhole("gives a vector; this takes a number (use .x, length(...) or dot(...))");
  }
  if (wanted == ExpressionType::vector && !value.isVector()) {
    failWhole("gives a number; this takes a vector, e.g. [0, -1, 0] or normalize(N)");
  }
  if (value.depth > detail::deepestStack) failWhole("is nested too deeply");
  Expression result;
  result.text_ = text_;
  result.type_ = value.type;
  result.instructions_ = builder_.takeProgram();
  result.tables_ = builder_.takeTables();
  result.mapNames_ = std::move(mapNames_);
  result.stackDepth_ = value.depth;
  for (const Instruction& instruction : result.instructions_) {
    if (instruction.op == ExpressionOp::pushVariable) result.slots_ |= 1u << instruction.a;
    if (instruction.op == ExpressionOp::call &&
        instruction.a == static_cast<std::uint8_t>(ExpressionFunction::rand)) {
      result.readsSeed_ = true;
    }
  }
  return result;
}

EmittedValue ExpressionParser::program() {
  while (const auto name = assignedName()) {
    const EmittedValue value = conditional();
    if (!cursor_.accept(";")) fail("expected ';' after the value of $" + std::string(*name));
    assigned_[*name] = builder_.define(value);
  }
  const EmittedValue value = conditional();
  endOfProgram(cursor_.position());
  return value;
}

void ExpressionParser::endOfProgram(std::size_t endOfValue) {
  const bool ended = cursor_.accept(";");
  cursor_.skipSpace();
  if (cursor_.atEnd()) return;
  const char next = cursor_.peek();
  const std::string_view between = text_.substr(endOfValue, cursor_.position() - endOfValue);
  const bool bracketBelow = next == '(' && between.find('\n') != std::string_view::npos;
  if (!ended && (detail::isNameCharacter(next) || next == '$' || next == '.' || bracketBelow)) {
    fail("expected ';' at the end of the line above (only the last line is the value)");
  }
  failUnexpected();
}

std::optional<std::string_view> ExpressionParser::assignedName() {
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  if (cursor_.peek() != '$') return std::nullopt;
  cursor_.skip();
  const std::string_view name = cursor_.name();
  cursor_.skipSpace();
  if (!name.empty() && cursor_.peek() == '=' && cursor_.peek(1) != '=') {
    cursor_.skip();
    return name;
  }
  cursor_.moveTo(start);
  return std::nullopt;
}

EmittedValue ExpressionParser::conditional() {
  const Level level(*this);
  const EmittedValue condition = comparison();
  if (!cursor_.accept("?")) return condition;
  if (condition.isVector()) fail("a condition is a number, not a vector");
  const EmittedValue chosen = conditional();
  if (!cursor_.accept(":")) fail("expected ':'");
  const EmittedValue otherwise = conditional();
  return builder_.select(condition, chosen, otherwise);
}

std::optional<BinaryOperator> ExpressionParser::comparisonOperator() {
  if (cursor_.accept("<=")) return Op::lessOrEqual;
  if (cursor_.accept("<")) return Op::less;
  if (cursor_.accept(">=")) return Op::greaterOrEqual;
  if (cursor_.accept(">")) return Op::greater;
  if (cursor_.accept("==")) return Op::equal;
  if (cursor_.accept("!=")) return Op::notEqual;
  return std::nullopt;
}

EmittedValue ExpressionParser::comparison() {
  EmittedValue left = sum();
  while (const auto comparison = comparisonOperator()) {
    const EmittedValue right = sum();
    if (left.isVector() || right.isVector()) {
      fail("comparisons are of numbers, not vectors (compare .x, length(...) or dot(...))");
    }
    left = builder_.binary(*comparison, left, right);
  }
  return left;
}

EmittedValue ExpressionParser::sum() {
  EmittedValue left = product();
  for (;;) {
    if (cursor_.accept("+")) {
      left = builder_.binary(Op::add, left, product());
    } else if (cursor_.accept("-")) {
      left = builder_.binary(Op::subtract, left, product());
    } else {
      return left;
    }
  }
}

EmittedValue ExpressionParser::product() {
  EmittedValue left = unary();
  for (;;) {
    if (cursor_.accept("*")) {
      left = builder_.binary(Op::multiply, left, unary());
    } else if (cursor_.accept("/")) {
      left = builder_.binary(Op::divide, left, unary());
    } else {
      return left;
    }
  }
}

EmittedValue ExpressionParser::unary() {
  const Level level(*this);
  if (cursor_.accept("-")) return builder_.negate(unary());
  if (cursor_.accept("+")) return unary();
  return power();
}

EmittedValue ExpressionParser::power() {
  const EmittedValue base = postfix();
  if (!cursor_.accept("^")) return base;
  return builder_.binary(Op::power, base, unary());
}

EmittedValue ExpressionParser::postfix() {
  EmittedValue value = primary();
  for (;;) {
    if (const auto index = componentName("a number has no .", value.isVector())) {
      value = builder_.component(value, *index);
    } else if (cursor_.accept("[")) {
      value = indexed(value);
    } else {
      return value;
    }
  }
}

std::optional<unsigned> ExpressionParser::componentName(const std::string& onNumber,
                                                        bool isVector) {
  cursor_.skipSpace();
  if (cursor_.peek() != '.' || !detail::isNameStart(cursor_.peek(1))) return std::nullopt;
  if (!isVector) fail(onNumber);
  cursor_.skip();
  const std::size_t start = cursor_.position();
  const std::string_view name = cursor_.name();
  constexpr std::string_view letters = "xyzrgb";
  const std::size_t letter = letters.find(name.front());
  if (name.size() != 1 || letter == std::string_view::npos) {
    failAt(start, "a vector has .x .y .z (or .r .g .b)");
  }
  return static_cast<unsigned>(letter % 3);
}

EmittedValue ExpressionParser::indexed(EmittedValue value) {
  if (!value.isVector()) fail("a number has no components to index");
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  const auto index = cursor_.number();
  if (!index || (*index != 0.0 && *index != 1.0 && *index != 2.0)) {
    failAt(start, "a vector's index is 0, 1 or 2");
  }
  if (!cursor_.accept("]")) fail("expected ']' after the index");
  return builder_.component(value, static_cast<unsigned>(*index));
}

EmittedValue ExpressionParser::primary() {
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  const char c = cursor_.peek();
  if (detail::isDigit(c) || c == '.') {
    const auto number = cursor_.number();
    if (!number) fail("bad number");
    // A number that is out of range counts as 0, like every result that is not finite.
    constexpr double end = 0x1.ffffffp+127;
    return builder_.constant(*number < end ? static_cast<float>(*number) : 0.0f);
  }
  if (cursor_.accept("(")) {
    const EmittedValue value = conditional();
    if (!cursor_.accept(")")) fail("expected ')'");
    return value;
  }
  if (cursor_.accept("[")) return vectorLiteral();
  if (c == '$') return dollarName();
  if (detail::isNameStart(c)) {
    const std::string_view name = cursor_.name();
    if (cursor_.accept("(")) return call(name, start);
    return plainName(name, false);
  }
  if (detail::isQuote(c)) {
    if (!cursor_.quoted()) fail("the quotes are not closed");
    failAt(start, "text in quotes names a map, in map(\"name\")");
  }
  failUnexpected();
}

EmittedValue ExpressionParser::vectorLiteral() {
  EmittedValue numbers[3];
  for (int i = 0; i < 3; ++i) {
    numbers[i] = conditional();
    if (numbers[i].isVector()) fail("a vector's components are numbers");
    if (i < 2 && !cursor_.accept(",")) fail("a vector is [x, y, z]: expected ','");
  }
  if (!cursor_.accept("]")) fail("a vector is [x, y, z]: expected ']'");
  return builder_.vector(numbers);
}

EmittedValue ExpressionParser::dollarName() {
  const std::size_t start = cursor_.position();
  cursor_.skip();
  const std::string_view name = cursor_.name();
  if (name.empty()) fail("expected a name after '$'");
  if (const auto found = assigned_.find(name); found != assigned_.end()) {
    if (!builder_.fits(found->second)) {
      failAt(start, "the expression is too long once $" + std::string(name) +
                        " is put in where it is read (" +
                        std::to_string(detail::ProgramBuilder::mostInstructions) +
                        " operations at most): read it in fewer places");
    }
    const EmittedValue value = builder_.read(found->second);
    const auto index =
        componentName("$" + std::string(name) + " is a number: it has no .", value.isVector());
    return index ? builder_.component(value, *index) : value;
  }
  if (const auto found = variables_.find(name); found != variables_.end()) {
    return nodeVariable(*found->second);
  }
  return plainName(name, true);
}

EmittedValue ExpressionParser::nodeVariable(const ExpressionVariable& variable) {
  const auto index =
      componentName("$" + variable.name + " is a number: it has no .", variable.isVector);
  if (index) return builder_.constant(variable.value[static_cast<int>(*index)]);
  return variable.isVector ? builder_.constantVector(variable.value)
                           : builder_.constant(variable.value.x);
}

EmittedValue ExpressionParser::plainName(std::string_view name, bool dollar) {
  const std::string onNumber =
      dollar ? "$" + std::string(name) + " is a number: it has no ." : "a number has no .";
  if (const auto first = vectorNamed(name)) {
    if (const auto index = componentName(onNumber, true)) {
      return builder_.variable(offset(*first, *index));
    }
    return builder_.variableVector(*first);
  }
  if (name == "pi" || slotNamed(name)) {
    componentName(onNumber, false);
    return name == "pi" ? builder_.constant(3.1415927f) : builder_.variable(*slotNamed(name));
  }
  componentName(dollar ? "unknown vector $" + std::string(name) : onNumber, false);
  return builder_.channel(name);
}

std::vector<EmittedValue> ExpressionParser::arguments(std::string_view function) {
  std::vector<EmittedValue> values;
  if (cursor_.accept(")")) return values;
  do {
    values.push_back(conditional());
  } while (cursor_.accept(","));
  if (!cursor_.accept(")")) {
    fail("expected ')' after the arguments of " + std::string(function));
  }
  return values;
}

EmittedValue ExpressionParser::call(std::string_view name, std::size_t position) {
  const FunctionRow* row = findFunction(name);
  if (row == nullptr) failAt(position, "unknown function '" + std::string(name) + "'");
  if (row->kind == FunctionClass::map) return callMap(*row);
  const std::vector<EmittedValue> values = arguments(name);
  if (row->code == ExpressionFunction::noise) row = &checkedNoise(*row, values);
  checkArguments(*row, values);
  return row->kind == FunctionClass::curve ? callCurve(*row, values) : builder_.call(*row, values);
}

const FunctionRow& ExpressionParser::checkedNoise(const FunctionRow& row,
                                                  std::span<const EmittedValue> values) {
  if (values.size() == 1) return rowOf(ExpressionFunction::noiseAt);
  if (values.size() == 3) return row;
  fail("noise takes (x, y, z) or a point (p), got " + std::to_string(values.size()) +
       " argument(s)");
}

void ExpressionParser::checkArguments(const FunctionRow& row,
                                      std::span<const EmittedValue> values) {
  const std::string name(row.name);
  if (values.size() < row.least || values.size() > row.most) {
    fail(name + " takes " + countText(row) + " argument(s), got " + std::to_string(values.size()));
  }
  if (row.kind == FunctionClass::math) return;
  const bool atPoint = row.kind == FunctionClass::noise && row.code != ExpressionFunction::noise;
  const std::string_view pattern = atPoint ? "v" : row.pattern;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string argument = "argument " + std::to_string(i + 1) + " of " + name;
    if (i < pattern.size()) {
      const bool vector = pattern[i] == 'v';
      if (vector && !values[i].isVector()) fail(argument + " is a vector ([x, y, z])");
      if (!vector && values[i].isVector()) fail(argument + " is a number");
    } else if (values[i].isVector()) {
      if (row.kind == FunctionClass::curve && i > 0) continue;  // a key, told of as such
      fail(name +
           (atPoint ? "'s arguments after the point are numbers" : "'s arguments are numbers"));
    }
  }
}

EmittedValue ExpressionParser::callCurve(const FunctionRow& row,
                                         std::span<const EmittedValue> values) {
  const std::string name(row.name);
  const bool even = row.code == ExpressionFunction::spline;
  if (!even && values.size() % 2 == 0) {
    fail(name + " takes t and pairs of position and value: (t, p0, v0, p1, v1, ...)");
  }
  const auto keys = values.subspan(1);
  std::vector<float> numbers;
  for (const EmittedValue& key : keys) {
    if (!builder_.isKnown(key)) {
      fail(name +
           "'s keys are numbers (or the node's own variables), fixed when the expression compiles");
    }
    numbers.push_back(builder_.knownValue(key));
  }
  if (builder_.curvesAreFull()) fail("too many curves");
  std::vector<Ramp::Key> ramp;
  if (even) {
    const float last = numbers.size() > 1 ? static_cast<float>(numbers.size() - 1) : 1.0f;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ramp.push_back({static_cast<float>(i) / last, numbers[i]});
    }
  } else {
    for (std::size_t i = 0; i < numbers.size(); i += 2) {
      ramp.push_back({numbers[i], numbers[i + 1]});
    }
  }
  builder_.drop(keys.front());
  return builder_.callCurve(row, values.front(),
                            Ramp(std::move(ramp), row.code == ExpressionFunction::linearcurve));
}

std::shared_ptr<const ExpressionMap> ExpressionParser::mapNamed(std::string_view name,
                                                                std::size_t position) {
  const std::string key(name);
  std::shared_ptr<const ExpressionMap> map;
  try {
    if (environment_.findMap) map = environment_.findMap(key);
  } catch (const ExpressionError& error) {
    failAt(position, error.what());
  }
  if (map == nullptr) {
    failAt(position,
           "no map named '" + detail::printableText(name) + "' (Groom Tools > Paint lists them)");
  }
  if (std::find(mapNames_.begin(), mapNames_.end(), key) == mapNames_.end()) {
    mapNames_.push_back(key);
  }
  return map;
}

EmittedValue ExpressionParser::callMap(const FunctionRow& row) {
  const std::string name(row.name);
  cursor_.skipSpace();
  const std::size_t position = cursor_.position();
  if (!detail::isQuote(cursor_.peek())) fail(name + " needs the map's name");
  const auto mapName = cursor_.quoted();
  if (!mapName) fail("the quotes are not closed");
  const bool color = row.code == ExpressionFunction::cmap;
  MapComponent component = MapComponent::luminance;
  if (cursor_.accept(",")) {
    if (color) fail("cmap takes the map's name alone (it gives r, g, b)");
    component = mapChannel();
    std::size_t count = 2;
    for (; cursor_.accept(","); ++count) builder_.drop(conditional());
    if (count > row.most) {
      fail(name + " takes " + countText(row) + " argument(s), got " + std::to_string(count));
    }
  }
  if (!cursor_.accept(")")) fail("expected ')' after the arguments of " + name);
  const auto map = mapNamed(*mapName, position);
  return color ? builder_.callColorMap(map) : builder_.callMap(map, component);
}

MapComponent ExpressionParser::mapChannel() {
  constexpr std::string_view words[] = {"r", "g", "b", "a", "luminance"};
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  if (detail::isQuote(cursor_.peek())) {
    const auto word = cursor_.quoted();
    if (!word) fail("the quotes are not closed");
    const auto found = std::find(std::begin(words), std::end(words), *word);
    if (found == std::end(words)) {
      failAt(start, "a map's channel is \"r\", \"g\", \"b\", \"a\" or \"luminance\"");
    }
    return static_cast<MapComponent>(found - std::begin(words));
  }
  const EmittedValue value = conditional();
  const float number = builder_.isKnown(value) ? builder_.knownValue(value) : -1.0f;
  if (!(number >= 0.0f && number <= 4.0f) ||
      number != static_cast<float>(static_cast<int>(number))) {
    failAt(start, "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance)");
  }
  builder_.drop(value);
  return static_cast<MapComponent>(static_cast<int>(number));
}

Expression Expression::compile(std::string_view text, const ExpressionEnvironment& environment,
                               ExpressionType wanted) {
  return ExpressionParser(text, environment).compile(wanted);
}

bool Expression::readsPoints() const {
  constexpr auto first = static_cast<unsigned>(ExpressionSlot::t);
  constexpr auto last = static_cast<unsigned>(ExpressionSlot::pointIndex);
  return (slots_ >> first & ((2u << (last - first)) - 1)) != 0;
}

bool Expression::isConstant() const {
  return slots_ == 0 && !readsSeed_ && tables_.channels.empty() && tables_.maps.empty();
}

}  // namespace kestrane
