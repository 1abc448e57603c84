// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/expr/expression.h"
#include "core/expr/functions.h"

namespace kestrane::detail {

/// A value that emitted instructions leave on the stack: where they begin and what is known of
/// them. Values are built in stack order; the latest is the one at the end of the program.
struct EmittedValue {
  ExpressionType type = ExpressionType::number;
  std::size_t begin = 0;
  std::uint32_t depth = 1;  // the most floats on the stack meanwhile
  bool foldable = false;    // reads nothing that varies

  bool isVector() const { return type == ExpressionType::vector; }
  std::uint32_t width() const { return isVector() ? 3 : 1; }
};

/// Emits the instructions of one expression. Sub-expressions of constants that give a number are
/// run at once and become constants, and so does a vector when it is assigned to a name; values
/// assigned to a name are copied where they are read.
class ProgramBuilder {
 public:
  /// The most instructions that reading assigned values may make a program of.
  static constexpr std::size_t mostInstructions = 1'048'576;
  static constexpr std::size_t mostCurves = 256;

  EmittedValue constant(float value);
  EmittedValue constantVector(Vec3f value);
  EmittedValue variable(ExpressionSlot slot);
  /// Three variables in a row.
  EmittedValue variableVector(ExpressionSlot first);
  EmittedValue channel(std::string_view name);

  EmittedValue negate(EmittedValue value);
  EmittedValue binary(BinaryOperator binary, EmittedValue left, EmittedValue right);
  /// The condition is a number; where one side is a vector the other is made one.
  EmittedValue select(EmittedValue condition, EmittedValue chosen, EmittedValue otherwise);
  EmittedValue component(EmittedValue vector, unsigned index);
  /// A vector of three numbers.
  EmittedValue vector(std::span<const EmittedValue> numbers);
  /// A call whose arguments are what the function's row asks for. A function of numbers with a
  /// vector among its arguments is called per component.
  EmittedValue call(const FunctionRow& row, std::span<const EmittedValue> arguments);

  /// Whether the value is a number known now, and which.
  bool isKnown(EmittedValue value) const;
  float knownValue(EmittedValue value) const { return program_[value.begin].value; }
  /// Takes back everything emitted from the value on.
  void drop(EmittedValue value);

  bool curvesAreFull() const { return tables_.curves.size() >= mostCurves; }
  EmittedValue callCurve(const FunctionRow& row, EmittedValue t, Ramp curve);
  EmittedValue callMap(std::shared_ptr<const ExpressionMap> map, MapComponent component);
  /// Three calls: red, green and blue.
  EmittedValue callColorMap(const std::shared_ptr<const ExpressionMap>& map);

  /// Takes the one value emitted so far as the definition of a name; the program is empty again.
  std::size_t define(EmittedValue value);
  /// Whether a read of the definition keeps the program within its limit.
  bool fits(std::size_t definition) const;
  EmittedValue read(std::size_t definition);

  /// The finished program, with the definitions put in, and its tables.
  std::vector<Instruction> takeProgram();
  ExpressionTables takeTables() { return std::move(tables_); }

 private:
  struct Definition {
    EmittedValue value;
    std::vector<Instruction> program;
    std::size_t length = 0;  // with the definitions that it reads put in
  };

  EmittedValue emit(Instruction instruction, EmittedValue value);
  EmittedValue fold(EmittedValue value);
  EmittedValue foldVector(EmittedValue value);
  /// Makes the number, whose instructions end at `end`, a vector in place.
  void splatAt(std::size_t end);

  std::vector<Instruction> program_;
  std::size_t length_ = 0;  // of the program with the definitions that it reads put in
  std::vector<Definition> definitions_;
  ExpressionTables tables_;
  std::map<std::string, std::uint32_t> channelEntries_;
};

}  // namespace kestrane::detail
