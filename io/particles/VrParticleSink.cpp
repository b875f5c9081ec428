// Buffered, optionally gzip-compressed, atomic output of particle writers.

#include "io/particles/VrParticleSink.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <zlib.h>

namespace vrparticles {

namespace {
constexpr size_t BufferSize = 4u << 20;
}

// Particle caches are rewritten every frame: the fastest level keeps most of the gain on
// float data at a fraction of the time.
struct VrParticleSink::Deflate {
  z_stream z{};
  std::vector<unsigned char> out = std::vector<unsigned char>(BufferSize / 2);
  bool started = false;
};

VrParticleSink::VrParticleSink(const std::string& path, bool gzip) : file(path), buffer(BufferSize) {
  opened = good = file.ok();
  if (gzip) {
    deflate.reset(new Deflate);
    deflate->started = deflateInit2(&deflate->z, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) == Z_OK;
    good = good && deflate->started;
  }
}

VrParticleSink::~VrParticleSink() {
  if (deflate && deflate->started) deflateEnd(&deflate->z);
}

void VrParticleSink::drain(int flush) {
  if (!deflate) {
    if (good && used) good = static_cast<bool>(file.out().write(reinterpret_cast<const char*>(buffer.data()), static_cast<std::streamsize>(used)));
    used = 0;
    file.writeBehind();
    return;
  }
  z_stream& z = deflate->z;
  z.next_in = buffer.data();
  z.avail_in = static_cast<uInt>(used);
  int status;
  do {
    z.next_out = deflate->out.data();
    z.avail_out = static_cast<uInt>(deflate->out.size());
    status = ::deflate(&z, flush);
    const size_t made = deflate->out.size() - z.avail_out;
    if (good && made) good = static_cast<bool>(file.out().write(reinterpret_cast<const char*>(deflate->out.data()), static_cast<std::streamsize>(made)));
  } while (good && (z.avail_out == 0 || (flush == Z_FINISH && status != Z_STREAM_END)));
  if (status == Z_STREAM_ERROR) good = false;
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
