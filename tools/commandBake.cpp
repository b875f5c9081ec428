// `vorn render ... --bake DIR`: bakes every description of a collection at one frame into
// point/primitive files, one `.vpd` per patch under DIR/<description>/, through the file-writing
// back end. The collection is read and bound here, not through the render API: a bake writes
// what the description's own generator and primitive make, with the CVs as the primitive holds
// them.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "renderers/VrFileRenderer.h"
#include "renderers/VrRenderDescription.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/renderThreads.h"

#include <chrono>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace vorncli {

namespace {

int bake(const RenderRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  if (!request.frames.empty() || !request.hasFrame) {
    fail("--bake takes one --frame");
    return ExitUsage;
  }
  if (!request.output.empty()) {
    fail("--bake and -o cannot both be given");
    return ExitUsage;
  }
  if (request.threads < 0) {
    fail("--threads must be 1 or more");
    return ExitUsage;
  }
  if (!(request.fps > 0.0)) {
    fail("--fps must be above 0");
    return ExitUsage;
  }
  std::error_code ec;
  const std::filesystem::path dir = std::filesystem::absolute(request.bakeDir, ec);
  if (ec || (!std::filesystem::create_directories(dir, ec) && !std::filesystem::is_directory(dir))) {
    fail("cannot make the bake folder " + request.bakeDir);
    return ExitFailed;
  }
  if (request.geometry.empty() || !std::filesystem::is_regular_file(request.geometry, ec)) {
    fail("no such geometry file: " + request.geometry);
    return ExitFailed;
  }

  BoundCollection bound;
  if (!bound.bind(request.collection, request.geometry, request.frame, request.fps, request.space == "object", logger,
                  "nothing was baked"))
    return ExitFailed;
  VrPalette* palette = bound.palette();

  const unsigned workers = renderWorkers(request.threads);

  uint64_t primitives = 0;
  unsigned descriptions = 0;
  for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
    VrDescription* description = palette->description(d);
    if (!description || description->patches().empty()) continue;
    auto* baker = dynamic_cast<VrFileRenderer*>(description->addObject("FileRenderer"));
    if (!baker) {
      fail("description " + inQuotes(description->name()) + " has no file-writing back end");
      return ExitFailed;
    }
    // Output names with a single leading '/' count as relative to the collection's data path;
    // a leading "//" marks an absolute one, and the system reads it as the same folder.
    baker->setAttr("outputDir", "/" + (dir / description->name()).string() + "/", "string");
    if (!VrRenderDescription(*baker, workers) || baker->failed()) {
      fail("the bake of description " + inQuotes(description->name()) + " failed; the file it was writing is removed");
      return ExitFailed;
    }
    primitives += baker->totalEmitCount();
    ++descriptions;
  }

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream summary;
  startSummary(summary);
  summary << "baked " << primitives << " primitives of " << descriptions << " descriptions into " << dir.string()
          << " in " << seconds << " s on " << workersText(workers) << "\n";
  std::cout << summary.str();
  return ExitOk;
}

}  // namespace

int runBake(const RenderRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return bake(request, logger); });
}

}  // namespace vorncli
