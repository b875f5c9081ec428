// Deflated pieces of a gzip member.

#include "io/particles/VrParticleGzip.h"

#include <algorithm>
#include <zlib.h>

namespace vrparticles {

namespace {

// A deflater per thread, reset for each piece: setting one up costs more than a small piece.
struct Deflater {
  z_stream z{};
  bool ready = false;
  Deflater() { ready = deflateInit2(&z, Z_BEST_SPEED, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) == Z_OK; }
  ~Deflater() {
    if (ready) deflateEnd(&z);
  }
};

}  // namespace

bool deflatePiece(const unsigned char* data, size_t size, bool last, std::string& out) {
  thread_local Deflater deflater;
  if (!deflater.ready || deflateReset(&deflater.z) != Z_OK) return false;
  z_stream& z = deflater.z;
  const size_t before = out.size();
  out.resize(before + deflateBound(&z, static_cast<uLong>(size)) + 64);
  z.next_in = const_cast<unsigned char*>(data);
  z.avail_in = static_cast<uInt>(size);
  z.next_out = reinterpret_cast<unsigned char*>(&out[before]);
  z.avail_out = static_cast<uInt>(out.size() - before);
  const int status = ::deflate(&z, last ? Z_FINISH : Z_SYNC_FLUSH);
  const bool done = z.avail_in == 0 && (last ? status == Z_STREAM_END : status == Z_OK && z.avail_out > 0);
  out.resize(out.size() - z.avail_out);
  return done;
}

void putStoredPiece(const unsigned char* data, size_t size, std::string& out) {
  do {
    const size_t n = std::min<size_t>(size, 0xffff);
    // Not the last block, type "stored": three bits, then padding to the byte boundary.
    const unsigned char head[5] = {0, static_cast<unsigned char>(n), static_cast<unsigned char>(n >> 8),
                                   static_cast<unsigned char>(~n), static_cast<unsigned char>(~n >> 8)};
    out.append(reinterpret_cast<const char*>(head), sizeof head);
    out.append(reinterpret_cast<const char*>(data), n);
    data += n;
    size -= n;
  } while (size > 0);
}

void putGzipTrailer(uint32_t crc, uint64_t size, unsigned char out[8]) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<unsigned char>(crc >> (8 * i));
  for (int i = 0; i < 4; ++i) out[4 + i] = static_cast<unsigned char>(size >> (8 * i));
}

}  // namespace vrparticles
