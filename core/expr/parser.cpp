// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/parser.h"

#include <algorithm>

#include "core/expr/evaluate.h"

namespace kestrane {

using detail::EmittedValue;

namespace {

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

}  // namespace

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

void ExpressionParser::refuseQuotes() {
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  if (!detail::isQuote(cursor_.peek())) return;
  if (!cursor_.quoted()) fail("the quotes are not closed");
  failAt(start, "text in quotes names a map, in map(\"name\")");
}

void ExpressionParser::expect(std::string_view word, const std::string& otherwise) {
  if (cursor_.accept(word)) return;
  refuseQuotes();
  fail(otherwise);
}

void ExpressionParser::failUnexpected() {
  refuseQuotes();
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
    expect(";", "expected ';' after the value of $" + std::string(*name));
    assigned_[*name] = builder_.define(value);
  }
  const EmittedValue value = conditional();
  endOfProgram();
  return value;
}

void ExpressionParser::endOfProgram() {
  cursor_.accept(";");
  cursor_.skipSpace();
  if (cursor_.atEnd()) return;
  if (startsStatement()) {
    fail("expected ';' at the end of the line above (only the last line is the value)");
  }
  failUnexpected();
}

bool ExpressionParser::startsStatement() const {
  const char next = cursor_.peek();
  return detail::isNameCharacter(next) || (next == '.' && detail::isDigit(cursor_.peek(1))) ||
         std::string_view("$([-+").find(next) != std::string_view::npos;
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
  expect(":", "expected ':'");
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
  refuseQuotes();
  const std::size_t start = cursor_.position();
  const auto index = cursor_.number();
  if (!index || (*index != 0.0 && *index != 1.0 && *index != 2.0)) {
    failAt(start, "a vector's index is 0, 1 or 2");
  }
  expect("]", "expected ']' after the index");
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
    expect(")", "expected ')'");
    return value;
  }
  if (cursor_.accept("[")) return vectorLiteral();
  if (c == '$') return dollarName();
  if (detail::isNameStart(c)) {
    const std::string_view name = cursor_.name();
    if (cursor_.accept("(")) return call(name, start);
    return plainName(name, false);
  }
  failUnexpected();
}

EmittedValue ExpressionParser::vectorLiteral() {
  EmittedValue numbers[3];
  for (int i = 0; i < 3; ++i) {
    numbers[i] = conditional();
    if (numbers[i].isVector()) fail("a vector's components are numbers");
    if (i < 2) expect(",", "a vector is [x, y, z]: expected ','");
  }
  expect("]", "a vector is [x, y, z]: expected ']'");
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
