#pragma once
// VrGLHeadlessContext: an OpenGL context without a window or a display, for pictures made from
// the shell: EGL on its surfaceless platform, current on the creating thread, drawing into a
// framebuffer object of a given size (four samples per pixel where the driver has them), read
// back as an RGB picture. The same code runs on a GPU driver and on a software rasteriser.
//
// A machine without EGL or without a GL driver gets a false answer and a sentence saying what is
// missing, never a crash: the EGL library is looked for before any GL entry point is called.

#include "io/VrPngFile.h"

#include <memory>
#include <string>

class VrGLHeadlessContext {
 public:
  VrGLHeadlessContext();
  ~VrGLHeadlessContext();
  VrGLHeadlessContext(const VrGLHeadlessContext&) = delete;
  VrGLHeadlessContext& operator=(const VrGLHeadlessContext&) = delete;

  /// Makes a context of GL 3.3 or later current on this thread, with a `width` x `height`
  /// framebuffer bound; false with `error` set when there is no way to draw.
  bool create(unsigned width, unsigned height, std::string& error);
  /// "<renderer> (<version>)" of the driver, once created.
  std::string driverName() const;
  /// Clears colour and depth to `background` (RGB, 0 to 1) and turns on the depth test.
  void begin(const float background[3]);
  /// Reads the picture drawn since `begin`, top row first.
  bool read(VrRgbImage& image);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};
