// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kestrane {

/// Frames from a first one on, evenly spaced.
struct FrameRange {
  double first = 0.0;
  double step = 1.0;
  std::size_t count = 1;

  double frame(std::size_t index) const { return first + step * static_cast<double>(index); }
};

/// Reads A:B or A:B:STEP; the last frame is B or the one before it on the grid. Nothing for a text
/// of another form, a step that is not above 0 or too small to tell frames apart, B before A, or
/// more than a million frames.
std::optional<FrameRange> parseFrameRange(const std::string& text);

}  // namespace kestrane
