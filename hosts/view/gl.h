// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <GL/glcorearb.h>

#include <stdexcept>

namespace kestrane {

/// A picture that cannot be drawn: no driver, or one that fails. One sentence for the user.
struct ViewError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The OpenGL functions that the view uses; filled by loadGl for the process, since one driver
// serves all contexts.
#define KESTRANE_GL_FUNCTIONS(X)                              \
  X(AttachShader, ATTACHSHADER)                               \
  X(BindBufferBase, BINDBUFFERBASE)                           \
  X(BindFramebuffer, BINDFRAMEBUFFER)                         \
  X(BindTextureUnit, BINDTEXTUREUNIT)                         \
  X(BindVertexArray, BINDVERTEXARRAY)                         \
  X(CheckNamedFramebufferStatus, CHECKNAMEDFRAMEBUFFERSTATUS) \
  X(ClearNamedFramebufferfv, CLEARNAMEDFRAMEBUFFERFV)         \
  X(CompileShader, COMPILESHADER)                             \
  X(CreateBuffers, CREATEBUFFERS)                             \
  X(CreateFramebuffers, CREATEFRAMEBUFFERS)                   \
  X(CreateProgram, CREATEPROGRAM)                             \
  X(CreateShader, CREATESHADER)                               \
  X(CreateTextures, CREATETEXTURES)                           \
  X(CreateVertexArrays, CREATEVERTEXARRAYS)                   \
  X(DeleteBuffers, DELETEBUFFERS)                             \
  X(DeleteFramebuffers, DELETEFRAMEBUFFERS)                   \
  X(DeleteProgram, DELETEPROGRAM)                             \
  X(DeleteShader, DELETESHADER)                               \
  X(DeleteTextures, DELETETEXTURES)                           \
  X(DeleteVertexArrays, DELETEVERTEXARRAYS)                   \
  X(Disable, DISABLE)                                         \
  X(DrawArrays, DRAWARRAYS)                                   \
  X(DrawElements, DRAWELEMENTS)                               \
  X(Enable, ENABLE)                                           \
  X(GetError, GETERROR)                                       \
  X(GetProgramInfoLog, GETPROGRAMINFOLOG)                     \
  X(GetProgramiv, GETPROGRAMIV)                               \
  X(GetShaderInfoLog, GETSHADERINFOLOG)                       \
  X(GetShaderiv, GETSHADERIV)                                 \
  X(GetString, GETSTRING)                                     \
  X(LinkProgram, LINKPROGRAM)                                 \
  X(NamedBufferStorage, NAMEDBUFFERSTORAGE)                   \
  X(NamedBufferSubData, NAMEDBUFFERSUBDATA)                   \
  X(NamedFramebufferDrawBuffer, NAMEDFRAMEBUFFERDRAWBUFFER)   \
  X(NamedFramebufferTexture, NAMEDFRAMEBUFFERTEXTURE)         \
  X(PixelStorei, PIXELSTOREI)                                 \
  X(PrimitiveRestartIndex, PRIMITIVERESTARTINDEX)             \
  X(ReadPixels, READPIXELS)                                   \
  X(ShaderSource, SHADERSOURCE)                               \
  X(TextureParameteri, TEXTUREPARAMETERI)                     \
  X(TextureStorage2D, TEXTURESTORAGE2D)                       \
  X(UseProgram, USEPROGRAM)                                   \
  X(VertexArrayElementBuffer, VERTEXARRAYELEMENTBUFFER)       \
  X(Viewport, VIEWPORT)

#define KESTRANE_GL_DECLARE(name, type) extern PFNGL##type##PROC gl##name;
namespace gl {
KESTRANE_GL_FUNCTIONS(KESTRANE_GL_DECLARE)
}
#undef KESTRANE_GL_DECLARE

/// Looks all functions up. Throws ViewError that names the first one missing.
void loadGl();

}  // namespace kestrane
