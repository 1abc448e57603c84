// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace kestrane {

/// An OpenGL 4.5 core context with no window and no display, current on the thread that made it
/// until it is destroyed. A GPU's driver is taken before the software one.
class OffscreenContext {
 public:
  /// Throws ViewError when no driver gives such a context.
  OffscreenContext();
  ~OffscreenContext();
  OffscreenContext(const OffscreenContext&) = delete;
  OffscreenContext& operator=(const OffscreenContext&) = delete;

  /// What draws, in the driver's words.
  const std::string& renderer() const { return renderer_; }

 private:
  bool tryDisplay(void* display);

  void* display_ = nullptr;
  void* context_ = nullptr;
  std::string renderer_;
};

}  // namespace kestrane
