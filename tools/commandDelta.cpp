// The delta commands: `delta create` writes the delta file between a base collection file and an
// edited copy of it, `delta apply` applies delta files to a base and saves the result. Errors
// and warnings of the library reach standard error as "error: <text>" and "warning: <text>".

#include "tools/commands.h"

#include "tools/cliLogger.h"

#include "tools/collectionAccess.h"

#include "base/VrMessage.h"
#include "document/VrDelta.h"
#include "document/VrPalette.h"

#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace vorncli {
namespace {

}  // namespace

int runDeltaCreate(const std::string& base, const std::string& edited, const std::string& output) {
  CliLogger logger;
  return guarded(ExitUsage, [&] {
    PalettePtr original = importCollection(base);
    if (!original) return ExitUsage;
    PalettePtr current = importCollection(edited);
    if (!current) return ExitUsage;
    switch (VrDeltaPalettes(original.get(), current.get(), output)) {
      case 1:
        return ExitOk;
      case 0:
        return ExitFailed;
      default:
        fail("no delta written to " + output);
        return ExitUsage;
    }
  });
}

int runDeltaApply(const std::string& base, const std::vector<std::string>& deltas,
                  const std::string& output) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    PalettePtr collection = importCollection(base);
    if (!collection) return ExitFailed;
    const unsigned errorsBefore = logger.errors();
    for (const std::string& delta : deltas) {
      if (!VrApplyDelta(collection.get(), delta)) {
        fail("could not apply " + delta + "; nothing was written");
        return ExitFailed;
      }
    }
    // A delta that sent an Error did not apply as written: its result is not saved.
    if (logger.errors() != errorsBefore) {
      fail("the deltas did not apply cleanly; nothing was written");
      return ExitFailed;
    }
    return saveCollection(collection.get(), output) ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
