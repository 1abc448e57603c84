// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/program_builder.h"

#include <algorithm>

#include "core/expr/evaluate.h"
#include "core/expr/math_rules.h"

namespace kestrane::detail {

namespace {

/// Stands in a program under construction for a definition's whole program (the entry is `index`).
/// Long definitions are put in once, at the end, so that definitions which read definitions take no
/// more memory than their text, whatever they would grow to.
constexpr auto readDefinition = static_cast<ExpressionOp>(255);

/// Short ones are copied at once. Those whose value is known are among them (a vector's three
/// constants), so that what is made of them is known too.
constexpr std::size_t shortDefinition = 8;

template <class Code>
Instruction instruction(ExpressionOp op, Code a, std::size_t b = 0) {
  return {op, static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b)};
}

}  // namespace

EmittedValue ProgramBuilder::emit(Instruction instruction, EmittedValue value) {
  program_.push_back(instruction);
  ++length_;
  return fold(value);
}

EmittedValue ProgramBuilder::fold(EmittedValue value) {
  if (!value.foldable || value.isVector() || value.depth > usualStack) return value;
  float stack[usualStack];
  runProgram(std::span(program_).subspan(value.begin), tables_, {}, stack);
  drop(value);
  return constant(stack[0]);
}

EmittedValue ProgramBuilder::foldVector(EmittedValue value) {
  if (!value.foldable || !value.isVector() || value.depth > usualStack) return value;
  float stack[usualStack];
  runProgram(std::span(program_).subspan(value.begin), tables_, {}, stack);
  drop(value);
  // Infinities stay, as they would on the stack: only what is made of them may become 0.
  for (int i = 0; i < 3; ++i) program_.push_back({.value = stack[i]});
  length_ += 3;
  value.depth = 3;
  return value;
}

EmittedValue ProgramBuilder::constant(float value) {
  program_.push_back({.value = finiteOrZero(value)});
  ++length_;
  return {ExpressionType::number, program_.size() - 1, 1, true};
}

EmittedValue ProgramBuilder::constantVector(Vec3f value) {
  const EmittedValue numbers[] = {constant(value.x), constant(value.y), constant(value.z)};
  return vector(numbers);
}

EmittedValue ProgramBuilder::variable(ExpressionSlot slot) {
  return emit(instruction(ExpressionOp::pushVariable, slot),
              {ExpressionType::number, program_.size(), 1, false});
}

EmittedValue ProgramBuilder::variableVector(ExpressionSlot first) {
  const auto slot = static_cast<std::uint8_t>(first);
  EmittedValue numbers[3];
  for (std::uint8_t i = 0; i < 3; ++i) {
    numbers[i] = variable(static_cast<ExpressionSlot>(slot + i));
  }
  return vector(numbers);
}

EmittedValue ProgramBuilder::channel(std::string_view name) {
  const auto entry = static_cast<std::uint32_t>(tables_.channels.size());
  const auto [place, added] = channelEntries_.try_emplace(std::string(name), entry);
  if (added) tables_.channels.emplace_back(name);
  Instruction push{.op = ExpressionOp::pushChannel};
  push.index = place->second;
  return emit(push, {ExpressionType::number, program_.size(), 1, false});
}

EmittedValue ProgramBuilder::negate(EmittedValue value) {
  const auto op = value.isVector() ? ExpressionOp::negateVector : ExpressionOp::negate;
  return emit({.op = op}, value);
}

EmittedValue ProgramBuilder::binary(BinaryOperator binary, EmittedValue left, EmittedValue right) {
  EmittedValue result = left;
  result.depth = std::max(left.depth, left.width() + right.depth);
  result.foldable = left.foldable && right.foldable;
  if (!left.isVector() && !right.isVector()) {
    return emit(instruction(ExpressionOp::binary, binary), result);
  }
  result.type = ExpressionType::vector;
  result.depth = std::max(result.depth, 3u);
  const unsigned flags = (left.isVector() ? 1u : 0u) | (right.isVector() ? 2u : 0u);
  return emit(instruction(ExpressionOp::binaryVector, binary, flags), result);
}

void ProgramBuilder::splatAt(std::size_t end) {
  program_.insert(program_.begin() + static_cast<std::ptrdiff_t>(end), {.op = ExpressionOp::splat});
  ++length_;
}

EmittedValue ProgramBuilder::select(EmittedValue condition, EmittedValue chosen,
                                    EmittedValue otherwise) {
  const bool vectors = chosen.isVector() || otherwise.isVector();
  if (vectors && !otherwise.isVector()) splatAt(program_.size());
  if (vectors && !chosen.isVector()) splatAt(otherwise.begin);
  const std::uint32_t width = vectors ? 3 : 1;
  EmittedValue result = condition;
  result.type = vectors ? ExpressionType::vector : ExpressionType::number;
  result.foldable = condition.foldable && chosen.foldable && otherwise.foldable;
  result.depth =
      std::max({condition.depth, 1 + chosen.depth, 1 + width + otherwise.depth, 1 + 2 * width});
  return emit({.op = vectors ? ExpressionOp::selectVector : ExpressionOp::select}, result);
}

EmittedValue ProgramBuilder::component(EmittedValue vector, unsigned index) {
  vector.type = ExpressionType::number;
  return emit(instruction(ExpressionOp::component, index), vector);
}

EmittedValue ProgramBuilder::vector(std::span<const EmittedValue> numbers) {
  EmittedValue result = numbers[0];
  result.type = ExpressionType::vector;
  for (std::uint32_t i = 1; i < 3; ++i) {
    result.depth = std::max(result.depth, i + numbers[i].depth);
    result.foldable = result.foldable && numbers[i].foldable;
  }
  return result;
}

EmittedValue ProgramBuilder::call(const FunctionRow& row, std::span<const EmittedValue> arguments) {
  const bool perComponent =
      row.kind == FunctionClass::math &&
      std::any_of(arguments.begin(), arguments.end(), [](auto& value) { return value.isVector(); });
  EmittedValue result = arguments[0];
  result.type = row.width == 3 || perComponent ? ExpressionType::vector : ExpressionType::number;
  result.foldable = row.code != ExpressionFunction::rand && row.code < ExpressionFunction::curve;
  result.depth = row.width;
  std::uint32_t floats = 0;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::uint32_t width = perComponent ? 3 : arguments[i].width();
    result.foldable = result.foldable && arguments[i].foldable;
    result.depth = std::max({result.depth, floats + arguments[i].depth, floats + width});
    floats += width;
  }
  if (!perComponent) return emit(instruction(ExpressionOp::call, row.code, floats), result);
  // From the last on, so that the places of those before stay right.
  for (std::size_t i = arguments.size(); i-- > 0;) {
    if (arguments[i].isVector()) continue;
    splatAt(i + 1 < arguments.size() ? arguments[i + 1].begin : program_.size());
  }
  return emit(instruction(ExpressionOp::callPerComponent, row.code, floats), result);
}

bool ProgramBuilder::isKnown(EmittedValue value) const {
  return !value.isVector() && value.begin < program_.size() &&
         program_[value.begin].op == ExpressionOp::pushConstant && value.foldable &&
         value.depth == 1;
}

void ProgramBuilder::drop(EmittedValue value) {
  length_ -= program_.size() - value.begin;
  program_.resize(value.begin);
}

EmittedValue ProgramBuilder::callCurve(const FunctionRow& row, EmittedValue t, Ramp curve) {
  Instruction call = instruction(ExpressionOp::call, row.code, 1);
  call.index = static_cast<std::uint32_t>(tables_.curves.size());
  tables_.curves.push_back(std::move(curve));
  t.foldable = false;
  return emit(call, t);
}

EmittedValue ProgramBuilder::callMap(std::shared_ptr<const ExpressionMap> map,
                                     MapComponent component) {
  Instruction call = instruction(ExpressionOp::call, ExpressionFunction::map);
  call.index = static_cast<std::uint32_t>(tables_.maps.size());
  tables_.maps.push_back({std::move(map), component});
  return emit(call, {ExpressionType::number, program_.size(), 1, false});
}

EmittedValue ProgramBuilder::callColorMap(const std::shared_ptr<const ExpressionMap>& map) {
  const EmittedValue numbers[] = {callMap(map, MapComponent::r), callMap(map, MapComponent::g),
                                  callMap(map, MapComponent::b)};
  return vector(numbers);
}

std::size_t ProgramBuilder::define(EmittedValue value) {
  value = foldVector(value);
  definitions_.push_back({value, std::move(program_), length_});
  program_.clear();
  length_ = 0;
  return definitions_.size() - 1;
}

bool ProgramBuilder::fits(std::size_t definition) const {
  return length_ + definitions_[definition].length <= mostInstructions;
}

EmittedValue ProgramBuilder::read(std::size_t definition) {
  const Definition& source = definitions_[definition];
  EmittedValue value = source.value;
  value.begin = program_.size();
  if (source.length <= shortDefinition || source.program.size() == 1) {
    program_.insert(program_.end(), source.program.begin(), source.program.end());
  } else {
    Instruction stand{.op = readDefinition};
    stand.index = static_cast<std::uint32_t>(definition);
    program_.push_back(stand);
    value.foldable = false;
  }
  length_ += source.length;
  return value;
}

std::vector<Instruction> ProgramBuilder::takeProgram() {
  std::vector<Instruction> flat;
  flat.reserve(length_);
  // Where each program on the way down goes on; no recursion, since definitions may read each other
  // in long chains.
  std::vector<std::span<const Instruction>> places = {program_};
  while (!places.empty()) {
    std::span<const Instruction>& rest = places.back();
    const auto next = std::find_if(rest.begin(), rest.end(),
                                   [](const Instruction& i) { return i.op == readDefinition; });
    flat.insert(flat.end(), rest.begin(), next);
    if (next == rest.end()) {
      places.pop_back();
      continue;
    }
    const std::uint32_t definition = next->index;
    rest = rest.subspan(static_cast<std::size_t>(next - rest.begin()) + 1);
    if (rest.empty()) places.pop_back();
    places.emplace_back(definitions_[definition].program);
  }
  return flat;
}

}  // namespace kestrane::detail
