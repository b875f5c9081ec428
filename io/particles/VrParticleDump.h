#pragma once
// A text dump of a particle file in the "partio-ref-v1" form: the file, the reader, whether the
// read worked, the attributes with their types, fixed attributes, string tables and per-component
// sums, then one block for each of the particles 0, 1, 2 and the last. Used by `vorn inspect`
// and by the tests, which compare it with dumps made by the formats' reference library. The
// reference's process lines (exit status, its command-line tool's output) are not written.

#include "io/particles/VrParticles.h"

#include <ostream>
#include <string>

class VrParticleDump {
 public:
  /// Dumps the file at `path` to `out`, read as `format` (Unknown: by its name). The reader line
  /// is "pdb32 (forced)" when the 32-bit PDB reader reads it (the only PDB layout read) and
  /// "auto (by file extension)" otherwise. False, with "read: error" and the reason in the dump
  /// and in `error`, when the file cannot be read.
  static bool write(const std::string& path, std::ostream& out, VrParticleFormat format = VrParticleFormat::Unknown,
                    std::string* error = nullptr);

  /// The dump of a set already read, from "num_particles" on.
  static void writeSet(const VrParticleSet& set, std::ostream& out);
};
