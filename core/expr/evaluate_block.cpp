// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "core/expr/evaluate.h"
#include "core/expr/math_rules.h"

// A loop whose iterations touch no element of each other, so that it may be vectorised although
// its operands lie where its result goes.
#if defined(__clang__)
#define KESTRANE_INDEPENDENT_LOOP _Pragma("clang loop vectorize(assume_safety)")
#elif defined(__GNUC__)
#define KESTRANE_INDEPENDENT_LOOP _Pragma("GCC ivdep")
#else
#define KESTRANE_INDEPENDENT_LOOP
#endif

namespace kestrane {

namespace detail {

namespace {

/// The most elements that are worked on at once: few enough that a stack of them stays in the
/// nearest cache, enough to make little of what an instruction costs.
constexpr std::size_t mostElements = 128;

/// Buffers beyond the stack for operands that would be overwritten too early.
constexpr std::size_t spareBuffers = 1;

/// The floats of all buffers together. A program whose stack does not fit them works on fewer
/// elements at once, so that none needs memory of its own.
constexpr std::size_t bufferFloats = 16384;

constexpr std::size_t chunkSizeOf(std::size_t stackDepth) {
  return std::min(mostElements, bufferFloats / (stackDepth + spareBuffers));
}
static_assert(chunkSizeOf(deepestStack) > 0);

/// One float of the stack, for all elements of a chunk: an array, or one value for all. An array is
/// the input's own or the buffer of that place on the stack, never that of another place. Without
/// initial values, since most programs leave most of the stack alone.
struct Operand {
  const float* values;
  float constant;

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
void applyLoop(Function function, float* out, std::size_t count, Readers... readers) {
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
        spare_(buffer(expression.stackDepth())) {}

  std::size_t chunkSize() const { return chunkSize_; }

  /// Afterwards value(0) is the number, or value(0) to value(2) the vector.
  void run(std::size_t begin, std::size_t count);
  const Operand& value(std::size_t i) const { return stack_[i]; }

 private:
  float* buffer(std::size_t place) const { return buffers_ + place * chunkSize_; }
  bool isOwn(std::size_t place) const { return stack_[place].values == buffer(place); }
  void setArray(std::size_t place) { stack_[place] = {buffer(place), 0.0f}; }

  /// Moves an operand down the stack.
  void move(std::size_t from, std::size_t to);
  /// The operand as an array, written out in its buffer if it is one value.
  const float* asArray(std::size_t place);
  /// A copy of the operand that stays when the buffer of its place is written.
  Operand kept(std::size_t place);

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
  std::size_t top_ = 0;
  std::size_t begin_ = 0;
  std::size_t count_ = 0;
};

void ChunkRun::move(std::size_t from, std::size_t to) {
  if (from == to) return;
  if (isOwn(from)) {
    std::copy_n(buffer(from), count_, buffer(to));
    setArray(to);
  } else {
    stack_[to] = stack_[from];
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
  return {spare_, 0.0f};
}

void ChunkRun::pushChannel(std::uint32_t entry) {
  const std::size_t place = top_++;
  stack_[place] = {};
  if (entry >= block_.channels.size()) return;
  const ExpressionChannel& channel = block_.channels[entry];
  const ExpressionIndices& indices = channel.perPoint ? block_.points : block_.strands;
  const auto at = [&](std::size_t i) {
    const std::size_t index = indices[begin_ + i];
    return index < channel.values.size() ? channel.values[index] : 0.0f;
  };
  const bool counted = indices.values == nullptr;
  if (counted && indices.step == 0) {
    stack_[place].constant = at(0);
  } else if (counted && indices.step == 1 && indices[begin_] < channel.values.size() &&
             channel.values.size() - indices[begin_] >= count_) {
    stack_[place].values = channel.values.data() + indices[begin_];
  } else {
    for (std::size_t i = 0; i < count_; ++i) buffer(place)[i] = at(i);
    setArray(place);
  }
}

void ChunkRun::negate(std::size_t place) {
  if (stack_[place].values == nullptr) {
    stack_[place].constant = -stack_[place].constant;
    return;
  }
  const auto flipped = [](float x) { return -x; };
  applyLoop<KeepResult>(flipped, buffer(place), count_, ArrayReader{stack_[place].values});
  setArray(place);
}

void ChunkRun::binary(std::uint8_t code, const Operand& left, const Operand& right,
                      std::size_t out) {
  const Operand a = left, b = right;
  visitBinary(static_cast<BinaryOperator>(code), [&](auto rule) {
    if (a.values == nullptr && b.values == nullptr) {
      stack_[out] = {nullptr, rule(a.constant, b.constant)};
      return;
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
    const float result = finiteOrZero(function(stack_[first + i * stride].constant...));
    stack_[first] = {nullptr, result};
    return;
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
  if (row.kind == FunctionClass::math) {
    callMath(function, top_, 1);
  } else {
    callEach(instruction, row, top_);
  }
  top_ += row.width;
}

void ChunkRun::callEach(const Instruction& instruction, const FunctionRow& row, std::size_t first) {
  const auto oneForAll = [](const Operand& operand) { return operand.values == nullptr; };
  const bool seedVaries = row.code == ExpressionFunction::rand && block_.seeds.values != nullptr;
  const bool placeVaries =
      row.kind == FunctionClass::map &&
      (block_.locations.values != nullptr || block_.hasLocations.values != nullptr);
  const bool once = !seedVaries && !placeVaries &&
                    std::all_of(stack_ + first, stack_ + first + instruction.b, oneForAll);
  const std::size_t count = once ? 1 : count_;
  float numbers[256];  // as many as an instruction can name
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t k = 0; k < instruction.b; ++k) numbers[k] = stack_[first + k][i];
    CallContext context{block_.seeds[begin_ + i]};
    MapSample location;
    if (row.kind == FunctionClass::map && block_.hasLocations[begin_ + i]) {
      location = block_.locations[begin_ + i];
      context.location = &location;
    }
    callFunction(instruction, tables_, context, numbers, numbers);
    for (std::size_t k = 0; k < row.width; ++k) buffer(first + k)[i] = numbers[k];
  }
  for (std::size_t k = 0; k < row.width; ++k) {
    if (once) {
      stack_[first + k] = {nullptr, buffer(first + k)[0]};
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

void ChunkRun::run(std::size_t begin, std::size_t count) {
  using Op = ExpressionOp;
  begin_ = begin;
  count_ = count;
  top_ = 0;
  for (const Instruction& instruction : program_) {
    switch (instruction.op) {
      case Op::pushConstant:
        stack_[top_++] = {nullptr, instruction.value};
        break;
      case Op::pushVariable: {
        const ExpressionLane<float>& lane = block_.slots[instruction.a];
        stack_[top_++] = lane.values != nullptr ? Operand{lane.values + begin, 0.0f}
                                                : Operand{nullptr, lane.constant};
        break;
      }
      case Op::pushChannel:
        pushChannel(instruction.index);
        break;
      case Op::negate:
        negate(top_ - 1);
        break;
      case Op::binary:
        --top_;
        binary(instruction.a, stack_[top_ - 1], stack_[top_], top_ - 1);
        break;
      case Op::call:
        call(instruction);
        break;
      case Op::select:
        top_ -= 2;
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
        const Operand condition = kept(top_ - 3);
        for (std::size_t i = 0; i < 3; ++i) {
          select(condition, top_ - 2 + i, top_ + 1 + i, top_ - 3 + i);
        }
        break;
      }
      case Op::callPerComponent:
        top_ -= instruction.b;
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
  Operand stack[deepestStack];
  alignas(64) float buffers[bufferFloats];
  ChunkRun run(expression, block, stack, buffers);
  for (std::size_t begin = 0; begin < count; begin += run.chunkSize()) {
    const std::size_t size = std::min(run.chunkSize(), count - begin);
    run.run(begin, size);
    give(run, begin, size);
  }
}

}  // namespace

}  // namespace detail

void Expression::evaluateBlock(const ExpressionBlock& block, std::span<float> out) const {
  detail::runBlock(*this, block, std::min(block.count, out.size()),
                   [&](const detail::ChunkRun& run, std::size_t begin, std::size_t count) {
                     const detail::Operand& value = run.value(0);
                     float* to = out.data() + begin;
                     for (std::size_t i = 0; i < count; ++i) to[i] = detail::finiteOrZero(value[i]);
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
