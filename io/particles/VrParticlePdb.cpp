// The 32-bit ".pdb" particle layout, little-endian, each structure as a 32-bit compiler lays
// it out:
//
//   header (60 bytes)   int32 magic 670, u16 swap, 2 padding, float version, float time,
//                       u32 particles, u32 channels, 32 padding, u32 pointer
//   per channel         6 bytes:  u8 magic, 1 padding, u16 swap, u8 encoding, u8 type
//                       36 bytes: u32 name pointer, int32 type (1 vector, 2 real, 3 long),
//                                 u32 size, u32 active start, u32 active end, u8 hide,
//                                 u8 disconnect, 2 padding, u32 data, u32 link, u32 next
//                       the name, ending in a zero byte
//                       20 bytes: int32 type, u32 bytes per particle, u32 block size,
//                                 int32 blocks, u32 pointer
//                       particles * bytes-per-particle bytes of values
//
// The file ends with the last channel's values; a file of any other size is not this layout
// (the 64-bit layout has wider pointers), and is refused.

#include "io/particles/VrParticleBytes.h"
#include "io/particles/VrParticleFormats.h"

#include <algorithm>

namespace vrparticles {

namespace {

constexpr uint32_t Magic = 670;
constexpr size_t HeaderBytes = 60, ChannelIoBytes = 6, ChannelBytes = 36, ChannelDataBytes = 20;
constexpr int32_t PdbVector = 1, PdbReal = 2, PdbLong = 3;

}  // namespace

bool readPdb32(const FileBytes& bytes, VrParticleSet& set, std::string& error) {
  ByteCursor in(bytes.data(), bytes.size());
  const unsigned char* header = in.take(HeaderBytes);
  if (!header || loadLE32(header) != Magic) {
    error = header ? "not a PDB particle file (no PDB magic)" : "not a PDB particle file (shorter than its header)";
    return false;
  }
  const uint32_t particles = loadLE32(header + 16), channels = loadLE32(header + 20);
  const size_t smallest = ChannelIoBytes + ChannelBytes + 1 + ChannelDataBytes;
  if (channels > in.remaining() / smallest) {
    error = std::to_string(channels) + " channels announced, more than the file can hold";
    return false;
  }
  set = VrParticleSet();
  for (uint32_t c = 0; c < channels; ++c) {
    const unsigned char* head = in.take(ChannelIoBytes + ChannelBytes);
    if (!head) {
      error = "cut short at channel " + std::to_string(c);
      return false;
    }
    const int32_t type = static_cast<int32_t>(loadLE32(head + ChannelIoBytes + 4));
    std::string name;
    for (uint8_t ch = 1; in.u8(ch) && ch;) name += static_cast<char>(ch);
    const unsigned char* data = in.take(ChannelDataBytes);
    if (!data) {
      error = "cut short in the name of channel " + std::to_string(c);
      return false;
    }
    const uint32_t width = loadLE32(data + 4);
    if (type != PdbVector && type != PdbReal && type != PdbLong) {
      error = "channel '" + name + "' has type " + std::to_string(type) + "; only vector, real and long channels are read";
      return false;
    }
    if (width == 0 || width % 4 != 0) {
      error = "channel '" + name + "' has " + std::to_string(width) + " bytes per particle, not a whole number of values";
      return false;
    }
    if (particles > 0 && width > in.remaining() / particles) {
      error = "channel '" + name + "' needs " + std::to_string(uint64_t(width) * particles) + " bytes, " +
              std::to_string(in.remaining()) + " are left: not the 32-bit PDB layout, or cut short";
      return false;
    }
    const VrParticleType kind = type == PdbVector ? VrParticleType::Vector
                                : type == PdbReal ? VrParticleType::Float
                                                  : VrParticleType::Int;
    const size_t before = set.numAttributes();
    const int index = set.addAttribute(name, kind, static_cast<int>(width / 4));
    if (index < 0 || set.numAttributes() == before) {
      error = "channel '" + name + "' is given twice";
      return false;
    }
    if (set.numParticles() != particles) set.resize(particles);
    VrParticleAttribute& attr = set.attribute(static_cast<size_t>(index));
    const unsigned char* values = in.take(size_t(particles) * width);
    unsigned char* to = attr.isInt() ? reinterpret_cast<unsigned char*>(attr.ints.data())
                                     : reinterpret_cast<unsigned char*>(attr.floats.data());
    for (size_t i = 0; i < size_t(particles) * width; i += 4) {
      const uint32_t v = loadLE32(values + i);
      std::memcpy(to + i, &v, 4);
    }
  }
  if (set.numParticles() != particles) set.resize(particles);
  if (in.remaining()) {
    error = std::to_string(in.remaining()) + " bytes after the last channel: not the 32-bit PDB layout";
    return false;
  }
  return true;
}

bool writePdb32(const VrParticleSet& set, VrParticleSink& out, std::string& error) {
  if (set.numParticles() > 0xffffffffu) {
    error = "more particles than the format can count";
    return false;
  }
  const uint32_t particles = static_cast<uint32_t>(set.numParticles());
  unsigned char* header = out.space(HeaderBytes);
  std::memset(header, 0, HeaderBytes);
  storeLE32(header, Magic);
  header[4] = 1;  // swap
  const float version = 1.0f;
  uint32_t bits;
  std::memcpy(&bits, &version, 4);
  storeLE32(header + 8, bits);
  storeLE32(header + 16, particles);
  storeLE32(header + 20, static_cast<uint32_t>(set.numAttributes()));
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& attr = set.attribute(a);
    if (attr.name.find('\0') != std::string::npos) {
      error = "a channel name holds a zero byte";
      return false;
    }
    const int32_t type = attr.type == VrParticleType::Vector ? PdbVector
                         : attr.type == VrParticleType::Float ? PdbReal
                                                              : PdbLong;  // indexed strings keep their indices
    unsigned char* head = out.space(ChannelIoBytes + ChannelBytes);
    std::memset(head, 0, ChannelIoBytes + ChannelBytes);
    head[2] = 1;  // swap
    unsigned char* channel = head + ChannelIoBytes;
    storeLE32(channel + 4, static_cast<uint32_t>(type));
    storeLE32(channel + 16, particles ? particles - 1 : 0);  // active end
    out.put(attr.name.c_str(), attr.name.size() + 1);
    const uint32_t width = 4 * static_cast<uint32_t>(attr.count);
    unsigned char* data = out.space(ChannelDataBytes);
    std::memset(data, 0, ChannelDataBytes);
    storeLE32(data, static_cast<uint32_t>(type));
    storeLE32(data + 4, width);
    storeLE32(data + 8, particles);
    storeLE32(data + 12, 1);
    const size_t total = size_t(particles) * width;
    const unsigned char* from = attr.isInt() ? reinterpret_cast<const unsigned char*>(attr.ints.data())
                                             : reinterpret_cast<const unsigned char*>(attr.floats.data());
    for (size_t done = 0; done < total;) {
      const size_t chunk = std::min<size_t>(total - done, 1u << 20);
      unsigned char* to = out.space(chunk);
      for (size_t i = 0; i < chunk; i += 4) {
        uint32_t v;
        std::memcpy(&v, from + done + i, 4);
        storeLE32(to + i, v);
      }
      done += chunk;
    }
  }
  return true;
}

}  // namespace vrparticles
