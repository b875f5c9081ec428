// Houdini's classic binary geometry (".bgeo", version 5), the layout particle caches use:
//
//   "Bgeo" 'V' int32 version(5)
//   int32 nPoints nPrims nPointGroups nPrimGroups nPointAttrib nVertexAttrib nPrimAttrib nAttrib
//   nPointAttrib definitions     {u16 nameLength, name, u16 size, int32 type, defaults}
//   nPoints records              P as four floats (x y z w), then each attribute's values
//   nPrimAttrib definitions, nPrims primitives (particle systems: 0x8000, vertex list, values)
//   nAttrib definitions, then one record of detail values   -> the set's fixed attributes
//   0x00 0xff
//
// Everything is big-endian 32-bit. Types: 0 float, 1 int, 4 index (a table of strings follows
// the size instead of defaults; values index it), 5 vector.

#include "io/particles/VrParticleBytes.h"
#include "io/particles/VrParticleFormats.h"

#include <cstdio>
#include <cstring>

namespace vrparticles {

namespace {

constexpr int32_t HoudiniFloat = 0, HoudiniInt = 1, HoudiniString = 2, HoudiniIndex = 4, HoudiniVector = 5;
constexpr int32_t ParticlePrimitive = 0x8000;

struct Definition {
  std::string name;
  VrParticleType type = VrParticleType::Float;
  int count = 1;
  std::vector<std::string> strings;
};

bool readDefinitions(ByteCursor& in, int32_t n, const char* what, std::vector<Definition>& defs, std::string& error) {
  // The smallest definition takes 8 bytes: a check before anything is reserved.
  if (static_cast<uint64_t>(n) * 8 > in.remaining()) {
    error = std::to_string(n) + " " + what + " attributes announced, more than the file can hold";
    return false;
  }
  for (int32_t i = 0; i < n; ++i) {
    Definition d;
    uint16_t length = 0, size = 0;
    int32_t type = 0;
    if (!in.be16(length) || !in.text(length, d.name) || !in.be16(size) || !in.be32(type)) {
      error = std::string("cut short in the ") + what + " attribute definitions";
      return false;
    }
    if (size == 0) {
      error = std::string(what) + " attribute '" + d.name + "' has no components";
      return false;
    }
    d.count = size;
    if (type == HoudiniFloat || type == HoudiniInt || type == HoudiniVector) {
      d.type = type == HoudiniFloat ? VrParticleType::Float : type == HoudiniInt ? VrParticleType::Int : VrParticleType::Vector;
      if (!in.skip(size_t(size) * 4)) {
        error = std::string("cut short in the defaults of ") + what + " attribute '" + d.name + "'";
        return false;
      }
    } else if (type == HoudiniIndex) {
      d.type = VrParticleType::IndexedString;
      int32_t strings = 0;
      if (!in.be32(strings) || strings < 0 || static_cast<uint64_t>(strings) * 2 > in.remaining()) {
        error = std::string("bad string table size in ") + what + " attribute '" + d.name + "'";
        return false;
      }
      d.strings.resize(static_cast<size_t>(strings));
      for (std::string& s : d.strings) {
        uint16_t l = 0;
        if (!in.be16(l) || !in.text(l, s)) {
          error = std::string("cut short in the strings of ") + what + " attribute '" + d.name + "'";
          return false;
        }
      }
    } else {
      error = std::string(what) + " attribute '" + d.name + "' has " +
              (type == HoudiniString ? std::string("type string") : "unknown type " + std::to_string(type)) +
              "; only float, int, vector and index attributes are read";
      return false;
    }
    defs.push_back(std::move(d));
  }
  return true;
}

size_t valueWords(const std::vector<Definition>& defs) {
  size_t words = 0;
  for (const Definition& d : defs) words += static_cast<size_t>(d.count);
  return words;
}

// Copies `count` big-endian words to `to` (floats or ints, as bits).
inline void copyWords(const unsigned char* from, void* to, int count) {
  unsigned char* out = static_cast<unsigned char*>(to);
  for (int k = 0; k < count; ++k) {
    const uint32_t v = loadBE32(from + 4 * k);
    std::memcpy(out + 4 * k, &v, 4);
  }
}

void* valuesOf(VrParticleAttribute& a) {
  return a.isInt() ? static_cast<void*>(a.ints.data()) : static_cast<void*>(a.floats.data());
}
const void* valuesOf(const VrParticleAttribute& a) {
  return a.isInt() ? static_cast<const void*>(a.ints.data()) : static_cast<const void*>(a.floats.data());
}

bool skipPrimitives(ByteCursor& in, int32_t nPoints, int32_t nPrims, int32_t nPrimAttrib, std::string& error) {
  std::vector<Definition> defs;
  if (!readDefinitions(in, nPrimAttrib, "primitive", defs, error)) return false;
  const size_t valueBytes = valueWords(defs) * 4;
  const size_t indexBytes = nPoints >= (1 << 16) ? 4 : 2;
  for (int32_t i = 0; i < nPrims; ++i) {
    int32_t type = 0, vertices = 0;
    if (!in.be32(type)) break;
    if (type != ParticlePrimitive) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "0x%x", static_cast<unsigned>(type));
      error = std::string("primitive ") + std::to_string(i) + " has type " + hex + "; only particle systems are read";
      return false;
    }
    if (!in.be32(vertices) || vertices < 0 || !in.skip(static_cast<size_t>(vertices) * indexBytes) || !in.skip(valueBytes)) break;
    if (i + 1 == nPrims) return true;
  }
  if (nPrims == 0) return true;
  error = "cut short in the primitives";
  return false;
}

void putBE16(std::string& bytes, size_t value) {
  bytes.push_back(static_cast<char>(value >> 8));
  bytes.push_back(static_cast<char>(value));
}

void putBE32(std::string& bytes, uint32_t value) {
  unsigned char word[4];
  storeBE32(word, value);
  bytes.append(reinterpret_cast<const char*>(word), 4);
}

void putDefinition(std::string& bytes, const VrParticleAttribute& a) {
  putBE16(bytes, a.name.size());
  bytes += a.name;
  putBE16(bytes, static_cast<size_t>(a.count));
  const int32_t type = a.type == VrParticleType::Float ? HoudiniFloat
                       : a.type == VrParticleType::Int ? HoudiniInt
                       : a.type == VrParticleType::Vector ? HoudiniVector
                                                          : HoudiniIndex;
  putBE32(bytes, static_cast<uint32_t>(type));
  if (a.type != VrParticleType::IndexedString) {
    bytes.append(4 * static_cast<size_t>(a.count), '\0');
    return;
  }
  putBE32(bytes, static_cast<uint32_t>(a.strings.size()));
  for (const std::string& s : a.strings) {
    putBE16(bytes, s.size());
    bytes += s;
  }
}

bool fitsLayout(const VrParticleAttribute& a, std::string& error) {
  if (a.name.size() > 0xffff || a.count > 0xffff || a.strings.size() > 0x7fffffff) {
    error = "attribute '" + a.name.substr(0, 64) + "' is too large for the format";
    return false;
  }
  for (const std::string& s : a.strings)
    if (s.size() > 0xffff) {
      error = "a string of attribute '" + a.name + "' is longer than 65535 bytes";
      return false;
    }
  return true;
}

}  // namespace

int positionAttribute(const VrParticleSet& set, std::string& error) {
  const int p = set.findAttribute("position");
  if (p >= 0) {
    const VrParticleAttribute& a = set.attribute(static_cast<size_t>(p));
    if (!a.isInt() && a.count == 3) return p;
  }
  error = "the set has no 'position' attribute of three floats to store as the point position P";
  return -1;
}

bool readBgeo(const FileBytes& bytes, VrParticleSet& set, std::string& error) {
  ByteCursor in(bytes.data(), bytes.size());
  const unsigned char* magic = in.take(5);
  if (!magic || std::memcmp(magic, "BgeoV", 5) != 0) {
    error = magic && std::memcmp(magic, "\x7fNSJ", 4) == 0
                ? "a binary Houdini geometry file of the newer (JSON) kind; only the classic version 5 layout is read"
                : "not a binary Houdini geometry file (no Bgeo header)";
    return false;
  }
  int32_t version = 0, nPoints = 0, nPrims = 0, nPointGroups = 0, nPrimGroups = 0, nPointAttrib = 0,
          nVertexAttrib = 0, nPrimAttrib = 0, nAttrib = 0;
  if (!in.be32(version) || !in.be32(nPoints) || !in.be32(nPrims) || !in.be32(nPointGroups) || !in.be32(nPrimGroups) ||
      !in.be32(nPointAttrib) || !in.be32(nVertexAttrib) || !in.be32(nPrimAttrib) || !in.be32(nAttrib)) {
    error = "cut short in the header";
    return false;
  }
  if (version != 5) {
    error = "version " + std::to_string(version) + "; only version 5 is read";
    return false;
  }
  if (nPoints < 0 || nPrims < 0 || nPointGroups < 0 || nPrimGroups < 0 || nPointAttrib < 0 || nVertexAttrib < 0 ||
      nPrimAttrib < 0 || nAttrib < 0) {
    error = "a negative count in the header";
    return false;
  }
  if (nPointGroups || nPrimGroups || (nVertexAttrib && nPrims)) {
    error = "groups and vertex attributes are not read; only particle caches are";
    return false;
  }
  std::vector<Definition> defs;
  if (!readDefinitions(in, nPointAttrib, "point", defs, error)) return false;
  const size_t words = 4 + valueWords(defs);
  const size_t recordBytes = words * 4;
  if (static_cast<size_t>(nPoints) > in.remaining() / recordBytes) {
    error = std::to_string(nPoints) + " points of " + std::to_string(recordBytes) + " bytes announced, " +
            std::to_string(in.remaining()) + " bytes left";
    return false;
  }
  set = VrParticleSet();
  set.addAttribute("position", VrParticleType::Vector, 3);
  for (const Definition& d : defs) {
    const size_t before = set.numAttributes();
    const int index = set.addAttribute(d.name, d.type, d.count);
    if (index < 0 || set.numAttributes() == before) {
      error = "point attribute '" + d.name + "' is given twice";
      return false;
    }
    set.attribute(static_cast<size_t>(index)).strings = d.strings;
  }
  const size_t n = static_cast<size_t>(nPoints);
  set.resize(n);
  // One pass over the records; each attribute is written where its values lie in the set.
  struct Target {
    unsigned char* values;
    size_t offset;  // bytes into the record
    int count;
  };
  std::vector<Target> targets;
  size_t offset = 0;
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    VrParticleAttribute& attr = set.attribute(a);
    targets.push_back({static_cast<unsigned char*>(valuesOf(attr)), offset, attr.count});
    offset += a == 0 ? 16 : 4 * static_cast<size_t>(attr.count);  // P's w is skipped
  }
  const unsigned char* records = in.take(n * recordBytes);
  for (size_t p = 0; p < n; ++p) {
    const unsigned char* record = records + p * recordBytes;
    for (const Target& t : targets) copyWords(record + t.offset, t.values + p * 4 * size_t(t.count), t.count);
  }
  if (!skipPrimitives(in, nPoints, nPrims, nPrimAttrib, error)) return false;
  std::vector<Definition> details;
  if (!readDefinitions(in, nAttrib, "detail", details, error)) return false;
  const unsigned char* values = in.take(valueWords(details) * 4);
  if (!values) {
    error = "cut short in the detail values";
    return false;
  }
  for (const Definition& d : details) {
    const size_t before = set.numFixedAttributes();
    const int index = set.addFixedAttribute(d.name, d.type, d.count);
    if (index < 0 || set.numFixedAttributes() == before) {
      error = "detail attribute '" + d.name + "' is given twice";
      return false;
    }
    VrParticleAttribute& attr = set.fixedAttribute(static_cast<size_t>(index));
    attr.strings = d.strings;
    copyWords(values, valuesOf(attr), d.count);
    values += 4 * static_cast<size_t>(d.count);
  }
  return true;
}

bool checkBgeo(const VrParticleSet& set, std::string& error) {
  if (positionAttribute(set, error) < 0) return false;
  if (set.numParticles() > MostBgeoParticles) {
    error = "more particles than the format can count";
    return false;
  }
  for (size_t a = 0; a < set.numAttributes(); ++a)
    if (!fitsLayout(set.attribute(a), error)) return false;
  for (size_t a = 0; a < set.numFixedAttributes(); ++a)
    if (!fitsLayout(set.fixedAttribute(a), error)) return false;
  return true;
}

void putBgeoHeader(const VrParticleSet& set, size_t particles, std::string& bytes) {
  std::string unused;
  const int position = positionAttribute(set, unused);
  bytes += "BgeoV";
  const int32_t counts[9] = {5, static_cast<int32_t>(particles), 0, 0, 0,
                             static_cast<int32_t>(set.numAttributes() - 1), 0, 0,
                             static_cast<int32_t>(set.numFixedAttributes())};
  for (int32_t count : counts) putBE32(bytes, static_cast<uint32_t>(count));
  for (size_t a = 0; a < set.numAttributes(); ++a)
    if (static_cast<int>(a) != position) putDefinition(bytes, set.attribute(a));
}

void putBgeoRecords(const VrParticleSet& set, size_t first, size_t last, std::string& bytes) {
  // P first, as four floats with w = 1, then the other attributes in the set's order.
  struct Source {
    const unsigned char* values;
    int count;
  };
  std::string unused;
  const int position = positionAttribute(set, unused);
  const VrParticleAttribute& p = set.attribute(static_cast<size_t>(position));
  std::vector<Source> sources = {{reinterpret_cast<const unsigned char*>(p.floats.data()), 3}};
  size_t words = 4;
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    if (static_cast<int>(a) == position) continue;
    const VrParticleAttribute& attr = set.attribute(a);
    sources.push_back({static_cast<const unsigned char*>(valuesOf(attr)), attr.count});
    words += static_cast<size_t>(attr.count);
  }
  const size_t before = bytes.size();
  bytes.resize(before + (last - first) * words * 4);
  unsigned char* at = reinterpret_cast<unsigned char*>(&bytes[before]);
  uint32_t one;
  const float w = 1.0f;
  std::memcpy(&one, &w, 4);
  for (size_t i = first; i < last; ++i) {
    for (size_t s = 0; s < sources.size(); ++s) {
      const Source& src = sources[s];
      const unsigned char* from = src.values + i * 4 * size_t(src.count);
      for (int k = 0; k < src.count; ++k, at += 4) {
        uint32_t v;
        std::memcpy(&v, from + 4 * k, 4);
        storeBE32(at, v);
      }
      if (s == 0) {
        storeBE32(at, one);
        at += 4;
      }
    }
  }
}

void putBgeoTail(const VrParticleSet& set, std::string& bytes) {
  for (size_t a = 0; a < set.numFixedAttributes(); ++a) putDefinition(bytes, set.fixedAttribute(a));
  for (size_t a = 0; a < set.numFixedAttributes(); ++a) {
    const VrParticleAttribute& attr = set.fixedAttribute(a);
    const unsigned char* from = static_cast<const unsigned char*>(valuesOf(attr));
    for (int k = 0; k < attr.count; ++k) {
      uint32_t v;
      std::memcpy(&v, from + 4 * k, 4);
      putBE32(bytes, v);
    }
  }
  bytes.push_back(0x00);
  bytes.push_back(static_cast<char>(0xff));
}

}  // namespace vrparticles
