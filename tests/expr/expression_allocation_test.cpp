// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "core/expr/expression.h"
#include "tests/expr/expression_cases.h"

namespace {
std::atomic<std::size_t> allocations = 0;
}

// All of the program's, so that nothing is missed.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace kestrane {
namespace {

TEST(ExpressionAllocation, EvaluationTakesNone) {
  ExpressionEnvironment environment;
  environment.findMap = [](const std::string&) { return std::make_shared<ComponentMap>(); };
  std::vector<float> numbers(300, 0.5f), out(300);
  std::vector<Vec3f> vectors(300);
  ExpressionBlock block;
  block.count = numbers.size();
  for (auto& slot : block.slots) slot = numbers.data();
  block.hasLocations = true;
  for (const std::string& text :
       {std::string("fbm(P) * curve(t, 0, 1, 1, 0.5) + map('m') + weight + rand(x)"),
        nestedChoices(2), nestedChoices(16)}) {
    const Expression expression = Expression::compile(text, environment);
    const std::size_t before = allocations;
    ASSERT_GT(before, 0u);
    expression.evaluateBlock(block, std::span(out));
    expression.evaluateBlock(block, std::span(vectors));
    out[0] = expression.evaluate({}) + expression.evaluateVector({}).y;
    EXPECT_EQ(allocations, before) << text;
  }
}

}  // namespace
}  // namespace kestrane
