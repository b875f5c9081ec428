#pragma once
// The GL side of the preview: the shader program every cache is drawn with, and the upload of a
// cache's meshes into buffer objects. Every call here needs a current GL context of version 3.3
// or later and runs on the thread that owns it (see VrOpenGLThread).
//
// Lighting: triangles are lit two-sided by their normal; lines by their tangent (the brightest
// where the light crosses the curve, as on a thin tube); outlines are not lit.
//
// Archive proxies (VrGLProxy) go into buffer objects, or into display lists when the environment
// variable VORN_DISABLE_VBO_PROXY_ARCHIVES is set and the context keeps them (a compatibility
// profile; the headless context and the viewer's window ask for one then). Each archive draws its
// proxy with its frame as the shader's model matrix and its colour as a constant attribute.

#include "io/VrPngFile.h"
#include "renderers/VrGLCache.h"
#include "renderers/VrGLProxy.h"

#include <string>
#include <vector>

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
  /// Draws the archives of `cache`: each its proxy of `proxies` under its frame, or `box` under
  /// the matrix of its box. The proxies must be uploaded.
  void drawArchives(const VrGLCache& cache, const std::vector<VrGLProxy>& proxies, const VrGLProxy& box) const;

 private:
  void drawMesh(const VrGLCache::Mesh& mesh, unsigned primitive, int mode) const;

  unsigned program = 0;
  int viewProjectionAt = -1, lightAt = -1, modeAt = -1, modelAt = -1, normalModelAt = -1;
};

/// Copies the cache's meshes into buffer objects (once, or again when the cache is dirty) and
/// clears its dirty flag; the CPU copies stay for selection.
void VrGLUpload(VrGLCache& cache);
/// Deletes the cache's buffer objects.
void VrGLRelease(VrGLCache& cache);
/// Whether archive proxies are to go into display lists (VORN_DISABLE_VBO_PROXY_ARCHIVES is set).
bool VrGLWantsDisplayLists();
/// Uploads the proxy once: buffer objects (GL_STATIC_DRAW), or a display list when
/// `VrGLWantsDisplayLists` and the context keeps them (else a warning, once, and buffers).
void VrGLUploadProxy(VrGLProxy& proxy);
/// Deletes the proxy's buffers or display list.
void VrGLReleaseProxy(VrGLProxy& proxy);

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
