// `vorn inspect FILE.abc`: the text dump of an Alembic archive (see io/alembic/VrAbcDump.h), on
// standard output. Refused and damaged archives still give their dump up to the failure, with
// the reason in it; the Error naming the file goes to standard error as "error: <text>".

#include "tools/commands.h"

#include "io/alembic/VrAbcDump.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"

#include <iostream>

namespace vorncli {

int runInspect(const std::string& file) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    const VrAbcDump::Result result = VrAbcDump::write(file, std::cout);
    std::cout.flush();
    return result == VrAbcDump::Result::Ok ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
