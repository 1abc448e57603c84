// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <utility>

#include "hosts/view/gl.h"

namespace kestrane {

/// An OpenGL name that is deleted with its holder; 0 holds none.
template <auto& remove>
class GlName {
 public:
  GlName() = default;
  explicit GlName(GLuint name) : name_(name) {}
  GlName(GlName&& other) noexcept : name_(std::exchange(other.name_, 0)) {}
  GlName& operator=(GlName&& other) noexcept {
    std::swap(name_, other.name_);
    return *this;
  }
  ~GlName() {
    if (name_ != 0) remove(1, &name_);
  }
  operator GLuint() const { return name_; }  // NOLINT: passed to OpenGL as it is

 private:
  GLuint name_ = 0;
};

using GlBuffer = GlName<gl::glDeleteBuffers>;
using GlTexture = GlName<gl::glDeleteTextures>;
using GlFramebuffer = GlName<gl::glDeleteFramebuffers>;
using GlVertexArray = GlName<gl::glDeleteVertexArrays>;

/// A linked program of a vertex and a fragment shader.
class GlProgram {
 public:
  /// Throws ViewError with the driver's words.
  GlProgram(const std::string& vertexText, const std::string& fragmentText);
  ~GlProgram();
  GlProgram(const GlProgram&) = delete;
  GlProgram& operator=(const GlProgram&) = delete;
  void use() const { gl::glUseProgram(name_); }

 private:
  GLuint name_ = 0;
};

/// A buffer of a fixed size, to be written with glNamedBufferSubData. Throws ViewError without
/// memory.
GlBuffer makeBuffer(std::size_t bytes, const void* data = nullptr);
GlTexture makeTexture(GLenum format, int width, int height);
GlFramebuffer makeFramebuffer();
GlVertexArray makeVertexArray();
/// Throws ViewError unless the framebuffer can be drawn to.
void checkFramebuffer(GLuint framebuffer);

}  // namespace kestrane
