// `vorn inspect FILE`: the text dump of an Alembic archive (see io/alembic/VrAbcDump.h) or of a
// Ptex texture file (io/ptex/VrPtexDump.h), on standard output. The format is told by the file's
// first bytes, not by its name. Refused and damaged files still give their dump up to the
// failure, with the reason in it; the Error naming the file goes to standard error as
// "error: <text>".

#include "tools/commands.h"

#include "io/alembic/VrAbcDump.h"
#include "io/ptex/VrPtexDump.h"
#include "io/ptex/VrPtexTexture.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"

#include <fstream>
#include <iostream>

namespace vorncli {

namespace {

bool isPtexFile(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  uint8_t magic[4] = {};
  return in.read(reinterpret_cast<char*>(magic), 4) && VrPtexTexture::hasMagic(magic, 4);
}

}  // namespace

int runInspect(const std::string& file) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    bool ok;
    if (isPtexFile(file))
      ok = VrPtexDump::write(file, std::cout) == VrPtexDump::Result::Ok;
    else
      ok = VrAbcDump::write(file, std::cout) == VrAbcDump::Result::Ok;
    std::cout.flush();
    return ok ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
