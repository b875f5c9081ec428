#pragma once
// The GL side of the preview: the shader program every cache is drawn with, and the upload of a
// cache's meshes into buffer objects. Every call here needs a current GL context of version 3.3
// or later and runs on the thread that owns it (see VrOpenGLThread).
//
// Lighting: triangles are lit two-sided by their normal; lines by their tangent (the brightest
// where the light crosses the curve, as on a thin tube); outlines are not lit.

#include "io/VrPngFile.h"
#include "renderers/VrGLCache.h"

#include <string>

class VrGLProgram {
 public:
  VrGLProgram() = default;
  ~VrGLProgram();
  VrGLProgram(const VrGLProgram&) = delete;
  VrGLProgram& operator=(const VrGLProgram&) = delete;

  /// Compiles and links the shaders; false with `error` set when the driver refuses them.
  bool init(std::string& error);
  /// Makes the program current with the view and the light for the draws that follow.
  void use(const float viewProjection[16], const SgVec3T<double>& light) const;
  /// Draws the uploaded meshes of `cache`: triangles, lines, and outlines when `outlines`.
  void draw(const VrGLCache& cache, bool outlines) const;

 private:
  void drawMesh(const VrGLCache::Mesh& mesh, unsigned primitive, int mode) const;

  unsigned program = 0;
  int viewProjectionAt = -1, lightAt = -1, modeAt = -1;
};

/// Copies the cache's meshes into buffer objects (once, or again when the cache is dirty) and
/// clears its dirty flag; the CPU copies stay for selection.
void VrGLUpload(VrGLCache& cache);
/// Deletes the cache's buffer objects.
void VrGLRelease(VrGLCache& cache);

/// Readies the bound framebuffer for a `width` x `height` picture: viewport, cleared colour
/// (`background`, RGB from 0 to 1) and depth, depth test on.
void VrGLBeginFrame(const float background[3], unsigned width, unsigned height);
/// Reads the `width` x `height` picture of the framebuffer bound for reading, top row first;
/// false when the driver reports an error.
bool VrGLReadFrame(unsigned width, unsigned height, VrRgbImage& image);
/// "<renderer> (<version>)" of the current context's driver.
std::string VrGLDriverName();
/// Draws `overlay`, whose points are in device coordinates (x and y from -1 to 1, z -1 in front),
/// unlit over the picture; uploads and frees its buffers. Leaves the program current.
void VrGLDrawOverlay(const VrGLProgram& program, VrGLCache& overlay);
