// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/gl.h"

#include <EGL/egl.h>

#include <string>

namespace kestrane {

namespace gl {
#define KESTRANE_GL_DEFINE(name, type) PFNGL##type##PROC gl##name = nullptr;
KESTRANE_GL_FUNCTIONS(KESTRANE_GL_DEFINE)
#undef KESTRANE_GL_DEFINE
}  // namespace gl

namespace {

template <class Function>
void load(Function& function, const char* name) {
  function = reinterpret_cast<Function>(eglGetProcAddress(name));
  if (function == nullptr) {
    throw ViewError(std::string("cannot draw: the OpenGL driver lacks ") + name);
  }
}

}  // namespace

void loadGl() {
#define KESTRANE_GL_LOAD(name, type) load(gl::gl##name, "gl" #name);
  KESTRANE_GL_FUNCTIONS(KESTRANE_GL_LOAD)
#undef KESTRANE_GL_LOAD
}

}  // namespace kestrane
