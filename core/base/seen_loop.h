// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
}
#endif

namespace kestrane::detail {

#ifdef __SANITIZE_THREAD__

/// What the thread sanitizer is to see of a parallel loop. The task library is built without the
/// sanitizer, which therefore misses how tasks are handed over and takes them for races. So all
/// that happens between a loop and its bodies is hidden from it, and it is told what a loop
/// promises: what the caller did before comes before each body, and each body before what the
/// caller does next. Races in the bodies themselves are found as ever.
class SeenLoop {
 public:
  SeenLoop() : wasHidden_(thread().hidden()) {
    __tsan_release(&start_);
    thread().hide(true);
  }
  ~SeenLoop() {
    thread().hide(wasHidden_);
    __tsan_acquire(&end_);
  }
  SeenLoop(const SeenLoop&) = delete;
  SeenLoop& operator=(const SeenLoop&) = delete;

  class Body {
   public:
    explicit Body(const SeenLoop& loop) : loop_(loop) {
      thread().hide(false);
      __tsan_acquire(&loop_.start_);
    }
    /// Stays hidden: a thread of the library runs nothing but the library between bodies.
    ~Body() {
      __tsan_release(&loop_.end_);
      thread().hide(true);
    }
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

   private:
    const SeenLoop& loop_;
  };

 private:
  /// Whether the sanitizer sees what this thread reads and writes.
  class Thread {
   public:
    ~Thread() { hide(false); }
    bool hidden() const { return hidden_; }
    void hide(bool hidden) {
      if (hidden == hidden_) return;
      hidden_ = hidden;
      if (hidden) {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
      } else {
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
      }
    }

   private:
    bool hidden_ = false;
  };
  static Thread& thread() {
    thread_local Thread thread;
    return thread;
  }

  mutable char start_ = 0, end_ = 0;  // their addresses name the two orders
  const bool wasHidden_;
};

#else

/// Nothing, where no thread sanitizer looks.
struct SeenLoop {
  struct Body {
    explicit Body(const SeenLoop&) {}
    ~Body() {}
  };
  SeenLoop() {}
  ~SeenLoop() {}
};

#endif

}  // namespace kestrane::detail
