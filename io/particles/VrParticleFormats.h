#pragma once
// Internal to io/particles: the reader of each format, and the writers' parts. Readers take the
// file's bytes (inflated already) and fill an empty set. `.bgeo` and `.geo` are written in parts
// that VrParticleStream puts together; `.pdb` fills a sink. Readers and checks answer false with
// the reason in `error`, without the file's name (VrReadParticles and VrWriteParticles add it).

#include "io/particles/VrParticleBytes.h"
#include "io/particles/VrParticleSink.h"
#include "io/particles/VrParticles.h"

#include <string>
#include <vector>

namespace vrparticles {

bool readBgeo(const FileBytes& bytes, VrParticleSet& set, std::string& error);

/// The parts of a `.bgeo` file. `checkBgeo` first: false, with
/// the reason, when the set cannot be written in the format. Then the header with the point
/// attributes' definitions for `particles` points (its length does not depend on the count), the
/// records of points [first, last), and the detail attributes with the end mark; each appends.
constexpr size_t MostBgeoParticles = 0x7fffffff;
bool checkBgeo(const VrParticleSet& set, std::string& error);
void putBgeoHeader(const VrParticleSet& set, size_t particles, std::string& bytes);
void putBgeoRecords(const VrParticleSet& set, size_t first, size_t last, std::string& bytes);
void putBgeoTail(const VrParticleSet& set, std::string& bytes);

bool readGeo(const FileBytes& bytes, VrParticleSet& set, std::string& error);

/// The parts of a `.geo` file, as those of `.bgeo` above: the header (whose count keeps a width
/// of `MostGeoCountDigits` digits), the point lines, then the particle system: its opening with
/// the count, the numbers of points [first, last), and the detail attributes with the end.
constexpr size_t MostGeoCountDigits = 10;
bool checkGeo(const VrParticleSet& set, std::string& error);
void putGeoHeader(const VrParticleSet& set, size_t particles, std::string& bytes);
void putGeoRecords(const VrParticleSet& set, size_t first, size_t last, std::string& bytes);
void putGeoPrimitive(size_t particles, std::string& bytes);
void putGeoPointNumbers(size_t first, size_t last, std::string& bytes);
void putGeoTail(const VrParticleSet& set, std::string& bytes);

bool readPdb32(const FileBytes& bytes, VrParticleSet& set, std::string& error);
bool writePdb32(const VrParticleSet& set, VrParticleSink& out, std::string& error);

/// The index of the attribute that Houdini's formats store as the point position P: "position",
/// three floats (a vector or a float triple); -1 with the reason in `error` when there is none.
int positionAttribute(const VrParticleSet& set, std::string& error);

}  // namespace vrparticles
