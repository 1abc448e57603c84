// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/offscreen_context.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "hosts/view/gl.h"

namespace kestrane {

namespace {

bool hasWord(const char* list, const char* word) {
  if (list == nullptr) return false;
  const std::size_t size = std::strlen(word);
  for (const char* at = std::strstr(list, word); at != nullptr; at = std::strstr(at + size, word)) {
    const bool starts = at == list || at[-1] == ' ';
    if (starts && (at[size] == ' ' || at[size] == 0)) return true;
  }
  return false;
}

/// Displays to try: real devices, then whatever Mesa draws without a surface, then the software
/// device, then the default display.
std::vector<EGLDisplay> candidates() {
  std::vector<EGLDisplay> hardware, software;
  const char* const extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  const auto getDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
      eglGetProcAddress("eglGetPlatformDisplayEXT"));
  if (getDisplay != nullptr && hasWord(extensions, "EGL_EXT_platform_device")) {
    const auto queryDevices =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    const auto queryString = reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(
        eglGetProcAddress("eglQueryDeviceStringEXT"));
    EGLDeviceEXT devices[16];
    EGLint count = 0;
    if (queryDevices != nullptr && queryString != nullptr && queryDevices(16, devices, &count)) {
      for (EGLint i = 0; i < count; ++i) {
        const bool soft =
            hasWord(queryString(devices[i], EGL_EXTENSIONS), "EGL_MESA_device_software");
        (soft ? software : hardware)
            .push_back(getDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr));
      }
    }
  }
  if (getDisplay != nullptr && hasWord(extensions, "EGL_MESA_platform_surfaceless")) {
    hardware.push_back(getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
  }
  hardware.insert(hardware.end(), software.begin(), software.end());
  hardware.push_back(eglGetDisplay(EGL_DEFAULT_DISPLAY));
  return hardware;
}

}  // namespace

OffscreenContext::OffscreenContext() {
  for (const EGLDisplay display : candidates()) {
    if (tryDisplay(display)) return;
  }
  throw ViewError(
      "cannot draw: no driver gives OpenGL 4.5 without a window (on Debian, install "
      "libegl-mesa0 and libgl1-mesa-dri)");
}

bool OffscreenContext::tryDisplay(void* display) {
  if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) return false;
  const char* const extensions = eglQueryString(display, EGL_EXTENSIONS);
  constexpr EGLint wanted[] = {EGL_CONTEXT_MAJOR_VERSION,
                               4,
                               EGL_CONTEXT_MINOR_VERSION,
                               5,
                               EGL_CONTEXT_OPENGL_PROFILE_MASK,
                               EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                               EGL_NONE};
  if (hasWord(extensions, "EGL_KHR_surfaceless_context") &&
      hasWord(extensions, "EGL_KHR_no_config_context") && eglBindAPI(EGL_OPENGL_API)) {
    context_ = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, wanted);
  }
  if (context_ == EGL_NO_CONTEXT ||
      !eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context_)) {
    if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display, context_);
    context_ = nullptr;
    eglTerminate(display);
    return false;
  }
  display_ = display;
  loadGl();
  renderer_ = reinterpret_cast<const char*>(gl::glGetString(GL_RENDERER));
  return true;
}

OffscreenContext::~OffscreenContext() {
  eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  eglDestroyContext(display_, context_);
  eglTerminate(display_);
}

}  // namespace kestrane
