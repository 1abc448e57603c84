// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/expr/cursor.h"
#include "core/expr/expression.h"
#include "core/expr/functions.h"
#include "core/expr/program_builder.h"

namespace kestrane {

/// Reads the text by recursive descent, a function per level of the grammar, and emits as it goes.
/// Calls of functions are in parser_calls.cpp.
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
  using EmittedValue = detail::EmittedValue;

  [[noreturn]] void fail(const std::string& message) const;
  /// With the place of the word that is wrong.
  [[noreturn]] void failAt(std::size_t position, const std::string& message);
  [[noreturn]] void failWhole(const std::string& message) const;
  [[noreturn]] void failUnexpected();
  /// Fails if quotes stand here, where none are read.
  void refuseQuotes();
  /// Takes what must stand here.
  void expect(std::string_view word, const std::string& otherwise);

  EmittedValue program();
  void endOfProgram();
  /// Whether an assignment or a value could begin here.
  bool startsStatement() const;
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
    static constexpr int deepestNesting = 200;
    ExpressionParser& parser_;
  };

  std::string_view text_;
  const ExpressionEnvironment& environment_;
  detail::ExpressionCursor cursor_;
  detail::ProgramBuilder builder_;
  std::map<std::string_view, const ExpressionVariable*> variables_;
  std::map<std::string_view, std::size_t> assigned_;  // to the builder's definitions
  std::map<std::string_view, std::shared_ptr<const ExpressionMap>> maps_;  // opened once each
  std::vector<std::string> mapNames_;                                      // in their order
  int level_ = 0;
};

}  // namespace kestrane
