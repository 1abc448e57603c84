// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/errors.h"
#include "core/base/vec.h"
#include "core/expr/expression_map.h"
#include "core/expr/instruction.h"
#include "core/expr/scan.h"
#include "core/expr/variables.h"
#include "core/values/ramp.h"

namespace kestrane {

enum class ExpressionType : std::uint8_t {
  number,
  vector,
  any,  // as what a caller wants: either
};

/// What a compile sees beyond the text.
struct ExpressionEnvironment {
  std::span<const ExpressionVariable> variables;
  /// Finds a map by name: null where there is none. May throw ExpressionError with one sentence,
  /// which the compile reports with its place in the text. Not set: there are no maps.
  std::function<std::shared_ptr<const ExpressionMap>(const std::string& name)> findMap;
};

/// A channel's values for a program to read: per strand, or per point. An index past the end reads
/// 0, and so does a channel that is not there.
struct ExpressionChannel {
  std::span<const float> values;
  bool perPoint = false;
};

/// What one element is evaluated with, filled before the program runs.
struct ExpressionRecord {
  std::array<float, expressionSlotCount> slots = {};  // by ExpressionSlot
  std::size_t strand = 0;
  std::size_t point = 0;
  std::uint64_t seed = 0;                       // of rand(x): the strand's stable key
  std::span<const ExpressionChannel> channels;  // as channelNames() lists them
  const MapSample* location = nullptr;          // where maps are read; null: they read 0

  float& operator[](ExpressionSlot slot) { return slots[static_cast<std::size_t>(slot)]; }
};

/// A value per element of a block: an array, or one value for all.
template <class T>
struct ExpressionLane {
  const T* values = nullptr;
  T constant = {};

  ExpressionLane() = default;
  ExpressionLane(T value) : constant(value) {}
  ExpressionLane(const T* array) : values(array) {}
  T operator[](std::size_t i) const { return values != nullptr ? values[i] : constant; }
};

/// The strand or point index of each element of a block: counted up from the first, the same for
/// all (step 0), or an array of them.
struct ExpressionIndices {
  std::size_t first = 0;
  std::size_t step = 1;
  const std::uint32_t* values = nullptr;

  std::size_t operator[](std::size_t i) const {
    return values != nullptr ? values[i] : first + step * i;
  }
};

/// Many elements at once, structure of arrays; every array holds `count` values, or, with groups,
/// a value per group where it tells of the group as a whole.
struct ExpressionBlock {
  std::size_t count = 0;
  /// Elements that go together, such as each strand's points: where each group begins, and at the
  /// end at least `count`. Then strands, seeds, locations and the slots but those of points are per
  /// group, and what is made of them alone is worked out once for a group. Empty: no groups.
  std::span<const std::uint32_t> groups;
  std::array<ExpressionLane<float>, expressionSlotCount> slots;  // by ExpressionSlot
  ExpressionIndices strands;
  ExpressionIndices points;
  ExpressionLane<std::uint64_t> seeds;
  std::span<const ExpressionChannel> channels;
  ExpressionLane<MapSample> locations;
  ExpressionLane<bool> hasLocations = false;  // where false, maps read 0

  ExpressionLane<float>& operator[](ExpressionSlot slot) {
    return slots[static_cast<std::size_t>(slot)];
  }
};

/// What instructions index.
struct ExpressionTables {
  struct Map {
    std::shared_ptr<const ExpressionMap> map;
    MapComponent component = MapComponent::luminance;
  };
  std::vector<std::string> channels;
  std::vector<Ramp> curves;
  std::vector<Map> maps;
};

/// A formula, compiled to a program for a stack machine. Immutable; may be evaluated from many
/// threads. Evaluation never fails: a division by 0 gives 0, and so does a result that is not
/// finite. One element at a time and in blocks give the same bits.
class Expression {
 public:
  Expression() = default;  // the number 0

  /// Compiles a text. Throws ExpressionError with one sentence: what is wrong and where.
  static Expression compile(std::string_view text, const ExpressionEnvironment& environment = {},
                            ExpressionType wanted = ExpressionType::number);
  /// What a text mentions, found without compiling it; takes any text.
  static ExpressionScan scan(std::string_view text);

  const std::string& text() const { return text_; }
  /// number or vector.
  ExpressionType type() const { return type_; }
  std::span<const Instruction> instructions() const { return instructions_; }
  const ExpressionTables& tables() const { return tables_; }
  /// The floats of stack that a run takes.
  std::size_t stackDepth() const { return stackDepth_; }

  /// The names that are no variables, in the order of the channel table: whoever binds the program
  /// must know each as a strand or point channel.
  const std::vector<std::string>& channelNames() const { return tables_.channels; }
  /// The maps read, each once, in the order of their first call.
  const std::vector<std::string>& mapNames() const { return mapNames_; }
  bool reads(ExpressionSlot slot) const { return (slots_ >> static_cast<unsigned>(slot) & 1) != 0; }
  /// Whether it reads a variable of points (t, pt, px, py, pz, pointIndex). A channel that turns
  /// out to be one of points makes a program per point too.
  bool readsPoints() const;
  /// Whether it reads the frame or the time.
  bool readsTime() const { return reads(ExpressionSlot::frame) || reads(ExpressionSlot::time); }
  /// Whether a strand's value depends on other strands too: its index, the longest length.
  bool readsWholeSet() const {
    return reads(ExpressionSlot::longest) || reads(ExpressionSlot::index);
  }
  /// Whether it calls rand(x), which reads the seed.
  bool readsSeed() const { return readsSeed_; }
  /// Whether it reads nothing at all, so that one evaluation serves every element.
  bool isConstant() const;

  /// The value of a number; of a vector, its first component.
  float evaluate(const ExpressionRecord& record) const;
  /// The value of a vector; of a number, that number in all components.
  Vec3f evaluateVector(const ExpressionRecord& record) const;
  /// As evaluate and evaluateVector, for block.count elements. None of the four allocates.
  void evaluateBlock(const ExpressionBlock& block, std::span<float> out) const;
  void evaluateBlock(const ExpressionBlock& block, std::span<Vec3f> out) const;

 private:
  friend class ExpressionParser;

  std::string text_;
  ExpressionType type_ = ExpressionType::number;
  std::vector<Instruction> instructions_ = {Instruction()};
  ExpressionTables tables_;
  std::vector<std::string> mapNames_;
  std::size_t stackDepth_ = 1;
  std::uint32_t slots_ = 0;
  bool readsSeed_ = false;
};

}  // namespace kestrane
