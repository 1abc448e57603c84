// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace kestrane {

namespace {

constexpr std::size_t barWidth = 32;
constexpr auto firstShown = std::chrono::seconds(1);
constexpr auto barInterval = std::chrono::milliseconds(100);
constexpr auto lineInterval = std::chrono::seconds(10);

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

}  // namespace

Progress::Progress(const Console& console, std::string what, std::size_t total)
    : what_(std::move(what)),
      total_(total),
      terminal_(isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()) {
  if (!console.quiet) watcher_ = std::thread([this] { watch(); });
}

Progress::~Progress() {
  if (!watcher_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  ended_.notify_one();
  watcher_.join();
  clear();
  const double seconds = secondsSince(start_);
  if (seconds >= 1.0) {
    std::fprintf(stderr, "%s: %s\n", what_.c_str(), secondsText(seconds).c_str());
  }
}

void Progress::aside(const std::function<void()>& speak) {
  const std::lock_guard lock(mutex_);
  clear();
  speak();
}

void Progress::clear() {
  if (drawn_) std::fputs("\r\x1b[K", stderr);
  drawn_ = false;
}

void Progress::watch() {
  std::unique_lock lock(mutex_);
  const auto stopped = [this] { return stop_; };
  if (ended_.wait_for(lock, terminal_ ? firstShown : lineInterval, stopped)) return;
  do {
    draw(secondsSince(start_));
  } while (!ended_.wait_for(
      lock,
      terminal_ ? std::chrono::duration_cast<std::chrono::milliseconds>(barInterval)
                : std::chrono::duration_cast<std::chrono::milliseconds>(lineInterval),
      stopped));
}

void Progress::draw(double seconds) {
  const std::size_t done = std::min<std::size_t>(done_, total_);
  if (!terminal_) {
    const std::string share =
        total_ == 0 ? "" : ", " + std::to_string(done) + " of " + std::to_string(total_);
    std::fprintf(stderr, "%s: %s%s\n", what_.c_str(), secondsText(seconds).c_str(), share.c_str());
    return;
  }
  drawn_ = true;
  std::string bar(barWidth, ' ');
  if (total_ > 0) {
    std::fill_n(bar.begin(), barWidth * done / total_, '#');
  } else {
    // A short block that travels to and fro.
    constexpr std::size_t block = 4, way = barWidth - block;
    const auto step = static_cast<std::size_t>(seconds * 16.0) % (2 * way);
    std::fill_n(bar.begin() + static_cast<std::ptrdiff_t>(step < way ? step : 2 * way - step),
                block, '#');
  }
  std::fprintf(stderr, "\r%s [%s] %s\x1b[K", what_.c_str(), bar.c_str(),
               secondsText(seconds).c_str());
  std::fflush(stderr);
}

}  // namespace kestrane
