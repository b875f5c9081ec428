// `vorn inspect FILE`: the text dump of an Alembic archive (see io/alembic/VrAbcDump.h), a Ptex
// texture file (io/ptex/VrPtexDump.h), a particle file (io/particles/VrParticleDump.h) or a
// point/primitive file (io/vpd/VpdDump.h), on standard output. The format is told by the file's
// first bytes, and, for particle and point files whose bytes say nothing, by the name. Refused
// and damaged files still give their dump up to the failure, with the reason in it; the Error
// naming the file goes to standard error as "error: <text>".

#include "tools/commands.h"

#include "io/alembic/VrAbcDump.h"
#include "io/particles/VrParticleDump.h"
#include "io/ptex/VrPtexDump.h"
#include "io/ptex/VrPtexTexture.h"
#include "io/vpd/VpdDump.h"
#include "io/vpd/VpdFormat.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"

#include <cstring>
#include <fstream>
#include <iostream>

namespace vorncli {

namespace {

enum class Kind { Alembic, Ptex, Vpd, Particles };

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// What the first bytes say, then the name; Alembic when neither knows.
Kind kindOf(const std::string& file, VrParticleFormat& particles) {
  std::ifstream in(file, std::ios::binary);
  unsigned char magic[16] = {};
  in.read(reinterpret_cast<char*>(magic), sizeof magic);
  const size_t got = static_cast<size_t>(in.gcount());
  particles = VrParticleFormatOf(file);
  if (VrPtexTexture::hasMagic(magic, got)) return Kind::Ptex;
  if (got >= 8 && std::memcmp(magic, Vpd::Magic, 8) == 0) return Kind::Vpd;
  if (got >= 4 && (std::memcmp(magic, "Bgeo", 4) == 0 || std::memcmp(magic, "\x7fNSJ", 4) == 0)) {
    particles = VrParticleFormat::Bgeo;
    return Kind::Particles;
  }
  if (got >= 9 && std::memcmp(magic, "PGEOMETRY", 9) == 0) {
    particles = VrParticleFormat::Geo;
    return Kind::Particles;
  }
  if (got >= 4 && magic[0] == 0x9e && magic[1] == 0x02 && magic[2] == 0 && magic[3] == 0) {
    particles = VrParticleFormat::Pdb32;
    return Kind::Particles;
  }
  if (got >= 2 && magic[0] == 0x1f && magic[1] == 0x8b) {
    // Compressed binary geometry is the only gzip file read.
    particles = VrParticleFormat::BgeoGz;
    return Kind::Particles;
  }
  if (endsWith(file, ".vpd") || endsWith(file, ".vuv")) return Kind::Vpd;
  if (particles != VrParticleFormat::Unknown) return Kind::Particles;
  return Kind::Alembic;
}

}  // namespace

int runInspect(const std::string& file) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    VrParticleFormat particles;
    bool ok;
    std::string error;
    switch (kindOf(file, particles)) {
      case Kind::Ptex: ok = VrPtexDump::write(file, std::cout) == VrPtexDump::Result::Ok; break;
      case Kind::Vpd: ok = VpdDump::write(file, std::cout, &error); break;
      case Kind::Particles: ok = VrParticleDump::write(file, std::cout, particles, &error); break;
      default: ok = VrAbcDump::write(file, std::cout) == VrAbcDump::Result::Ok; break;
    }
    std::cout.flush();
    if (!error.empty()) VR_ERROR(error);
    return ok ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
