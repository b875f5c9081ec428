// `vorn clumps make`: scatters the clump guides of a clumping module, writes its point files and
// region maps, marks the maps made and saves the collection.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrClumpMaker.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "io/VrImportGeometry.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/renderThreads.h"

namespace vorncli {

int runClumpsMake(const ClumpsRequest& request) {
  if (request.threads < 0) {
    fail("--threads must be 1 or more");
    return ExitUsage;
  }
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(request.collection);
    if (!palette) return ExitFailed;
    VrDescription* description = palette->description(request.description);
    if (!description) {
      fail("no description " + inQuotes(request.description) + " in " + request.collection);
      return ExitFailed;
    }
    auto* module = dynamic_cast<VrClumpingFXModule*>(findFXModule(*description, request.module));
    if (!module) {
      fail("no clumping module " + inQuotes(request.module) + " in description " + inQuotes(request.description));
      return ExitFailed;
    }
    if (!VrImportGeometry(request.geometry, *palette)) {
      fail("the patches do not bind to " + request.geometry);
      return ExitFailed;
    }
    VrClumpMaker::Options options;
    options.density = request.density;
    options.seed = request.seed;
    VrTaskManager::setThreadCount(renderWorkers(request.threads));
    if (!VrClumpMaker::make(*module, options)) {
      fail("the clumps of " + inQuotes(request.module) + " could not be written");
      return ExitFailed;
    }
    return saveCollection(palette.get(), request.collection) ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
