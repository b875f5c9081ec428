#include "renderers/VrGLHeadlessContext.h"

#include "renderers/VrGLDraw.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <dlfcn.h>

#include <algorithm>

struct VrGLHeadlessContext::Impl {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  GLuint drawFramebuffer = 0, readFramebuffer = 0;
  GLuint drawColour = 0, drawDepth = 0, readColour = 0;
  unsigned width = 0, height = 0;
  int samples = 0;

  // The framebuffer to draw into, multisampled when `samples` > 0; false when incomplete.
  bool makeFramebuffers() {
    glGenFramebuffers(1, &drawFramebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, drawFramebuffer);
    glGenRenderbuffers(1, &drawColour);
    glBindRenderbuffer(GL_RENDERBUFFER, drawColour);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_RGBA8, GLsizei(width), GLsizei(height));
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, drawColour);
    glGenRenderbuffers(1, &drawDepth);
    glBindRenderbuffer(GL_RENDERBUFFER, drawDepth);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_DEPTH_COMPONENT24, GLsizei(width), GLsizei(height));
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, drawDepth);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) return false;
    // The single-sampled target the multisampled picture is resolved into before reading.
    glGenFramebuffers(1, &readFramebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, readFramebuffer);
    glGenRenderbuffers(1, &readColour);
    glBindRenderbuffer(GL_RENDERBUFFER, readColour);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, GLsizei(width), GLsizei(height));
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, readColour);
    const bool complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    glBindFramebuffer(GL_FRAMEBUFFER, drawFramebuffer);
    return complete;
  }

  void deleteFramebuffers() {
    for (GLuint* buffer : {&drawColour, &drawDepth, &readColour})
      if (*buffer) glDeleteRenderbuffers(1, buffer), *buffer = 0;
    for (GLuint* buffer : {&drawFramebuffer, &readFramebuffer})
      if (*buffer) glDeleteFramebuffers(1, buffer), *buffer = 0;
  }
};

VrGLHeadlessContext::VrGLHeadlessContext() : impl(new Impl) {}

VrGLHeadlessContext::~VrGLHeadlessContext() {
  if (impl->context != EGL_NO_CONTEXT) {
    impl->deleteFramebuffers();
    eglMakeCurrent(impl->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(impl->display, impl->context);
  }
  if (impl->display != EGL_NO_DISPLAY) eglTerminate(impl->display);
}

bool VrGLHeadlessContext::create(unsigned width, unsigned height, std::string& error) {
  // The loader of GL entry points gives up the process when it cannot open EGL, so ask first.
  if (!dlopen("libEGL.so.1", RTLD_NOW | RTLD_GLOBAL)) {
    error = "no OpenGL: the EGL library (libEGL.so.1) is not installed";
    return false;
  }
  if (!epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_MESA_platform_surfaceless") &&
      !epoxy_has_egl_extension(EGL_NO_DISPLAY, "EGL_EXT_platform_base")) {
    error = "no OpenGL: EGL offers no display without a window system";
    return false;
  }
  Impl& g = *impl;
  g.display = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  EGLint major = 0, minor = 0;
  if (g.display == EGL_NO_DISPLAY || !eglInitialize(g.display, &major, &minor)) {
    g.display = EGL_NO_DISPLAY;
    error = "no OpenGL: EGL has no driver for drawing without a display (is libgl1-mesa-dri installed?)";
    return false;
  }
  if (!eglBindAPI(EGL_OPENGL_API)) {
    error = "no OpenGL: EGL's driver offers no desktop OpenGL";
    return false;
  }
  const EGLint configAttrs[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint found = 0;
  if (!eglChooseConfig(g.display, configAttrs, &config, 1, &found) || found < 1) config = nullptr;
  // Display lists for the archive proxies need a compatibility profile; a driver without one
  // gives a core context, and the proxies go into buffer objects.
  const EGLint profiles[] = {EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT};
  for (size_t p = VrGLWantsDisplayLists() ? 0 : 1; p < 2 && g.context == EGL_NO_CONTEXT; ++p) {
    const EGLint contextAttrs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                                   EGL_CONTEXT_OPENGL_PROFILE_MASK, profiles[p], EGL_NONE};
    g.context = eglCreateContext(g.display, config, EGL_NO_CONTEXT, contextAttrs);
  }
  if (g.context == EGL_NO_CONTEXT || !eglMakeCurrent(g.display, EGL_NO_SURFACE, EGL_NO_SURFACE, g.context)) {
    if (g.context != EGL_NO_CONTEXT) eglDestroyContext(g.display, g.context);
    g.context = EGL_NO_CONTEXT;
    error = "no OpenGL: the driver cannot make a GL 3.3 context without a display";
    return false;
  }
  g.width = width;
  g.height = height;
  GLint maxSamples = 0;
  glGetIntegerv(GL_MAX_SAMPLES, &maxSamples);
  g.samples = std::min(4, std::max(0, maxSamples));
  if (!g.makeFramebuffers()) {
    g.deleteFramebuffers();
    g.samples = 0;
    if (!g.makeFramebuffers()) {
      error = "the GL driver cannot make a " + std::to_string(width) + "x" + std::to_string(height) + " framebuffer";
      return false;
    }
  }
  glViewport(0, 0, GLsizei(width), GLsizei(height));
  return true;
}

std::string VrGLHeadlessContext::driverName() const {
  return impl->context == EGL_NO_CONTEXT ? std::string() : VrGLDriverName();
}

void VrGLHeadlessContext::begin(const float background[3]) {
  glBindFramebuffer(GL_FRAMEBUFFER, impl->drawFramebuffer);
  VrGLBeginFrame(background, impl->width, impl->height);
}

bool VrGLHeadlessContext::read(VrRgbImage& image) {
  Impl& g = *impl;
  if (g.context == EGL_NO_CONTEXT) return false;
  glBindFramebuffer(GL_READ_FRAMEBUFFER, g.drawFramebuffer);
  glBindFramebuffer(GL_DRAW_FRAMEBUFFER, g.readFramebuffer);
  glBlitFramebuffer(0, 0, GLint(g.width), GLint(g.height), 0, 0, GLint(g.width), GLint(g.height),
                    GL_COLOR_BUFFER_BIT, GL_NEAREST);
  glBindFramebuffer(GL_READ_FRAMEBUFFER, g.readFramebuffer);
  const bool read = VrGLReadFrame(g.width, g.height, image);
  glBindFramebuffer(GL_FRAMEBUFFER, g.drawFramebuffer);
  return read;
}
