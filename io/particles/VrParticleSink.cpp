// Buffered, optionally gzip-compressed, atomic output of particle writers.

#include "io/particles/VrParticleSink.h"

#include "io/particles/VrParticleGzip.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cstdint>
#include <zlib.h>

namespace vrparticles {

namespace {
constexpr size_t BufferSize = 4u << 20;
constexpr size_t GzipPiece = 256u << 10;
}  // namespace

// Gzip output made in pieces compressed on every thread of the calling arena: the pieces' raw
// streams join into the one member, and their checksums combine into the member's.
struct VrParticleSink::Deflate {
  uLong crc = crc32(0L, Z_NULL, 0);
  uint64_t size = 0;  // input bytes so far
  bool headerWritten = false;
  std::vector<std::string> pieces;
  std::vector<uLong> pieceCrcs;
};

VrParticleSink::VrParticleSink(const std::string& path, bool gzip) : file(path), buffer(BufferSize) {
  opened = good = file.ok();
  if (gzip) deflate.reset(new Deflate);
}

VrParticleSink::~VrParticleSink() = default;

void VrParticleSink::drain(int flush) {
  if (!deflate) {
    if (good && used) good = static_cast<bool>(file.out().write(reinterpret_cast<const char*>(buffer.data()), static_cast<std::streamsize>(used)));
    used = 0;
    file.writeBehind();
    return;
  }
  Deflate& d = *deflate;
  const bool finishing = flush == Z_FINISH;
  if (!good || (used == 0 && !finishing)) return;
  auto write = [&](const void* bytes, size_t n) {
    if (good && n) good = static_cast<bool>(file.out().write(static_cast<const char*>(bytes), static_cast<std::streamsize>(n)));
  };
  if (!d.headerWritten) {
    write(GzipHeader, sizeof GzipHeader);
    d.headerWritten = true;
  }
  const size_t pieces = std::max<size_t>(1, (used + GzipPiece - 1) / GzipPiece);
  d.pieces.resize(pieces);
  d.pieceCrcs.assign(pieces, 0);
  std::vector<char> ok(pieces, 1);
  tbb::parallel_for(size_t(0), pieces, [&](size_t k) {
    const size_t from = k * GzipPiece, size = std::min(used, from + GzipPiece) - std::min(used, from);
    d.pieceCrcs[k] = crc32(0L, buffer.data() + from, static_cast<uInt>(size));
    d.pieces[k].clear();
    ok[k] = deflatePiece(buffer.data() + from, size, finishing && k + 1 == pieces, d.pieces[k]);
  });
  for (size_t k = 0; k < pieces; ++k) {
    const size_t size = std::min(used, (k + 1) * GzipPiece) - std::min(used, k * GzipPiece);
    good = good && ok[k];
    write(d.pieces[k].data(), d.pieces[k].size());
    d.crc = crc32_combine(d.crc, d.pieceCrcs[k], static_cast<z_off_t>(size));
    d.size += size;
  }
  if (finishing) {
    unsigned char trailer[8];
    putGzipTrailer(static_cast<uint32_t>(d.crc), d.size, trailer);
    write(trailer, sizeof trailer);
  }
  used = 0;
  file.writeBehind();
}

void VrParticleSink::putInPieces(size_t count, size_t perPiece,
                                 const std::function<void(size_t, size_t, std::string&)>& make) {
  perPiece = std::max<size_t>(perPiece, 1);
  const size_t pieces = (count + perPiece - 1) / perPiece;
  const size_t window = 4 * static_cast<size_t>(std::max(1, tbb::this_task_arena::max_concurrency()));
  std::vector<std::string> bytes(std::min(pieces, window));
  for (size_t first = 0; first < pieces; first += window) {
    const size_t last = std::min(pieces, first + window);
    tbb::parallel_for(first, last, [&](size_t piece) {
      std::string& text = bytes[piece - first];
      text.clear();
      make(piece * perPiece, std::min(count, (piece + 1) * perPiece), text);
    });
    for (size_t piece = first; piece < last; ++piece) put(bytes[piece - first]);
  }
}

void VrParticleSink::makeRoom(size_t n) {
  drain(Z_NO_FLUSH);
  if (buffer.size() < n) buffer.resize(n);
}

bool VrParticleSink::finish(std::string& error) {
  if (!opened) {
    error = "cannot create the file";
    return false;
  }
  if (good) drain(deflate ? Z_FINISH : Z_NO_FLUSH);
  if (!good || !file.commit()) {
    error = "cannot write the file";
    return false;
  }
  return true;
}

}  // namespace vrparticles
