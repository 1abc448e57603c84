// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "hosts/cli/console.h"

namespace kestrane {

/// Shows how a longer piece of work goes: on a terminal a bar, drawn once the work has taken a
/// second; elsewhere one plain line at the end of such work, and one every ten seconds before.
/// Nothing for short work or a quiet console.
class Progress {
 public:
  /// total 0: how much there is to do is not known, and the bar only shows that it goes on.
  Progress(const Console& console, std::string what, std::size_t total = 0);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// May be called from any thread.
  void reach(std::size_t done) { done_ = done; }
  /// Lets somebody else speak on the standard error, on a line of their own.
  void aside(const std::function<void()>& speak);

 private:
  void watch();
  void draw(double seconds);
  void clear();

  const std::string what_;
  const std::size_t total_;
  const bool terminal_;
  const std::chrono::steady_clock::time_point start_;
  std::atomic<std::size_t> done_ = 0;
  bool drawn_ = false;  // a bar stands on the terminal's line
  bool stop_ = false;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::thread watcher_;  // not started for a quiet console
};

}  // namespace kestrane
