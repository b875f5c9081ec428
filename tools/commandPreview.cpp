// `vorn preview`: a picture of a collection from the shell. The collection is read and bound as
// a bake does; every description renders into its GL previewer (the one the collection names,
// or one with default settings) on worker threads; then, on this thread, which owns the
// headless GL context, the bound surfaces and every description's caches are drawn and the
// picture is written to a PNG through a temporary name.
//
// The GL context is made before anything is rendered, so that a machine without OpenGL fails at
// once with a sentence saying so.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "io/VrPngFile.h"
#include "io/alembic/VrAbcArchive.h"
#include "renderers/VrGLCamera.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLHeadlessContext.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrGLSurface.h"
#include "renderers/VrRenderDescription.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/renderThreads.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace vorncli {

namespace {

const float background[3] = {0.62f, 0.66f, 0.72f};
const SgVec3T<double> surfaceColor(0.85, 0.72, 0.62);
// Grid of each surface face: enough for a smooth silhouette on a subdivision mesh's faces.
constexpr int surfaceGrid = 4;

bool parseSize(const std::string& text, unsigned& width, unsigned& height) {
  unsigned w = 0, h = 0;
  char x = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%u%c%u%n", &w, &x, &h, &used) != 3 || (x != 'x' && x != 'X') ||
      text[static_cast<size_t>(used)] != '\0')
    return false;
  if (w < 16 || h < 16 || w > 8192 || h > 8192) return false;
  width = w;
  height = h;
  return true;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The boxes of the bound patches' animated surfaces, in world space.
SgBox3T<double> surfaceBounds(const std::vector<VrGLCache>& surfaces) {
  SgBox3T<double> box;
  for (const VrGLCache& cache : surfaces)
    for (const VrGLCache::Vertex& v : cache.triangles.vertices)
      box.extend(SgVec3T<double>(v.position[0], v.position[1], v.position[2]));
  return box;
}

int preview(const PreviewRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  unsigned width = 0, height = 0;
  if (!parseSize(request.size, width, height)) {
    fail("--size takes WIDTHxHEIGHT, each from 16 to 8192 pixels: " + request.size);
    return ExitUsage;
  }
  if (!endsWith(request.output, ".png") && !endsWith(request.output, ".PNG")) {
    fail("the output must end in .png: " + request.output);
    return ExitUsage;
  }
  if (request.threads < 0) {
    fail("--threads must be 1 or more");
    return ExitUsage;
  }
  if (!(request.fps > 0.0) || !std::isfinite(request.fps)) {
    fail("--fps must be above 0");
    return ExitUsage;
  }
  VrGLCamera camera;
  camera.aspect = double(width) / double(height);
  std::string cameraError;
  if (!request.camera.empty() && !camera.parse(request.camera, cameraError)) {
    fail(cameraError);
    return ExitUsage;
  }
  const std::filesystem::path folder = std::filesystem::path(request.output).parent_path();
  const std::string dir = folder.empty() ? "." : folder.string();
  std::error_code ec;
  if (!std::filesystem::is_directory(dir, ec) || access(dir.c_str(), W_OK) != 0) {
    fail("cannot write " + request.output + ": the folder " + dir + " is missing or not writable");
    return ExitFailed;
  }
  if (request.geometry.empty() || !std::filesystem::is_regular_file(request.geometry, ec)) {
    fail("no such geometry file: " + request.geometry);
    return ExitFailed;
  }
  {
    VrAbcArchive archive;
    if (!archive.open(request.geometry)) {
      fail("not a readable Alembic archive: " + request.geometry);
      return ExitFailed;
    }
  }

  VrGLHeadlessContext gl;
  std::string glError;
  if (!gl.create(width, height, glError)) {
    fail("cannot draw a preview: " + glError);
    return ExitFailed;
  }
  VrGLProgram program;
  if (!program.init(glError)) {
    fail("cannot draw a preview: " + glError);
    return ExitFailed;
  }

  BoundCollection bound;
  if (!bound.bind(request.collection, request.geometry, request.frame, request.fps, false, logger, "nothing was drawn"))
    return ExitFailed;
  VrPalette* palette = bound.palette();

  const unsigned workers = renderWorkers(request.threads);
  std::vector<VrGLCache> surfaces;
  std::vector<VrGLRenderer*> previewers;
  for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
    VrDescription* description = palette->description(d);
    if (!description) continue;
    for (VrGLCache& cache : VrGLSurfaceCaches(*description, surfaceGrid, surfaceColor)) surfaces.push_back(std::move(cache));
  }
  // The camera is known before the render so that culling to the view sees it; without one, the
  // surfaces are framed now and everything drawn once the primitives are there.
  if (request.camera.empty()) camera = VrGLCamera::framing(surfaceBounds(surfaces), camera.aspect);
  camera.applyToRenderer();

  uint64_t primitives = 0;
  for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
    VrDescription* description = palette->description(d);
    if (!description || description->patches().empty()) continue;
    auto* previewer = dynamic_cast<VrGLRenderer*>(description->addObject("GLRenderer"));
    if (!previewer) {
      fail("description " + inQuotes(description->name()) + " has no GL previewer");
      return ExitFailed;
    }
    if (request.culled) previewer->setAttr("culled", "true", "bool");
    if (request.ids) previewer->setAttr("primIDs", "true", "bool");
    previewer->setDrawGuides(request.guides);
    if (!VrRenderDescription(*previewer, workers)) {
      fail("the preview of description " + inQuotes(description->name()) + " failed");
      return ExitFailed;
    }
    primitives += previewer->totalEmitCount();
    previewers.push_back(previewer);
  }

  SgBox3T<double> drawn = surfaceBounds(surfaces);
  for (const VrGLRenderer* previewer : previewers) drawn.unite(previewer->bounds());
  if (request.camera.empty()) camera = VrGLCamera::framing(drawn, camera.aspect);

  float viewProjection[16];
  camera.viewProjection(drawn, viewProjection);
  for (VrGLCache& cache : surfaces) VrGLUpload(cache);
  for (VrGLRenderer* previewer : previewers) previewer->refresh(true, false);
  gl.begin(background);
  program.use(viewProjection, camera.lightDirection());
  for (const VrGLCache& cache : surfaces) program.draw(cache, false);
  for (const VrGLRenderer* previewer : previewers) previewer->draw(program);
  for (VrGLRenderer* previewer : previewers) previewer->drawLabels(program, viewProjection, width, height);
  VrRgbImage image;
  const bool read = gl.read(image);
  for (VrGLCache& cache : surfaces) VrGLRelease(cache);
  for (VrGLRenderer* previewer : previewers) previewer->cleanRefresh();
  if (!read) {
    fail("the GL driver could not draw the preview");
    return ExitFailed;
  }
  if (!VrWritePng(request.output, image)) {
    fail("cannot write " + request.output);
    return ExitFailed;
  }

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream summary;
  startSummary(summary);
  summary << "previewed " << primitives << " primitives at " << width << "x" << height << " in " << seconds << " s on "
          << workersText(workers) << " (" << gl.driverName() << ")\n";
  std::cout << summary.str();
  return ExitOk;
}

}  // namespace

int runPreview(const PreviewRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return preview(request, logger); });
}

}  // namespace vorncli
