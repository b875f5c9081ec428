#pragma once
// What `vorn preview` and `vorn view` draw: a collection read and bound at one frame, the bound
// surfaces of its descriptions as shaded grids, and every description rendered into its GL
// previewer (the one the collection names, or one with default settings) on worker threads.
// Building needs no GL and may run on any thread; `draw` runs on the thread that owns the context,
// `upload` and `release` are sent there (VrOpenGLThread) when called elsewhere.

#include "geometry/SgBox3T.h"
#include "renderers/VrGLCache.h"
#include "tools/collectionAccess.h"

#include <cstdint>
#include <string>
#include <vector>

class VrGLProgram;
class VrGLRenderer;
struct VrGLCamera;

namespace vorncli {

class CliLogger;

/// The previewer flags a viewer toggles.
struct PreviewFlags {
  bool guides = false;
  bool culled = false;
  bool ids = false;
  bool vertices = false;
  bool poly = false;
};

/// Reads "WIDTHxHEIGHT", each from 16 to 8192 pixels.
bool parsePictureSize(const std::string& text, unsigned& width, unsigned& height);
/// Whether `path` ends in ".png" (either case).
bool isPngName(const std::string& path);
/// Whether `path` is an Alembic archive that opens; false after a line saying why.
bool geometryReadable(const std::string& path);

class PreviewScene {
 public:
  PreviewScene();
  ~PreviewScene();
  PreviewScene(const PreviewScene&) = delete;
  PreviewScene& operator=(const PreviewScene&) = delete;

  /// Reads `collection` and binds it to `geometry` at `frame`; builds the surfaces. False after
  /// a line on standard error saying why.
  bool load(const std::string& collection, const std::string& geometry, double frame, double fps,
            const CliLogger& logger);
  /// Renders every description into its previewer, `camera` being the render's camera (for
  /// in-camera culling), on `workers` threads. Each flag of `flags` that is on turns that drawing
  /// on; with `exact`, one that is off also turns it off, whatever the collection set. False after
  /// a line saying why.
  bool render(const VrGLCamera& camera, const PreviewFlags& flags, bool exact, unsigned workers);
  /// The flags the first previewer drew with in the last `render` (all off when there is none).
  PreviewFlags flagsInUse() const;

  /// The box of the surfaces; of the surfaces and the primitives.
  SgBox3T<double> surfaceBounds() const;
  SgBox3T<double> bounds() const;
  /// Primitives emitted by the last `render`.
  uint64_t primitives() const { return emitted; }
  const std::vector<VrGLRenderer*>& previewers() const { return glRenderers; }
  VrPalette* palette() const { return bound.palette(); }

  /// Uploads what changed since the last upload (everything with `all`).
  void upload(bool all);
  /// Draws surfaces, primitives and labels as seen through `viewProjection` in a `width` x
  /// `height` picture, into the framebuffer that is bound.
  void draw(const VrGLProgram& program, const float viewProjection[16], const SgVec3T<double>& light, unsigned width,
            unsigned height) const;
  /// Frees every GL buffer.
  void release();

 private:
  BoundCollection bound;
  std::vector<VrGLCache> surfaces;
  std::vector<VrGLRenderer*> glRenderers;
  uint64_t emitted = 0;
};

}  // namespace vorncli
