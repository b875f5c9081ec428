#pragma once
// VrParticleStream: a `.bgeo`, `.bgeo.gz` or `.geo` file whose particles arrive in order, a
// batch at a time, so that it is written while they are made and never held whole in memory. A
// batch is encoded on any thread (`encode`), and the encoded batches are stored in order
// (`append`); `finish` writes the particle count into the header and renames the file into
// place. The file's bytes depend only on the particles, never on the threads or on where the
// batches begin.
//
// Gzip: the stored bytes are cut into pieces of a fixed size, each deflated as a stream of its
// own that the next one follows, and the pieces' checksums combine into the member's. The
// threads that encode batches deflate the waiting pieces too, as many bytes as they encoded, so
// compression keeps pace with the render on every thread without a thread of its own; `finish`
// deflates what is left on the calling arena's threads.
//
// The header goes first with a count of zero and keeps its length (`.geo` gives the count a
// fixed width): for gzip it is a stored (uncompressed) block that `finish` rewrites, its
// checksum combined with the rest's.

#include "base/VrAtomicFile.h"
#include "io/particles/VrParticles.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

class VrParticleStream {
 public:
  /// Whether particles of `layout`'s attributes can be streamed to a file of `format`: `.bgeo`,
  /// `.bgeo.gz` and `.geo`, with no indexed strings (their tables stand in the header, before
  /// any particle is known). `.pdb` stores each attribute of every particle in turn.
  static bool streams(VrParticleFormat format, const VrParticleSet& layout);

  /// Opens the temporary file for `path` and writes the header of `layout`'s attributes (its
  /// particles are not written; its fixed attributes end the file). Its string tables must hold
  /// every string the particles to come index, as those of a set written whole do. `ok()` tells
  /// whether it worked, and `error()` why not.
  VrParticleStream(const std::string& path, VrParticleFormat format, const VrParticleSet& layout);

  bool ok() const { return reason.empty(); }
  const std::string& error() const { return reason; }

  /// Appends to `bytes` what `append` stores for particles [first, last) of `particles`, a set
  /// with the layout's attributes, and deflates waiting pieces of the file. Any thread, each with
  /// particles of its own.
  void encode(const VrParticleSet& particles, size_t first, size_t last, std::string& bytes) const;
  void encode(const VrParticleSet& batch, std::string& bytes) const { encode(batch, 0, batch.numParticles(), bytes); }
  /// Stores an encoded batch of `particles` particles after the ones before; false once anything
  /// failed.
  bool append(const std::string& encoded, size_t particles);
  /// Completes the file and renames it into place; false, with `error()`, when anything failed
  /// on the way, and then nothing is left at the path.
  bool finish();

 private:
  struct Piece;
  bool gzip() const { return format == VrParticleFormat::BgeoGz; }
  std::string prefix(size_t particles) const;
  bool failWith(const std::string& why);
  /// Cuts `pending` into pieces to deflate: whole ones, or everything when `last`.
  void cutPieces(bool last);
  /// Deflates the first waiting piece and answers its size (at least 1); 0 when none waits.
  size_t deflateWaitingPiece() const;
  /// Writes the deflated pieces at the head, in order.
  bool writeDeflatedPieces();

  VrAtomicFile file;
  VrParticleSet layout;
  VrParticleFormat format;
  std::string reason;
  size_t particles = 0;
  uint32_t bodyCrc = 0;   // of the bytes after the header, for gzip
  uint64_t bodySize = 0;  // input bytes after the header
  std::string pending;    // stored bytes not yet in a piece
  mutable std::mutex lock;
  mutable std::deque<std::shared_ptr<Piece>> pieces;  // cut and not yet written, in file order
};
