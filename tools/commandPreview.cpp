// `vorn preview`: a picture of a collection from the shell. The collection is read and bound as
// a bake does; every description renders into its GL previewer (the one the collection names,
// or one with default settings) on worker threads; then, on this thread, which owns the
// headless GL context, the bound surfaces and every description's caches are drawn and the
// picture is written to a PNG through a temporary name.
//
// The GL context is made before anything is rendered, so that a machine without OpenGL fails at
// once with a sentence saying so.

#include "io/VrPngFile.h"
#include "renderers/VrGLCamera.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLHeadlessContext.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/previewScene.h"
#include "tools/renderThreads.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace vorncli {

namespace {

const float background[3] = {0.62f, 0.66f, 0.72f};

int preview(const PreviewRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  unsigned width = 0, height = 0;
  if (!parsePictureSize(request.size, width, height)) {
    fail("--size takes WIDTHxHEIGHT, each from 16 to 8192 pixels: " + request.size);
    return ExitUsage;
  }
  if (!isPngName(request.output)) {
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
  if (!geometryReadable(request.geometry)) return ExitFailed;

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

  PreviewScene scene;
  if (!scene.load(request.collection, request.geometry, request.frame, request.fps, logger)) return ExitFailed;
  const unsigned workers = renderWorkers(request.threads);
  // The camera is known before the render so that culling to the view sees it; without one, the
  // surfaces are framed now and everything drawn once the primitives are there.
  if (request.camera.empty()) camera = VrGLCamera::framing(scene.surfaceBounds(), camera.aspect);
  PreviewFlags flags;
  flags.guides = request.guides;
  flags.culled = request.culled;
  flags.ids = request.ids;
  if (!scene.render(camera, flags, false, workers)) return ExitFailed;

  const SgBox3T<double> drawn = scene.bounds();
  if (request.camera.empty()) camera = VrGLCamera::framing(drawn, camera.aspect);
  float viewProjection[16];
  camera.viewProjection(drawn, viewProjection);
  scene.upload(true);
  gl.begin(background);
  scene.draw(program, viewProjection, camera.lightDirection(), width, height);
  VrRgbImage image;
  const bool read = gl.read(image);
  scene.release();
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
  summary << "previewed " << scene.primitives() << " primitives at " << width << "x" << height << " in " << seconds << " s on "
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
