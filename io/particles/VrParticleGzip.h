#pragma once
// Internal to io/particles: gzip members made of pieces deflated apart, on any thread. Each piece
// is a raw deflate stream of its own; one that is not the last ends on a byte boundary (a sync
// flush) so that the next can follow it, and the pieces' checksums combine into the member's.

#include <cstddef>
#include <cstdint>
#include <string>

namespace vrparticles {

/// The member's header: no name, no time, the fastest level, made on Unix (as zlib writes it).
constexpr unsigned char GzipHeader[10] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 4, 3};

/// Appends `size` bytes deflated as one piece to `out`; `last` ends the whole stream. Particle
/// caches are rewritten every frame, so the fastest level: it keeps most of the gain on float
/// data at a fraction of the time. False when zlib refused.
bool deflatePiece(const unsigned char* data, size_t size, bool last, std::string& out);

/// Appends `size` bytes as stored (not compressed) blocks that are not the last, for bytes that
/// must keep their length whatever their values.
void putStoredPiece(const unsigned char* data, size_t size, std::string& out);

/// The member's trailer: the checksum and the input size modulo 2^32, as the format keeps it.
void putGzipTrailer(uint32_t crc, uint64_t size, unsigned char out[8]);

}  // namespace vrparticles
