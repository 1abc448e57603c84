// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/gl_objects.h"

#include <string>

namespace kestrane {

namespace {

using namespace gl;

GLuint compile(GLenum stage, const std::string& whole) {
  const char* const text = whole.c_str();
  const GLuint shader = glCreateShader(stage);
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  GLint good = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &good);
  if (good == 0) {
    char log[2048] = "";
    glGetShaderInfoLog(shader, sizeof log, nullptr, log);
    glDeleteShader(shader);
    throw ViewError(std::string("cannot draw: the OpenGL driver refuses a shader: ") + log);
  }
  return shader;
}

void checkMemory() {
  if (glGetError() == GL_OUT_OF_MEMORY) {
    throw ViewError("cannot draw: there is not enough graphics memory for a picture of this size");
  }
}

}  // namespace

GlProgram::GlProgram(const std::string& vertexText, const std::string& fragmentText) {
  const GLuint vertex = compile(GL_VERTEX_SHADER, vertexText);
  GLuint fragment = 0;
  try {
    fragment = compile(GL_FRAGMENT_SHADER, fragmentText);
  } catch (...) {
    glDeleteShader(vertex);
    throw;
  }
  name_ = glCreateProgram();
  glAttachShader(name_, vertex);
  glAttachShader(name_, fragment);
  glLinkProgram(name_);
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  GLint good = 0;
  glGetProgramiv(name_, GL_LINK_STATUS, &good);
  if (good == 0) {
    char log[2048] = "";
    glGetProgramInfoLog(name_, sizeof log, nullptr, log);
    glDeleteProgram(name_);
    throw ViewError(std::string("cannot draw: the OpenGL driver refuses a program: ") + log);
  }
}

GlProgram::~GlProgram() {
  glDeleteProgram(name_);
}

GlBuffer makeBuffer(std::size_t bytes, const void* data) {
  GLuint name = 0;
  glCreateBuffers(1, &name);
  GlBuffer buffer(name);
  glNamedBufferStorage(name, static_cast<GLsizeiptr>(bytes), data, GL_DYNAMIC_STORAGE_BIT);
  checkMemory();
  return buffer;
}

GlTexture makeTexture(GLenum format, int width, int height) {
  GLuint name = 0;
  glCreateTextures(GL_TEXTURE_2D, 1, &name);
  GlTexture texture(name);
  glTextureStorage2D(name, 1, format, width, height);
  for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
    glTextureParameteri(name, wrap, GL_CLAMP_TO_EDGE);
  }
  for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
    glTextureParameteri(name, filter, GL_NEAREST);
  }
  checkMemory();
  return texture;
}

GlFramebuffer makeFramebuffer() {
  GLuint name = 0;
  glCreateFramebuffers(1, &name);
  return GlFramebuffer(name);
}

GlVertexArray makeVertexArray() {
  GLuint name = 0;
  glCreateVertexArrays(1, &name);
  return GlVertexArray(name);
}

void checkFramebuffer(GLuint framebuffer) {
  checkMemory();
  if (glCheckNamedFramebufferStatus(framebuffer, GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
    throw ViewError("cannot draw: the OpenGL driver cannot draw a picture of this size");
  }
}

}  // namespace kestrane
