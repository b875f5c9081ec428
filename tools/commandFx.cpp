// `vorn fx bake`: renders one description with the bake of one of its FX modules switched on, so
// that the module writes its bake files (noise displacements, mesh cuts), and with `--use`
// switches the module to its baked mode and saves the collection.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrFXModule.h"
#include "renderers/VrRenderDescription.h"
#include "renderers/VrRenderer.h"
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

int fxBake(const FxBakeRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  if (request.threads < 0) {
    fail("--threads must be 1 or more");
    return ExitUsage;
  }
  if (!(request.fps > 0.0)) {
    fail("--fps must be above 0");
    return ExitUsage;
  }
  std::error_code ec;
  if (!std::filesystem::is_regular_file(request.geometry, ec)) {
    fail("no such geometry file: " + request.geometry);
    return ExitFailed;
  }
  BoundCollection bound;
  if (!bound.bind(request.collection, request.geometry, request.frame, request.fps, false, logger,
                  "nothing was baked"))
    return ExitFailed;
  VrDescription* description = bound.palette()->description(request.description);
  if (!description) {
    fail("no description " + inQuotes(request.description) + " in " + request.collection);
    return ExitFailed;
  }
  VrFXModule* module = findFXModule(*description, request.module);
  if (!module) {
    fail("no FX module " + inQuotes(request.module) + " in description " + inQuotes(request.description));
    return ExitFailed;
  }
  // Only a live pass writes a bake: a module left in its baked mode is baked afresh.
  module->setAttr("mode", "0", "enum");
  if (!module->setBake(true)) {
    fail("the FX module " + inQuotes(request.module) + " (" + module->typeName() + ") has nothing to bake");
    return ExitFailed;
  }
  if (!module->isActive()) {
    fail("the FX module " + inQuotes(request.module) + " is not active; nothing was baked");
    return ExitFailed;
  }
  auto* renderer = dynamic_cast<VrRenderer*>(description->addObject("NullRenderer"));
  if (!renderer) {
    fail("description " + inQuotes(description->name()) + " has no counting back end");
    return ExitFailed;
  }
  const unsigned workers = renderWorkers(request.threads);
  const unsigned errorsBefore = logger.errors();
  if (!VrRenderDescription(*renderer, workers) || logger.errors() != errorsBefore) {
    fail("the bake of " + inQuotes(request.module) + " failed");
    return ExitFailed;
  }
  std::string bakeDir;
  module->getAttr("bakeDir", bakeDir);
  vrutil::expandOutputFileName(bakeDir, "", description, module->name());

  if (request.use) {
    PalettePtr saved = importCollection(request.collection);
    VrDescription* savedDescription = saved ? saved->description(request.description) : nullptr;
    VrFXModule* savedModule = savedDescription ? findFXModule(*savedDescription, request.module) : nullptr;
    if (!savedModule || !savedModule->setAttr("mode", "1", "enum") || !saveCollection(saved.get(), request.collection))
      return ExitFailed;
  }

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream summary;
  startSummary(summary);
  summary << "baked " << module->typeName() << " " << inQuotes(module->name()) << " over "
          << renderer->totalEmitCount() << " primitives of description " << inQuotes(description->name())
          << " into " << bakeDir << " in " << seconds << " s on " << workersText(workers)
          << (request.use ? "; the module now uses its bake\n" : "\n");
  std::cout << summary.str();
  return ExitOk;
}

}  // namespace

int runFxBake(const FxBakeRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return fxBake(request, logger); });
}

}  // namespace vorncli
