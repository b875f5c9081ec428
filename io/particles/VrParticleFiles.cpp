// Reading and writing particle files: the format by name (and, for binary geometry, by the
// first bytes), then the format's reader or writer. Messages name the file.

#include "base/vrutilPieces.h"
#include "io/particles/VrParticleBytes.h"
#include "io/particles/VrParticleFormats.h"
#include "io/particles/VrParticleStream.h"
#include "io/particles/VrParticles.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace {

bool endsWith(const std::string& text, const char* tail) {
  const size_t n = std::char_traits<char>::length(tail);
  if (text.size() < n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower(static_cast<unsigned char>(text[text.size() - n + i])) != tail[i]) return false;
  return true;
}

bool fail(std::string* error, const std::string& path, const std::string& why) {
  if (error) *error = vrparticles::fileName(path) + ": " + why;
  return false;
}

// A whole set through a stream, pieces of particles encoded on every thread of the calling arena.
bool writeStreamed(const std::string& path, VrParticleFormat format, const VrParticleSet& set, std::string& why) {
  VrParticleStream stream(path, format, set);
  constexpr size_t perPiece = 16384;
  const size_t n = set.numParticles();
  auto last = [&](size_t k) { return std::min(n, (k + 1) * perPiece); };
  std::vector<std::string> window;
  vrutil::makeAndStoreInOrder(
      stream.ok() ? (n + perPiece - 1) / perPiece : 0,
      [&](size_t k, std::string& bytes) { stream.encode(set, k * perPiece, last(k), bytes); },
      [&](size_t k, const std::string& bytes) { return stream.append(bytes, last(k) - k * perPiece); }, window);
  if (stream.finish()) return true;
  why = stream.error();
  return false;
}

}  // namespace

VrParticleFormat VrParticleFormatOf(const std::string& path) {
  if (endsWith(path, ".bgeo.gz") || endsWith(path, ".bgeogz")) return VrParticleFormat::BgeoGz;
  if (endsWith(path, ".bgeo")) return VrParticleFormat::Bgeo;
  if (endsWith(path, ".geo")) return VrParticleFormat::Geo;
  if (endsWith(path, ".pdb")) return VrParticleFormat::Pdb32;
  return VrParticleFormat::Unknown;
}

bool VrReadParticles(const std::string& path, VrParticleSet& set, std::string* error, VrParticleFormat format) {
  if (format == VrParticleFormat::Unknown) format = VrParticleFormatOf(path);
  if (format == VrParticleFormat::Unknown)
    return fail(error, path, "not a particle file of a known kind (.bgeo, .bgeo.gz, .geo, .pdb)");
  const bool binaryGeometry = format == VrParticleFormat::Bgeo || format == VrParticleFormat::BgeoGz;
  vrparticles::FileBytes bytes;
  std::string why;
  if (!vrparticles::loadFile(path, binaryGeometry, bytes, why)) return fail(error, path, why);
  VrParticleSet read;
  const bool ok = binaryGeometry                     ? vrparticles::readBgeo(bytes, read, why)
                  : format == VrParticleFormat::Geo ? vrparticles::readGeo(bytes, read, why)
                                                     : vrparticles::readPdb32(bytes, read, why);
  if (!ok) return fail(error, path, why);
  set = std::move(read);
  return true;
}

bool VrWriteParticles(const std::string& path, const VrParticleSet& set, std::string* error, VrParticleFormat format) {
  if (format == VrParticleFormat::Unknown) format = VrParticleFormatOf(path);
  if (format == VrParticleFormat::Unknown)
    return fail(error, path, "not a particle file of a known kind (.bgeo, .bgeo.gz, .geo, .pdb)");
  std::string why;
  if (format != VrParticleFormat::Pdb32)
    return writeStreamed(path, format, set, why) || fail(error, path, why);
  vrparticles::VrParticleSink out(path);
  if (!out.ok()) return fail(error, path, "cannot create the file");
  if (!vrparticles::writePdb32(set, out, why) || !out.finish(why)) return fail(error, path, why);
  return true;
}
