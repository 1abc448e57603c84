// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>

namespace kestrane {

/// How many threads a parallel loop may use: the limit set, or the machine's hardware concurrency.
/// The environment variable KESTRANE_THREADS sets the limit at first use. Callable from any thread.
std::size_t threadCount();

/// Limits every later parallel loop to n threads; 0, or any n at or above the hardware concurrency,
/// means no limit. A loop that runs already keeps its limit.
void setThreadCount(std::size_t n);

namespace detail {

using RangeBody = void (*)(void* context, std::size_t begin, std::size_t end);
using WholeBody = void (*)(void* context);

/// Splits [begin, end) into chunks of at least about `grain` (0 counts as 1) and runs the body on
/// each, on several threads. An empty range runs nothing. One of the exceptions thrown in bodies
/// reaches the caller. May be nested.
void parallelRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context);

/// The same, but the calling thread takes up no work of other loops while it waits, and waits for
/// none of them to end. For loops under a lock that other loops' bodies may ask for, too.
void isolatedRange(std::size_t begin, std::size_t end, std::size_t grain, RangeBody body,
                   void* context);

/// What KESTRANE_THREADS asks for: the number, or 0 (no limit) where the text is null, empty or
/// anything but one decimal number.
std::size_t parseThreadLimit(const char* text);

/// Runs the body with every parallel loop in it capped to `threads` (0: no cap). A run inside
/// another one never lifts that one's cap.
void runWithThreads(std::size_t threads, WholeBody body, void* context);

/// What counts as the machine's hardware concurrency for limits set from now on (0: its own), so
/// that tests can set limits that the machine is too small for.
void pretendHardware(std::size_t threads);

}  // namespace detail

/// Whether the calling thread runs the body of a parallel loop, where the order of things is
/// anyone's guess.
bool insideParallelLoop();

/// The typed front end: body(first, onePastLast) per chunk. Bodies write only their own indices, so
/// that results never depend on the number of threads.
template <class Body>
void parallelRange(std::size_t begin, std::size_t end, std::size_t grain, Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  detail::parallelRange(
      begin, end, grain,
      [](void* context, std::size_t first, std::size_t last) {
        (*static_cast<Plain*>(context))(first, last);
      },
      const_cast<void*>(static_cast<const void*>(std::addressof(body))));
}

/// parallelRange for a loop that runs under a lock; see detail::isolatedRange.
template <class Body>
void isolatedRange(std::size_t begin, std::size_t end, std::size_t grain, Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  detail::isolatedRange(
      begin, end, grain,
      [](void* context, std::size_t first, std::size_t last) {
        (*static_cast<Plain*>(context))(first, last);
      },
      const_cast<void*>(static_cast<const void*>(std::addressof(body))));
}

template <class Body>
void runWithThreads(std::size_t threads, Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  detail::runWithThreads(
      threads, [](void* context) { (*static_cast<Plain*>(context))(); },
      const_cast<void*>(static_cast<const void*>(std::addressof(body))));
}

}  // namespace kestrane
