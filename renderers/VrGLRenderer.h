#pragma once
// VrGLRenderer: the interactive previewer. Emitting a primitive turns it into preview geometry
// in the cache of its face (VrGLCache): a spline into a lit polyline in its preview colour
// (`color`, an expression per primitive), a card into a bent sheet, a sphere into an ellipsoid,
// an archive into a proxy of its files' meshes in the archive's frame. Culled primitives come as
// outlines when `culled` is on; control polygons and CVs with `poly` and `vertices`; guides in
// `guideColor` when `setDrawGuides` asked for them.
//
// Archive proxies: an archive shows the files of its first slot with a file, in the order proxy,
// low, medium, high, read at its archive frame. Emission only notes each archive's key, frame and
// box; once the workers' caches are merged, `makeArchiveProxyFromReduce` makes one proxy
// (`makeArchiveProxy`) per set of files and frame, in key order, and keeps them over renders
// while they are asked for again. The proxies together stay within VORN_MAX_ARCHIVE_CACHE_SIZE
// megabytes (`archiveCacheLimit`); an archive whose proxy would go past it, whose files cannot be
// read or ask for their box, or any archive with `unitCube`, is drawn as its box (the files' box
// in the archive's frame, or the unit cube standing on the root when they give none).
//
// Threads: emission runs on render workers; each keeps its faces in its own renderer context,
// merged into the renderer's caches under `reduceMutex` when the worker ends, so the caches do
// not depend on the thread count. Only `refresh`, `cleanRefresh` and `draw` touch GL, on the
// thread that owns the context; `refresh` and `cleanRefresh` called on another thread are sent to
// it through VrOpenGLThread and wait there.
//
// Older spellings accepted on read: drawPatchNames, drawPrimIDs, drawPrimIDsAt, drawCulled,
// drawVertices, drawCPoly.

#include "renderers/VrArchiveGeometry.h"
#include "renderers/VrGLCache.h"
#include "renderers/VrGLProxy.h"
#include "renderers/VrRenderer.h"
#include "renderers/VrRendererContext.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class VrArchivePrimitive;
class VrExpression;
class VrGLProgram;

/// A worker's faces and the primitive it was told is culled.
class VrGLRendererContext : public VrRendererContext {
 public:
  std::map<std::pair<std::string, int>, VrGLCache> faces;
  bool culledPending = false;
  int culledFace = -1;
  unsigned culledId = 0;
};

class VrGLRenderer : public VrRenderer {
 public:
  explicit VrGLRenderer(VrDescription* description);
  ~VrGLRenderer() override;

  std::string typeName() const override { return "GLRenderer"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  /// @name Emission
  /// @{
  /// A preview shows one position per primitive: the first motion sample's.
  bool okToEmit(int sample, double u, double v) override { (void)u, (void)v; return sample == 0; }
  bool firstSampleOnly() const override { return true; }
  /// With `culled` on, keeps the primitive to draw it in outline; otherwise refuses it.
  bool handleCulledPrimitive(unsigned code, int face, unsigned id, VrPatch* patch) override;
  bool handleCulledPrimitiveInParallel(VrPrimitiveContext& context, unsigned code, int face, unsigned id,
                                       VrPatch* patch) override;
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;
  /// Evaluates the active shader channels (TEXCOORD3 to 7) of the primitive into `cache`.
  void emitShaderParams(const VrPrimitiveContext& context, double u, double v, int face, const std::string& patch,
                        VrGLCache& cache) const;
  /// @}

  /// @name Passes
  /// @{
  /// Drops the caches of an earlier render, checks the expressions and the shader channels.
  void initDescription() override;
  /// Makes the archives' proxies, builds the guides' cache when guides are to be drawn, and the
  /// strokes of the selection.
  void finishDescription() override;
  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrRendererContext> newRendererContext() const override;
  /// Moves the worker's faces into the renderer's caches.
  void reduceResult(VrRendererContext& context, const std::string& patchName, bool last) override;
  /// @}

  /// @name Drawing, on the GL thread
  /// @{
  bool canRefresh() const override { return true; }
  /// Uploads what changed since the last refresh (everything with `all`) and the proxies not yet
  /// uploaded, and frees the buffers of caches and proxies dropped since; `unused` is kept for
  /// callers that pass a second flag.
  void refresh(bool all, bool unused) override;
  /// Frees every buffer.
  void cleanRefresh() override;
  /// Colours every primitive with `color` instead of its expression until `restoreColor`.
  void overrideColor(const std::string& color) override;
  void restoreColor() override;
  /// Draws every cache (outlines only with `culled` on) with the program made current.
  void draw(const VrGLProgram& program) const;
  /// Draws the id of every primitive at `primIDsAt` along it (with `primIDs`) and of every face
  /// at its centre (with `faceIds`), as seen through `viewProjection` in a `width` x `height`
  /// picture; leaves the program current with an identity view.
  void drawLabels(const VrGLProgram& program, const float viewProjection[16], unsigned width, unsigned height) const;
  /// @}

  /// @name Selection (renderers/VrGLSelection.cpp)
  /// @{
  /// A selected primitive: its patch, face and id.
  struct SelectedPrim {
    std::string patch;
    int face = -1;
    unsigned id = 0;
    bool operator==(const SelectedPrim& o) const { return patch == o.patch && face == o.face && id == o.id; }
  };
  /// Selects the emitted primitives (culled ones aside) whose root-to-tip segment, projected by
  /// `viewProjection` into a `width` x `height` picture, crosses the box with corners (x0, y0)
  /// and (x1, y1) in pixels from the picture's top left; a primitive with an end behind the
  /// camera is left out. Replaces the selection, answers its size. A face whose patch the
  /// description lacks is reported and skipped.
  size_t selectPrims(const float viewProjection[16], unsigned width, unsigned height, double x0, double y0,
                     double x1, double y1);
  /// The selection; it lasts over later renders (drawn again at `finishDescription`).
  const std::vector<SelectedPrim>& selection() const { return selected; }
  void clearSelection();
  /// Culls the selected primitives by hand in their patches (`VrPatch::cullPrim`) and clears
  /// the selection; the next render leaves them out. False when nothing was selected.
  bool cullSelectedPrims();
  /// Exports the selected archive primitives as instances, as the PromoteRenderer does (one
  /// ".pmt" in the temporary folder), and culls them by hand; clears the selection. False when
  /// nothing was selected or the export failed (other kinds than archives are refused).
  bool promoteSelectedPrims();
  /// Shows only the selected primitives (`on`), or every primitive again (off). A state of the
  /// display: nothing in the patches changes, and the primitives shown stay the same over later
  /// renders until isolation is turned off. False (nothing changes) when asked to isolate with
  /// nothing selected.
  bool isolateSelectedPrims(bool on);
  bool isolating() const { return !isolated.empty(); }
  /// The primitives drawn: the isolated ones while isolating, else every emitted one.
  std::vector<SelectedPrim> shownPrims() const;
  /// The file the last `promoteSelectedPrims` wrote.
  const std::string& promotedFile() const { return promotePath; }
  /// @}

  /// @name Results
  /// @{
  const std::map<std::pair<std::string, int>, VrGLCache>& caches() const { return faceCaches; }
  const VrGLCache& guideCache() const { return guides; }
  /// The archive proxies of the last render, as the archives' `proxy` numbers them.
  const std::vector<VrGLProxy>& archiveProxies() const { return proxies; }
  /// The bound of the proxies in bytes: VORN_MAX_ARCHIVE_CACHE_SIZE (read with strtod) times
  /// `bytesPerCacheUnit`, or `defaultCacheSize` units when it is unset or not a number of 0 or
  /// more (with a warning).
  static double archiveCacheLimit();
  static constexpr double bytesPerCacheUnit = 1024.0 * 1024.0;
  static constexpr double defaultCacheSize = 512.0;
  /// The box of everything in the caches; invalid when they are empty.
  SgBox3T<double> bounds() const;
  bool drawCulled() const { return culledFlag; }
  bool drawGuides() const { return guidesFlag; }
  void setDrawGuides(bool on) { guidesFlag = on; }
  int primNumLimit() const { return limit; }
  /// Colour of culled primitives' outlines.
  static SgVec3T<double> outlineColor() { return SgVec3T<double>(0.85, 0.1, 0.85); }
  /// @}

 private:
  // Builds the preview geometry of the primitive in `context` into the face's cache of `faces`.
  void emitInto(std::map<std::pair<std::string, int>, VrGLCache>& faces, VrPrimitiveContext& context, bool culled,
                double u, double v, int face, const VrPatch& patch, SgBox3T<double>& box);
  void addSpline(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color, bool culled) const;
  void addCard(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color, bool culled) const;
  void addSphere(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color, bool culled) const;
  void addArchive(VrGLCache& cache, const VrPrimitiveContext& context, const std::vector<SgVec3T<double>>& cvs,
                  const SgVec3T<double>& color, bool culled) const;
  // Gives every archive of the caches its proxy (or none, for its box).
  void makeArchiveProxyFromReduce();
  // The proxy of the files under `key` at `frame`: one made already in this pass, one of the last
  // render (from `earlier`), or a new one; -1 when there is none or it would take `used` bytes
  // past `limit` (counted in `over`).
  int makeArchiveProxy(const VrArchivePrimitive& archive, int key, double frame, std::vector<VrGLProxy>& earlier,
                       double limit, size_t& used, unsigned& over);
  // Whether the next primitive may still be emitted under `primNumLimit`; counts it if so.
  bool takeSlot();
  // Frees the GL names of the caches and proxies dropped since the last refresh (GL thread).
  void releaseRetired();
  // Applies "cull" or "promote" to the selection.
  bool markSelectedPrims(const std::string& operation);
  // Rebuilds the highlight of the selection.
  void highlightSelection();
  // Rebuilds the cache of the isolated primitives.
  void buildIsolation();

  std::unique_ptr<VrExpression> colorExpression;
  std::unique_ptr<VrExpression> guideColorExpression;
  std::vector<std::unique_ptr<VrExpression>> shaderExpressions;  ///< TEXCOORD3 to 7
  int activeShaderChannels = 0;
  bool colorOverridden = false;
  SgVec3T<double> overrideValue;

  bool patchNamesFlag = false, faceIdsFlag = false, primIdsFlag = false;
  double primIdsAt = 1.0;
  bool verticesFlag = false, polyFlag = false, culledFlag = false, unitCubeFlag = false;
  int segments = 1;
  int limit = 100000000;
  bool guidesFlag = false;

  std::atomic<long long> emitted{0};
  std::atomic<bool> limitReported{false};
  bool serialCulledPending = false;
  int serialCulledFace = -1;
  unsigned serialCulledId = 0;

  std::map<std::pair<std::string, int>, VrGLCache> faceCaches;
  VrGLCache guides;
  std::vector<VrGLCache> retired;  ///< dropped caches whose GL buffers are still to be freed
  std::vector<VrGLProxy> proxies;
  std::vector<VrGLProxy> retiredProxies;  ///< dropped proxies whose GL names are still to be freed
  VrGLProxy boxProxy = VrGLProxy::unitCube();
  VrArchiveGeometry archiveMeshes;  ///< the files read for this render's new proxies
  std::vector<SelectedPrim> selected;
  VrGLCache selectionHighlight;  ///< root-to-tip strokes of the selected primitives
  std::vector<SelectedPrim> isolated;
  VrGLCache isolation;  ///< the isolated primitives' part of the face caches
  std::string promotePath;
};
