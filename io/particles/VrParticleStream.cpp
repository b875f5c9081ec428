// A .bgeo or .bgeo.gz file written batch by batch.

#include "io/particles/VrParticleStream.h"

#include "io/particles/VrParticleFormats.h"
#include "io/particles/VrParticleGzip.h"

#include <zlib.h>

namespace {

// A deflated batch ends with the checksum and the size of its input, for `append`; a size of all
// ones marks a batch that could not be compressed.
constexpr size_t FooterBytes = 12;
constexpr uint64_t FailedBatch = ~uint64_t(0);

void putFooter(uint32_t crc, uint64_t size, std::string& bytes) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(crc >> (8 * i)));
  for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<char>(size >> (8 * i)));
}

uint64_t loadLE(const std::string& bytes, size_t at, int count) {
  uint64_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

}  // namespace

bool VrParticleStream::streams(VrParticleFormat format, const VrParticleSet& layout) {
  if (format != VrParticleFormat::Bgeo && format != VrParticleFormat::BgeoGz) return false;
  for (size_t a = 0; a < layout.numAttributes(); ++a)
    if (layout.attribute(a).type == VrParticleType::IndexedString) return false;
  return true;
}

VrParticleStream::VrParticleStream(const std::string& path, VrParticleFormat format, const VrParticleSet& attributes)
    : file(path), layout(attributes), gzip(format == VrParticleFormat::BgeoGz) {
  layout.resize(0);
  if (!streams(format, layout)) {
    reason = "the particles cannot be written as they are made";
    return;
  }
  if (!file.ok()) {
    reason = "cannot create the file";
    return;
  }
  if (!vrparticles::checkBgeo(layout, reason)) return;
  const std::string head = prefix(0);
  if (!file.out().write(head.data(), static_cast<std::streamsize>(head.size()))) reason = "cannot write the file";
}

std::string VrParticleStream::prefix(size_t count) const {
  std::string header;
  vrparticles::putBgeoHeader(layout, count, header);
  if (!gzip) return header;
  std::string bytes(reinterpret_cast<const char*>(vrparticles::GzipHeader), sizeof vrparticles::GzipHeader);
  vrparticles::putStoredPiece(reinterpret_cast<const unsigned char*>(header.data()), header.size(), bytes);
  return bytes;
}

void VrParticleStream::encode(const VrParticleSet& batch, std::string& bytes) const {
  if (!gzip) {
    vrparticles::putBgeoRecords(batch, 0, batch.numParticles(), bytes);
    return;
  }
  thread_local std::string records;
  records.clear();
  vrparticles::putBgeoRecords(batch, 0, batch.numParticles(), records);
  const auto* data = reinterpret_cast<const unsigned char*>(records.data());
  const bool deflated = vrparticles::deflatePiece(data, records.size(), false, bytes);
  putFooter(static_cast<uint32_t>(crc32(0L, data, static_cast<uInt>(records.size()))),
            deflated ? records.size() : FailedBatch, bytes);
}

bool VrParticleStream::append(const std::string& encoded, size_t count) {
  if (!ok()) return false;
  size_t stored = encoded.size();
  if (gzip) {
    if (encoded.size() < FooterBytes) return failWith("a batch of particles came damaged");
    stored -= FooterBytes;
    const uint64_t size = loadLE(encoded, stored + 4, 8);
    if (size == FailedBatch) return failWith("cannot compress the particles");
    bodyCrc = static_cast<uint32_t>(
        crc32_combine(bodyCrc, static_cast<uLong>(loadLE(encoded, stored, 4)), static_cast<z_off_t>(size)));
    bodySize += size;
  }
  if (!file.out().write(encoded.data(), static_cast<std::streamsize>(stored))) return failWith("cannot write the file");
  particles += count;
  file.writeBehind();
  return true;
}

bool VrParticleStream::finish() {
  if (!ok()) return false;
  if (particles > vrparticles::MostBgeoParticles) return failWith("more particles than the format can count");
  std::string tail;
  vrparticles::putBgeoTail(layout, tail);
  std::ostream& out = file.out();
  if (!gzip) {
    out.write(tail.data(), static_cast<std::streamsize>(tail.size()));
  } else {
    std::string piece;
    const auto* data = reinterpret_cast<const unsigned char*>(tail.data());
    if (!vrparticles::deflatePiece(data, tail.size(), true, piece)) return failWith("cannot compress the particles");
    out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    bodyCrc = static_cast<uint32_t>(
        crc32_combine(bodyCrc, crc32(0L, data, static_cast<uInt>(tail.size())), static_cast<z_off_t>(tail.size())));
    bodySize += tail.size();
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
