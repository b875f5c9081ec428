// A .bgeo, .bgeo.gz or .geo file written batch by batch.

#include "io/particles/VrParticleStream.h"

#include "io/particles/VrParticleFormats.h"
#include "io/particles/VrParticleGzip.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <vector>
#include <zlib.h>

namespace {
// Large enough that a piece's Huffman tables and flush cost little, small enough that pieces
// come often and several threads share the work.
constexpr size_t PieceBytes = 64u << 10;
// The most points a `.geo` header's count field holds.
constexpr size_t MostGeoParticles = 9999999999u;
}  // namespace

struct VrParticleStream::Piece {
  enum State { Waiting, Taken, Deflated, Failed };
  std::string raw, packed;
  uLong crc = 0;
  bool last = false;
  State state = Waiting;  // under the stream's lock
};

namespace {

bool streamableFormat(VrParticleFormat format) {
  return format == VrParticleFormat::Bgeo || format == VrParticleFormat::BgeoGz || format == VrParticleFormat::Geo;
}

// The attributes of `set`, string tables and fixed values included, without its particles.
VrParticleSet layoutOf(const VrParticleSet& set) {
  VrParticleSet layout;
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& attr = set.attribute(a);
    layout.attribute(static_cast<size_t>(layout.addAttribute(attr.name, attr.type, attr.count))).strings = attr.strings;
  }
  for (size_t a = 0; a < set.numFixedAttributes(); ++a) {
    const VrParticleAttribute& attr = set.fixedAttribute(a);
    layout.fixedAttribute(static_cast<size_t>(layout.addFixedAttribute(attr.name, attr.type, attr.count))) = attr;
  }
  return layout;
}

}  // namespace

bool VrParticleStream::streams(VrParticleFormat format, const VrParticleSet& layout) {
  if (!streamableFormat(format)) return false;
  for (size_t a = 0; a < layout.numAttributes(); ++a)
    if (layout.attribute(a).type == VrParticleType::IndexedString) return false;
  return true;
}

VrParticleStream::VrParticleStream(const std::string& path, VrParticleFormat format, const VrParticleSet& attributes)
    : file(path), layout(layoutOf(attributes)), format(format) {
  if (!streamableFormat(format)) {
    reason = "this format is not written a batch at a time";
    return;
  }
  if (!file.ok()) {
    reason = "cannot create the file";
    return;
  }
  if (!(format == VrParticleFormat::Geo ? vrparticles::checkGeo(layout, reason) : vrparticles::checkBgeo(layout, reason)))
    return;
  const std::string head = prefix(0);
  if (!file.out().write(head.data(), static_cast<std::streamsize>(head.size()))) reason = "cannot write the file";
}

std::string VrParticleStream::prefix(size_t count) const {
  std::string header;
  if (format == VrParticleFormat::Geo) {
    vrparticles::putGeoHeader(layout, count, header);
    return header;
  }
  vrparticles::putBgeoHeader(layout, count, header);
  if (!gzip()) return header;
  std::string bytes(reinterpret_cast<const char*>(vrparticles::GzipHeader), sizeof vrparticles::GzipHeader);
  vrparticles::putStoredPiece(reinterpret_cast<const unsigned char*>(header.data()), header.size(), bytes);
  return bytes;
}

void VrParticleStream::encode(const VrParticleSet& particles, size_t first, size_t last, std::string& bytes) const {
  const size_t before = bytes.size();
  if (format == VrParticleFormat::Geo) vrparticles::putGeoRecords(particles, first, last, bytes);
  else vrparticles::putBgeoRecords(particles, first, last, bytes);
  if (!gzip()) return;
  // Each batch pays for its own bytes: as many waiting bytes are deflated as it encoded, so the
  // pieces keep pace with the batches.
  for (size_t owed = bytes.size() - before, paid = 0; paid < owed;) {
    const size_t deflated = deflateWaitingPiece();
    if (deflated == 0) break;
    paid += deflated;
  }
}

size_t VrParticleStream::deflateWaitingPiece() const {
  std::shared_ptr<Piece> piece;
  {
    std::lock_guard<std::mutex> hold(lock);
    for (const std::shared_ptr<Piece>& p : pieces)
      if (p->state == Piece::Waiting) {
        p->state = Piece::Taken;
        piece = p;
        break;
      }
  }
  if (!piece) return 0;
  const auto* data = reinterpret_cast<const unsigned char*>(piece->raw.data());
  piece->crc = crc32(0L, data, static_cast<uInt>(piece->raw.size()));
  const bool deflated = vrparticles::deflatePiece(data, piece->raw.size(), piece->last, piece->packed);
  std::lock_guard<std::mutex> hold(lock);
  piece->state = deflated ? Piece::Deflated : Piece::Failed;
  return std::max<size_t>(piece->raw.size(), 1);
}

void VrParticleStream::cutPieces(bool last) {
  size_t from = 0;
  std::deque<std::shared_ptr<Piece>> cut;
  while (pending.size() - from >= PieceBytes || (last && (from < pending.size() || cut.empty()))) {
    auto piece = std::make_shared<Piece>();
    const size_t size = std::min(PieceBytes, pending.size() - from);
    piece->raw.assign(pending, from, size);
    from += size;
    piece->last = last && from == pending.size();
    cut.push_back(std::move(piece));
    if (cut.back()->last) break;
  }
  pending.erase(0, from);
  if (cut.empty()) return;
  std::lock_guard<std::mutex> hold(lock);
  for (std::shared_ptr<Piece>& piece : cut) pieces.push_back(std::move(piece));
}

bool VrParticleStream::writeDeflatedPieces() {
  for (;;) {
    std::shared_ptr<Piece> piece;
    {
      std::lock_guard<std::mutex> hold(lock);
      if (pieces.empty() || pieces.front()->state == Piece::Waiting || pieces.front()->state == Piece::Taken) break;
      piece = std::move(pieces.front());
      pieces.pop_front();
    }
    if (piece->state == Piece::Failed) return failWith("cannot compress the particles");
    if (!file.write(piece->packed.data(), piece->packed.size()))
      return failWith("cannot write the file");
    bodyCrc = static_cast<uint32_t>(crc32_combine(bodyCrc, piece->crc, static_cast<z_off_t>(piece->raw.size())));
    bodySize += piece->raw.size();
  }
  file.writeBehind();
  return true;
}

bool VrParticleStream::append(const std::string& encoded, size_t count) {
  if (!ok()) return false;
  particles += count;
  if (!gzip()) {
    if (!file.write(encoded.data(), encoded.size()))
      return failWith("cannot write the file");
    bodySize += encoded.size();
    file.writeBehind();
    return true;
  }
  pending += encoded;
  cutPieces(false);
  return writeDeflatedPieces();
}

bool VrParticleStream::finish() {
  if (!ok()) return false;
  const bool geo = format == VrParticleFormat::Geo;
  if (particles > (geo ? MostGeoParticles : vrparticles::MostBgeoParticles))
    return failWith("more particles than the format can count");
  std::ostream& out = file.out();
  if (geo) {
    // One particle system holding every point, its numbers made in pieces on the arena's threads.
    std::string tail;
    vrparticles::putGeoPrimitive(particles, tail);
    out.write(tail.data(), static_cast<std::streamsize>(tail.size()));
    constexpr size_t perPiece = 65536;
    std::vector<std::string> numbers((particles + perPiece - 1) / perPiece);
    tbb::parallel_for(size_t(0), numbers.size(), [&](size_t k) {
      vrparticles::putGeoPointNumbers(k * perPiece, std::min(particles, (k + 1) * perPiece), numbers[k]);
    });
    for (const std::string& piece : numbers) out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    tail.clear();
    vrparticles::putGeoTail(layout, tail);
    out.write(tail.data(), static_cast<std::streamsize>(tail.size()));
  } else if (!gzip()) {
    std::string tail;
    vrparticles::putBgeoTail(layout, tail);
    out.write(tail.data(), static_cast<std::streamsize>(tail.size()));
  } else {
    // Nothing encodes any more: what still waits is deflated here, on the calling arena's threads.
    vrparticles::putBgeoTail(layout, pending);
    cutPieces(true);
    size_t waiting = 0;
    {
      std::lock_guard<std::mutex> hold(lock);
      waiting = pieces.size();
    }
    tbb::parallel_for(size_t(0), waiting, [this](size_t) { deflateWaitingPiece(); });
    if (!writeDeflatedPieces()) return false;
    if (!pieces.empty()) return failWith("a piece of the particles was never compressed");
    std::string header;
    vrparticles::putBgeoHeader(layout, particles, header);
    const uLong headerCrc = crc32(0L, reinterpret_cast<const unsigned char*>(header.data()), static_cast<uInt>(header.size()));
    unsigned char trailer[8];
    vrparticles::putGzipTrailer(static_cast<uint32_t>(crc32_combine(headerCrc, bodyCrc, static_cast<z_off_t>(bodySize))),
                                header.size() + bodySize, trailer);
    out.write(reinterpret_cast<const char*>(trailer), sizeof trailer);
  }
  // The header again, now with the count; it keeps its length.
  const std::string head = prefix(particles);
  out.seekp(0);
  out.write(head.data(), static_cast<std::streamsize>(head.size()));
  if (!out || !file.commit()) return failWith("cannot write the file");
  return true;
}

bool VrParticleStream::failWith(const std::string& why) {
  if (reason.empty()) reason = why;
  return false;
}
