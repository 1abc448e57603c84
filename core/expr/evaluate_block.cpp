// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cassert>

#include "core/base/independent_loop.h"
#include "core/base/lanes.h"
#include "core/expr/evaluate.h"
#include "core/expr/math_rules.h"

namespace kestrane {

namespace detail {

namespace {

/// The most elements that are worked on at once: few enough that a stack of them stays in the
/// nearest cache, enough to make little of what an instruction costs. A little more than 16 strands
/// of 17 points.
constexpr std::size_t mostElements = 288;

/// Buffers beyond the stack, for operands that would be overwritten too early and for values of
/// groups that are spread over elements.
constexpr std::size_t spareBuffers = 2;

/// The floats of all buffers together. A program whose stack does not fit them works on fewer
/// elements at once, so that none needs memory of its own.
constexpr std::size_t bufferFloats = 16384;

constexpr std::size_t chunkSizeOf(std::size_t stackDepth) {
  return std::min(mostElements, bufferFloats / (stackDepth + spareBuffers));
}
static_assert(chunkSizeOf(deepestStack) > 0);

/// One float of the stack, for all elements of a chunk: an array with a value per element or per
/// group, or one value for all. An array is the input's own or the buffer of that place on the
/// stack, never that of another place. Without initial values, since most programs leave most of
/// the stack alone.
struct Operand {
  const float* values;
  float constant;
  bool perGroup;

  float operator[](std::size_t i) const { return values != nullptr ? values[i] : constant; }
};

struct ArrayReader {
  const float* values;
  float operator()(std::size_t i) const { return values[i]; }
};
struct ConstantReader {
  float value;
  float operator()(std::size_t) const { return value; }
};

struct KeepResult {
  static float of(float x) { return x; }
};
struct FiniteResult {
  static float of(float x) { return finiteOrZero(x); }
};

/// out[i] = function(readers(i)...). Functions that have one run their fast form over all elements,
/// and the full one over those that it is not right for.
template <class Result, class Function, class... Readers>
KESTRANE_WIDE void applyLoop(Function function, float* out, std::size_t count, Readers... readers) {
  if constexpr (requires { Function::fast(readers(0)...); }) {
    // The operands may lie in out, which the fast form overwrites.
    float kept[mostElements];
    int misfits = 0;
    KESTRANE_INDEPENDENT_LOOP
    for (std::size_t i = 0; i < count; ++i) {
      misfits += Function::within(readers(i)...) ? 0 : 1;
      kept[i] = Result::of(Function::fast(readers(i)...));
    }
    if (misfits > 0) {
      for (std::size_t i = 0; i < count; ++i) {
        if (!Function::within(readers(i)...)) kept[i] = Result::of(function(readers(i)...));
      }
    }
    std::copy_n(kept, count, out);
  } else {
    KESTRANE_INDEPENDENT_LOOP
    for (std::size_t i = 0; i < count; ++i) out[i] = Result::of(function(readers(i)...));
  }
}

/// Runs a program over a chunk of a block's elements.
class ChunkRun {
 public:
  ChunkRun(const Expression& expression, const ExpressionBlock& block, Operand* stack,
           float* buffers)
      : program_(expression.instructions()),
        tables_(expression.tables()),
        block_(block),
        stack_(stack),
        buffers_(buffers),
        chunkSize_(chunkSizeOf(expression.stackDepth())),
        spare_(buffer(expression.stackDepth())),
        groupSpare_(buffer(expression.stackDepth() + 1)),
        width_(expression.type() == ExpressionType::vector ? 3 : 1) {}

  /// Runs the elements from begin on, up to a chunk of them and not past `end`; says how many. To
  /// be called from the block's first element to its last. Afterwards value(0) is the number, or
  /// value(0) to value(2) the vector.
  std::size_t run(std::size_t begin, std::size_t end);
  const Operand& value(std::size_t i) const { return stack_[i]; }

 private:
  float* buffer(std::size_t place) const { return buffers_ + place * chunkSize_; }
  bool isOwn(std::size_t place) const { return stack_[place].values == buffer(place); }
  void setConstant(std::size_t place, float value) { stack_[place] = {nullptr, value, false}; }
  void setArray(std::size_t place) { stack_[place] = {buffer(place), 0.0f, perGroup_}; }
  std::size_t sizeOf(const Operand& operand) const {
    return operand.perGroup ? groupCount_ : elementCount_;
  }

  bool grouped() const { return !block_.groups.empty(); }
  /// Where one of the chunk's groups begins in the chunk; for the one past the last, its end.
  std::size_t groupStart(std::size_t group) const {
    const std::size_t start = std::max<std::size_t>(block_.groups[firstGroup_ + group], begin_);
    return std::min(start - begin_, elementCount_);
  }
  void setChunk(std::size_t begin, std::size_t end);
  void runProgram();

  /// Makes the arrays among the operands at these places equally long, for what is to be done with
  /// them: a value per group is repeated for its elements where one of the others has them all.
  void level(std::size_t first, std::size_t places);
  void spread(std::size_t place);
  /// From here on, arrays are worked on that hold a value per group, or per element.
  void setPerGroup(bool perGroup) {
    perGroup_ = perGroup;
    count_ = perGroup ? groupCount_ : elementCount_;
  }
  /// Pushes an array of the block: a value per element, or per group of elements.
  void pushArray(const float* values, bool perGroup);

  /// Moves an operand down the stack.
  void move(std::size_t from, std::size_t to);
  /// The operand as an array, written out in its buffer if it is one value.
  const float* asArray(std::size_t place);
  /// A copy of the operand that stays when the buffer of its place is written.
  Operand kept(std::size_t place);

  void pushVariable(std::uint8_t slot);
  void pushChannel(std::uint32_t entry);
  void negate(std::size_t place);
  void binary(std::uint8_t code, const Operand& left, const Operand& right, std::size_t out);
  void binaryVector(const Instruction& instruction);
  /// A function of numbers on operands that lie `stride` places apart.
  void callMath(ExpressionFunction function, std::size_t first, std::size_t stride);
  template <class Function, std::size_t... i>
  void applyMath(Function function, std::size_t first, std::size_t stride,
                 std::index_sequence<i...>);
  void call(const Instruction& instruction);
  void callEach(const Instruction& instruction, const FunctionRow& row, std::size_t first);
  void select(const Operand& condition, std::size_t chosen, std::size_t otherwise, std::size_t out);

  std::span<const Instruction> program_;
  const ExpressionTables& tables_;
  const ExpressionBlock& block_;
  Operand* stack_;
  float* buffers_;
  std::size_t chunkSize_;
  float* spare_;
  float* groupSpare_;
  std::size_t width_;  // floats of the value
  std::size_t top_ = 0;
  // The chunk's elements and the groups that they are in.
  std::size_t begin_ = 0, elementCount_ = 0;
  std::size_t firstGroup_ = 0, groupCount_ = 0;
  // What the instruction at hand works on.
  bool perGroup_ = false;
  std::size_t count_ = 0;
};

void ChunkRun::setChunk(std::size_t begin, std::size_t end) {
  begin_ = begin;
  if (grouped()) {
    const auto& groups = block_.groups;
    while (groups[firstGroup_ + 1] <= begin) ++firstGroup_;
    // Groups may be empty, and must not be too many for a buffer either.
    groupCount_ = 1;
    while (groups[firstGroup_ + groupCount_] < end && groupCount_ < chunkSize_) ++groupCount_;
    end = std::min<std::size_t>(end, groups[firstGroup_ + groupCount_]);
  }
  elementCount_ = end - begin;
  setPerGroup(false);
}

void ChunkRun::level(std::size_t first, std::size_t places) {
  if (!grouped()) return;
  bool anyOfElements = false, anyOfGroups = false;
  for (std::size_t i = first; i < first + places; ++i) {
    if (stack_[i].values == nullptr) continue;
    (stack_[i].perGroup ? anyOfGroups : anyOfElements) = true;
  }
  if (anyOfElements && anyOfGroups) {
    for (std::size_t i = first; i < first + places; ++i) spread(i);
  }
  setPerGroup(anyOfGroups && !anyOfElements);
}

void ChunkRun::spread(std::size_t place) {
  if (!stack_[place].perGroup) return;
  // The values may lie where they are to be spread.
  std::copy_n(stack_[place].values, groupCount_, groupSpare_);
  float* out = buffer(place);
  for (std::size_t g = 0; g < groupCount_; ++g) {
    std::fill(out + groupStart(g), out + groupStart(g + 1), groupSpare_[g]);
  }
  stack_[place] = {out, 0.0f, false};
}

void ChunkRun::pushArray(const float* values, bool perGroup) {
  stack_[top_++] = perGroup && groupCount_ == 1 ? Operand{nullptr, *values, false}
                                                : Operand{values, 0.0f, perGroup};
}

void ChunkRun::move(std::size_t from, std::size_t to) {
  if (from == to) return;
  const Operand& operand = stack_[from];
  if (isOwn(from)) {
    std::copy_n(operand.values, sizeOf(operand), buffer(to));
    stack_[to] = {buffer(to), 0.0f, operand.perGroup};
  } else {
    stack_[to] = operand;
  }
}

const float* ChunkRun::asArray(std::size_t place) {
  if (stack_[place].values == nullptr) {
    std::fill_n(buffer(place), count_, stack_[place].constant);
    setArray(place);
  }
  return stack_[place].values;
}

Operand ChunkRun::kept(std::size_t place) {
  if (!isOwn(place)) return stack_[place];
  std::copy_n(buffer(place), count_, spare_);
  return {spare_, 0.0f, perGroup_};
}

void ChunkRun::pushVariable(std::uint8_t slot) {
  const ExpressionLane<float>& lane = block_.slots[slot];
  if (lane.values == nullptr) {
    setConstant(top_++, lane.constant);
  } else {
    const bool perGroup = grouped() && !isPointSlot(static_cast<ExpressionSlot>(slot));
    pushArray(lane.values + (perGroup ? firstGroup_ : begin_), perGroup);
  }
}

void ChunkRun::pushChannel(std::uint32_t entry) {
  if (entry >= block_.channels.size()) return setConstant(top_++, 0.0f);
  const ExpressionChannel& channel = block_.channels[entry];
  const ExpressionIndices& indices = channel.perPoint ? block_.points : block_.strands;
  setPerGroup(grouped() && !channel.perPoint);
  const std::size_t begin = perGroup_ ? firstGroup_ : begin_;
  const auto at = [&](std::size_t i) {
    const std::size_t index = indices[begin + i];
    return index < channel.values.size() ? channel.values[index] : 0.0f;
  };
  const bool counted = indices.values == nullptr;
  if (counted && indices.step == 0) {
    setConstant(top_++, at(0));
  } else if (counted && indices.step == 1 && indices[begin] < channel.values.size() &&
             channel.values.size() - indices[begin] >= count_) {
    pushArray(channel.values.data() + indices[begin], perGroup_);
  } else {
    float* values = buffer(top_);
    for (std::size_t i = 0; i < count_; ++i) values[i] = at(i);
    pushArray(values, perGroup_);
  }
}

void ChunkRun::negate(std::size_t place) {
  if (stack_[place].values == nullptr) {
    stack_[place].constant = -stack_[place].constant;
    return;
  }
  setPerGroup(stack_[place].perGroup);
  const auto flipped = [](float x) { return -x; };
  applyLoop<KeepResult>(flipped, buffer(place), count_, ArrayReader{stack_[place].values});
  setArray(place);
}

void ChunkRun::binary(std::uint8_t code, const Operand& left, const Operand& right,
                      std::size_t out) {
  const Operand a = left, b = right;
  visitBinary(static_cast<BinaryOperator>(code), [&](auto rule) {
    if (a.values == nullptr && b.values == nullptr) {
      return setConstant(out, rule(a.constant, b.constant));
    }
    if (a.values == nullptr) {
      applyLoop<KeepResult>(rule, buffer(out), count_, ConstantReader{a.constant},
                            ArrayReader{b.values});
    } else if (b.values == nullptr) {
      applyLoop<KeepResult>(rule, buffer(out), count_, ArrayReader{a.values},
                            ConstantReader{b.constant});
    } else {
      applyLoop<KeepResult>(rule, buffer(out), count_, ArrayReader{a.values},
                            ArrayReader{b.values});
    }
    setArray(out);
  });
}

void ChunkRun::binaryVector(const Instruction& instruction) {
  const bool leftVector = (instruction.b & 1) != 0, rightVector = (instruction.b & 2) != 0;
  const std::size_t right = top_ - (rightVector ? 3 : 1);
  const std::size_t left = right - (leftVector ? 3 : 1);
  level(left, top_ - left);
  // Each component is written below the operands of the next, but for a number on the left.
  const Operand number = leftVector ? Operand() : kept(left);
  for (std::size_t i = 0; i < 3; ++i) {
    binary(instruction.a, leftVector ? stack_[left + i] : number,
           stack_[rightVector ? right + i : right], left + i);
  }
  top_ = left + 3;
}

template <class Function, std::size_t... i>
void ChunkRun::applyMath(Function function, std::size_t first, std::size_t stride,
                         std::index_sequence<i...>) {
  if (((stack_[first + i * stride].values == nullptr) && ...)) {
    return setConstant(first, finiteOrZero(function(stack_[first + i * stride].constant...)));
  }
  applyLoop<FiniteResult>(function, buffer(first), count_,
                          ArrayReader{asArray(first + i * stride)}...);
  setArray(first);
}

void ChunkRun::callMath(ExpressionFunction function, std::size_t first, std::size_t stride) {
  visitMath(function, [&](auto rule) {
    constexpr auto arity = static_cast<std::size_t>(arityOf<decltype(rule)>());
    applyMath(rule, first, stride, std::make_index_sequence<arity>());
  });
}

void ChunkRun::call(const Instruction& instruction) {
  const auto function = static_cast<ExpressionFunction>(instruction.a);
  const FunctionRow& row = rowOf(function);
  top_ -= instruction.b;
  level(top_, instruction.b);
  if (row.kind == FunctionClass::math) {
    callMath(function, top_, 1);
  } else {
    callEach(instruction, row, top_);
  }
  top_ += row.width;
}

void ChunkRun::callEach(const Instruction& instruction, const FunctionRow& row, std::size_t first) {
  const bool seedVaries = row.code == ExpressionFunction::rand && block_.seeds.values != nullptr;
  const bool placeVaries =
      row.kind == FunctionClass::map &&
      (block_.locations.values != nullptr || block_.hasLocations.values != nullptr);
  bool once = false;
  if (std::all_of(stack_ + first, stack_ + first + instruction.b,
                  [](const Operand& operand) { return operand.values == nullptr; })) {
    setPerGroup(grouped());
    once = (!seedVaries && !placeVaries) || (grouped() && groupCount_ == 1);
  }
  const std::size_t count = once ? 1 : count_;
  // Whose seed and place an element has: its own, or its group's.
  std::size_t owner = grouped() ? firstGroup_ : begin_;
  const bool ownersAreGroups = grouped() && !perGroup_;
  float numbers[256];  // as many as an instruction can name
  for (std::size_t i = 0; i < count; ++i) {
    while (ownersAreGroups && block_.groups[owner + 1] <= begin_ + i) ++owner;
    for (std::size_t k = 0; k < instruction.b; ++k) numbers[k] = stack_[first + k][i];
    CallContext context{block_.seeds[owner]};
    MapSample location;
    if (row.kind == FunctionClass::map && block_.hasLocations[owner]) {
      location = block_.locations[owner];
      context.location = &location;
    }
    callFunction(instruction, tables_, context, numbers, numbers);
    for (std::size_t k = 0; k < row.width; ++k) buffer(first + k)[i] = numbers[k];
    if (!ownersAreGroups) ++owner;
  }
  for (std::size_t k = 0; k < row.width; ++k) {
    if (once) {
      setConstant(first + k, buffer(first + k)[0]);
    } else {
      setArray(first + k);
    }
  }
}

void ChunkRun::select(const Operand& condition, std::size_t chosen, std::size_t otherwise,
                      std::size_t out) {
  if (condition.values == nullptr) {
    move(condition.constant != 0.0f ? chosen : otherwise, out);
    return;
  }
  const auto rule = [](float c, float a, float b) { return c != 0.0f ? a : b; };
  applyLoop<KeepResult>(rule, buffer(out), count_, ArrayReader{condition.values},
                        ArrayReader{asArray(chosen)}, ArrayReader{asArray(otherwise)});
  setArray(out);
}

std::size_t ChunkRun::run(std::size_t begin, std::size_t end) {
  setChunk(begin, std::min(end, begin + chunkSize_));
  runProgram();
  for (std::size_t i = 0; i < width_; ++i) spread(i);
  return elementCount_;
}

void ChunkRun::runProgram() {
  using Op = ExpressionOp;
  top_ = 0;
  for (const Instruction& instruction : program_) {
    switch (instruction.op) {
      case Op::pushConstant:
        setConstant(top_++, instruction.value);
        break;
      case Op::pushVariable:
        pushVariable(instruction.a);
        break;
      case Op::pushChannel:
        pushChannel(instruction.index);
        break;
      case Op::negate:
        negate(top_ - 1);
        break;
      case Op::binary:
        --top_;
        level(top_ - 1, 2);
        binary(instruction.a, stack_[top_ - 1], stack_[top_], top_ - 1);
        break;
      case Op::call:
        call(instruction);
        break;
      case Op::select:
        top_ -= 2;
        level(top_ - 1, 3);
        select(stack_[top_ - 1], top_, top_ + 1, top_ - 1);
        break;
      case Op::negateVector:
        for (std::size_t i = 1; i <= 3; ++i) negate(top_ - i);
        break;
      case Op::binaryVector:
        binaryVector(instruction);
        break;
      case Op::selectVector: {
        top_ -= 4;
        level(top_ - 3, 7);
        const Operand condition = kept(top_ - 3);
        for (std::size_t i = 0; i < 3; ++i) {
          select(condition, top_ - 2 + i, top_ + 1 + i, top_ - 3 + i);
        }
        break;
      }
      case Op::callPerComponent:
        top_ -= instruction.b;
        level(top_, instruction.b);
        for (std::size_t i = 0; i < 3; ++i) {
          callMath(static_cast<ExpressionFunction>(instruction.a), top_ + i, 3);
        }
        top_ += 3;
        break;
      case Op::component:
        top_ -= 2;
        move(top_ - 1 + instruction.a, top_ - 1);
        break;
      case Op::splat:
        for (std::size_t i = 0; i < 2; ++i) {
          move(top_ - 1, top_ + i);
        }
        top_ += 2;
        break;
    }
  }
}

/// Runs all chunks of a block; give(run, begin, count) takes the value of each.
template <class Give>
void runBlock(const Expression& expression, const ExpressionBlock& block, std::size_t count,
              Give&& give) {
  assert(block.groups.empty() || (block.groups.front() == 0 && block.groups.back() >= count));
  Operand stack[deepestStack];
  alignas(64) float buffers[bufferFloats];
  ChunkRun run(expression, block, stack, buffers);
  for (std::size_t begin = 0; begin < count;) {
    const std::size_t size = run.run(begin, count);
    give(run, begin, size);
    begin += size;
  }
}

}  // namespace

}  // namespace detail

void Expression::evaluateBlock(const ExpressionBlock& block, std::span<float> out) const {
  detail::runBlock(*this, block, std::min(block.count, out.size()),
                   [&](const detail::ChunkRun& run, std::size_t begin, std::size_t count) {
                     const detail::Operand& value = run.value(0);
                     if (value.values == nullptr) {
                       std::fill_n(out.data() + begin, count, detail::finiteOrZero(value.constant));
                     } else {
                       const auto same = [](float x) { return x; };
                       detail::applyLoop<detail::FiniteResult>(same, out.data() + begin, count,
                                                               detail::ArrayReader{value.values});
                     }
                   });
}

void Expression::evaluateBlock(const ExpressionBlock& block, std::span<Vec3f> out) const {
  const std::size_t step = type_ == ExpressionType::vector ? 1 : 0;
  detail::runBlock(*this, block, std::min(block.count, out.size()),
                   [&](const detail::ChunkRun& run, std::size_t begin, std::size_t count) {
                     for (std::size_t i = 0; i < count; ++i) {
                       out[begin + i] = {detail::finiteOrZero(run.value(0)[i]),
                                         detail::finiteOrZero(run.value(step)[i]),
                                         detail::finiteOrZero(run.value(2 * step)[i])};
                     }
                   });
}

}  // namespace kestrane
