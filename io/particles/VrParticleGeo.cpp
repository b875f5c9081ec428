// Houdini's classic ASCII geometry (".geo", "PGEOMETRY V5"), as particle caches write it:
//
//   PGEOMETRY V5
//   NPoints 5 NPrims 1
//   NPointGroups 0 NPrimGroups 0
//   NPointAttrib 2 NVertexAttrib 0 NPrimAttrib 1 NAttrib 0
//   PointAttrib
//   life 2 float 0 0                 name, size, type, defaults
//   name 1 index 2 "a" "b"           an index attribute lists its strings instead
//   0 0.1 0.2 1 (-1.2 10	0)          x y z w, then the attribute values in parentheses
//   PrimitiveAttrib ... Part 5 0 1 2 3 4 [0]
//   DetailAttrib                     (when NAttrib > 0) definitions, then " (values)"
//   beginExtra
//   endExtra
//
// Everything is white-space separated. Only the points and the detail attributes are read.

#include "io/particles/VrParticleBytes.h"
#include "io/particles/VrParticleFormats.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace vrparticles {

namespace {

bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

class Text {
 public:
  Text(const char* begin, const char* end) : at(begin), end(end) {}
  size_t remaining() const { return static_cast<size_t>(end - at); }
  void skipSpace() {
    while (at < end && isSpace(static_cast<unsigned char>(*at))) ++at;
  }
  /// The next white-space separated word; empty at the end.
  std::string word() {
    skipSpace();
    const char* start = at;
    while (at < end && !isSpace(static_cast<unsigned char>(*at))) ++at;
    return std::string(start, at);
  }
  /// A word, or a double-quoted string with backslash escapes.
  bool string(std::string& out) {
    skipSpace();
    if (at == end) return false;
    if (*at != '"') {
      out = word();
      return true;
    }
    out.clear();
    for (++at; at < end; ++at) {
      if (*at == '"') {
        ++at;
        return true;
      }
      if (*at == '\\' && at + 1 < end) ++at;
      out += *at;
    }
    return false;
  }
  template <class T>
  bool number(T& value) {
    skipSpace();
    const std::from_chars_result r = std::from_chars(at, end, value);
    if (r.ec != std::errc() || r.ptr == at) return false;
    at = r.ptr;
    return true;
  }
  bool character(char c) {
    skipSpace();
    if (at == end || *at != c) return false;
    ++at;
    return true;
  }
  /// Moves past the word `w` standing alone; false when there is none.
  bool findWord(const std::string& w) {
    while (at < end) {
      if (word() == w) return true;
    }
    return false;
  }

 private:
  const char* at;
  const char* end;
};

struct Definition {
  std::string name;
  VrParticleType type = VrParticleType::Float;
  int count = 1;
  std::vector<std::string> strings;
};

bool readDefinitions(Text& in, int n, const char* what, std::vector<Definition>& defs, std::string& error) {
  if (static_cast<size_t>(n) > in.remaining() / 6) {
    error = std::to_string(n) + " " + what + " attributes announced, more than the file can hold";
    return false;
  }
  for (int i = 0; i < n; ++i) {
    Definition d;
    d.name = in.word();
    const std::string type = (in.number(d.count) ? in.word() : std::string());
    if (d.name.empty() || type.empty() || d.count < 1 || static_cast<size_t>(d.count) > in.remaining() / 2 + 1) {
      error = std::string("bad ") + what + " attribute definition '" + d.name + "'";
      return false;
    }
    if (type == "index") {
      d.type = VrParticleType::IndexedString;
      int strings = -1;
      if (!in.number(strings) || strings < 0 || static_cast<size_t>(strings) > in.remaining() / 2 + 1) {
        error = std::string("bad string table size in ") + what + " attribute '" + d.name + "'";
        return false;
      }
      d.strings.resize(static_cast<size_t>(strings));
      for (std::string& s : d.strings)
        if (!in.string(s)) {
          error = std::string("cut short in the strings of ") + what + " attribute '" + d.name + "'";
          return false;
        }
    } else if (type == "float" || type == "int" || type == "vector") {
      d.type = type == "float" ? VrParticleType::Float : type == "int" ? VrParticleType::Int : VrParticleType::Vector;
      for (int k = 0; k < d.count; ++k) {
        float ignored;
        if (!in.number(ignored)) {
          error = std::string("bad defaults of ") + what + " attribute '" + d.name + "'";
          return false;
        }
      }
    } else {
      error = std::string(what) + " attribute '" + d.name + "' has type '" + type.substr(0, 32) +
              "'; only float, int, vector and index attributes are read";
      return false;
    }
    defs.push_back(std::move(d));
  }
  return true;
}

// Reads `count` values of the attribute into `to`.
bool readValues(Text& in, VrParticleAttribute& a, size_t particle) {
  if (a.isInt()) {
    int32_t* to = a.ints.data() + particle * static_cast<size_t>(a.count);
    for (int k = 0; k < a.count; ++k)
      if (!in.number(to[k])) return false;
  } else {
    float* to = a.floats.data() + particle * static_cast<size_t>(a.count);
    for (int k = 0; k < a.count; ++k)
      if (!in.number(to[k])) return false;
  }
  return true;
}

// Adds the definitions as attributes (`fixed`: as fixed attributes); false on a repeated name.
bool addDefinitions(VrParticleSet& set, const std::vector<Definition>& defs, bool fixed, std::string& error) {
  for (const Definition& d : defs) {
    const size_t before = fixed ? set.numFixedAttributes() : set.numAttributes();
    const int index = fixed ? set.addFixedAttribute(d.name, d.type, d.count) : set.addAttribute(d.name, d.type, d.count);
    if (index < 0 || (fixed ? set.numFixedAttributes() : set.numAttributes()) == before) {
      error = std::string(fixed ? "detail" : "point") + " attribute '" + d.name + "' is given twice";
      return false;
    }
    (fixed ? set.fixedAttribute(static_cast<size_t>(index)) : set.attribute(static_cast<size_t>(index))).strings = d.strings;
  }
  return true;
}

// Text appended to a string: numbers as the shortest text that reads back to the same value.
class Writer {
 public:
  explicit Writer(std::string& text) : text(text) {}
  Writer& operator<<(const std::string& more) {
    text += more;
    return *this;
  }
  Writer& operator<<(const char* more) {
    text += more;
    return *this;
  }
  template <class T>
  Writer& number(T value) {
    char digits[32];
    const std::to_chars_result r = std::to_chars(digits, digits + sizeof digits, value);
    text.append(digits, r.ptr);
    return *this;
  }
  Writer& quoted(const std::string& more) {
    text += '"';
    for (char c : more) {
      if (c == '\\' || c == '"') text += '\\';
      text += c;
    }
    text += '"';
    return *this;
  }

 private:
  std::string& text;
};

void writeDefinitions(Writer& w, const VrParticleSet& set, bool fixed, int skip) {
  const size_t n = fixed ? set.numFixedAttributes() : set.numAttributes();
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<int>(i) == skip) continue;
    const VrParticleAttribute& a = fixed ? set.fixedAttribute(i) : set.attribute(i);
    w << a.name << " ";
    w.number(a.count);
    if (a.type == VrParticleType::IndexedString) {
      w << " index ";
      w.number(a.strings.size());
      for (const std::string& s : a.strings) w << " ", w.quoted(s);
    } else {
      w << (a.type == VrParticleType::Float ? " float" : a.type == VrParticleType::Int ? " int" : " vector");
      for (int k = 0; k < a.count; ++k) w << " 0";
    }
    w << "\n";
  }
}

void writeValues(Writer& w, const VrParticleAttribute& a, size_t particle) {
  for (int k = 0; k < a.count; ++k) {
    if (k) w << " ";
    if (a.isInt())
      w.number(a.ints[particle * static_cast<size_t>(a.count) + static_cast<size_t>(k)]);
    else
      w.number(a.floats[particle * static_cast<size_t>(a.count) + static_cast<size_t>(k)]);
  }
}

bool storable(const VrParticleAttribute& a, std::string& error) {
  if (a.name.empty() || a.name.find_first_of(" \t\r\n\f\v\"()") != std::string::npos) {
    error = "attribute name '" + a.name + "' cannot be stored in an ASCII geometry file";
    return false;
  }
  return true;
}

}  // namespace

bool readGeo(const FileBytes& bytes, VrParticleSet& set, std::string& error) {
  Text in(reinterpret_cast<const char*>(bytes.data()), reinterpret_cast<const char*>(bytes.data()) + bytes.size());
  if (in.word() != "PGEOMETRY") {
    error = "not an ASCII Houdini geometry file (no PGEOMETRY header)";
    return false;
  }
  const std::string version = in.word();
  if (version != "V5") {
    error = "version '" + version.substr(0, 16) + "'; only V5 is read";
    return false;
  }
  int nPoints = -1, nPrims = 0, nPointGroups = 0, nPrimGroups = 0, nPointAttrib = -1, nVertexAttrib = 0,
      nPrimAttrib = 0, nAttrib = -1;
  struct Key {
    const char* name;
    int* value;
  } keys[] = {{"NPoints", &nPoints}, {"NPrims", &nPrims}, {"NPointGroups", &nPointGroups},
              {"NPrimGroups", &nPrimGroups}, {"NPointAttrib", &nPointAttrib}, {"NVertexAttrib", &nVertexAttrib},
              {"NPrimAttrib", &nPrimAttrib}, {"NAttrib", &nAttrib}};
  for (const Key& key : keys) {
    if (in.word() != key.name || !in.number(*key.value) || *key.value < 0) {
      error = std::string("bad header: expected ") + key.name + " and a count";
      return false;
    }
  }
  (void)nPrims, (void)nPointGroups, (void)nPrimGroups, (void)nVertexAttrib, (void)nPrimAttrib;
  std::vector<Definition> defs;
  if (nPointAttrib > 0 && in.word() != "PointAttrib") {
    error = "bad point attributes: expected PointAttrib";
    return false;
  }
  if (!readDefinitions(in, nPointAttrib, "point", defs, error)) return false;
  size_t words = 4;
  for (const Definition& d : defs) words += static_cast<size_t>(d.count);
  // Every value takes at least two characters.
  if (static_cast<size_t>(nPoints) > in.remaining() / (2 * words)) {
    error = std::to_string(nPoints) + " points announced, more than the file can hold";
    return false;
  }
  set = VrParticleSet();
  set.addAttribute("position", VrParticleType::Vector, 3);
  if (!addDefinitions(set, defs, false, error)) return false;
  set.resize(static_cast<size_t>(nPoints));
  VrParticleAttribute& position = set.attribute(0);
  for (size_t p = 0; p < static_cast<size_t>(nPoints); ++p) {
    float* xyz = position.floats.data() + 3 * p;
    float w;
    bool ok = in.number(xyz[0]) && in.number(xyz[1]) && in.number(xyz[2]) && in.number(w);
    if (ok && set.numAttributes() > 1) {
      ok = in.character('(');
      for (size_t a = 1; ok && a < set.numAttributes(); ++a) ok = readValues(in, set.attribute(a), p);
      ok = ok && in.character(')');
    }
    if (!ok) {
      error = "bad or missing values of point " + std::to_string(p);
      return false;
    }
  }
  if (nAttrib == 0) return true;
  std::vector<Definition> details;
  if (!in.findWord("DetailAttrib")) {
    error = "NAttrib is " + std::to_string(nAttrib) + " but there is no DetailAttrib section";
    return false;
  }
  if (!readDefinitions(in, nAttrib, "detail", details, error) || !addDefinitions(set, details, true, error)) return false;
  bool ok = in.character('(');
  for (size_t a = 0; ok && a < set.numFixedAttributes(); ++a) ok = readValues(in, set.fixedAttribute(a), 0);
  if (!ok || !in.character(')')) {
    error = "bad or missing detail attribute values";
    return false;
  }
  return true;
}

bool checkGeo(const VrParticleSet& set, std::string& error) {
  if (positionAttribute(set, error) < 0) return false;
  for (size_t a = 0; a < set.numAttributes(); ++a)
    if (!storable(set.attribute(a), error)) return false;
  for (size_t a = 0; a < set.numFixedAttributes(); ++a)
    if (!storable(set.fixedAttribute(a), error)) return false;
  return true;
}

void putGeoHeader(const VrParticleSet& set, size_t particles, std::string& bytes) {
  Writer w(bytes);
  std::string unused;
  const int position = positionAttribute(set, unused);
  w << "PGEOMETRY V5\nNPoints ";
  // The count keeps its width whatever its value, so that a file written as its points come can
  // have it filled in at the end; readers take any white space between words.
  const size_t before = bytes.size();
  w.number(particles);
  bytes.append(MostGeoCountDigits - std::min(MostGeoCountDigits, bytes.size() - before), ' ');
  w << " NPrims 1\nNPointGroups 0 NPrimGroups 0\nNPointAttrib ";
  w.number(set.numAttributes() - 1) << " NVertexAttrib 0 NPrimAttrib 1 NAttrib ";
  w.number(set.numFixedAttributes()) << "\n";
  if (set.numAttributes() > 1) w << "PointAttrib\n";
  writeDefinitions(w, set, false, position);
}

void putGeoRecords(const VrParticleSet& set, size_t first, size_t last, std::string& bytes) {
  Writer w(bytes);
  std::string unused;
  const int position = positionAttribute(set, unused);
  const VrParticleAttribute& p = set.attribute(static_cast<size_t>(position));
  for (size_t i = first; i < last; ++i) {
    writeValues(w, p, i);
    w << " 1";
    const char* open = " (";
    for (size_t a = 0; a < set.numAttributes(); ++a) {
      if (static_cast<int>(a) == position) continue;
      w << open;
      open = "\t";
      writeValues(w, set.attribute(a), i);
    }
    w << (set.numAttributes() > 1 ? ")\n" : "\n");
  }
}

void putGeoPrimitive(size_t particles, std::string& bytes) {
  Writer w(bytes);
  w << "PrimitiveAttrib\ngenerator 1 index 1 papi\nPart ";
  w.number(particles);
}

void putGeoPointNumbers(size_t first, size_t last, std::string& bytes) {
  Writer w(bytes);
  for (size_t i = first; i < last; ++i) w << " ", w.number(i);
}

void putGeoTail(const VrParticleSet& set, std::string& bytes) {
  Writer w(bytes);
  w << " [0]\n";
  if (set.numFixedAttributes()) {
    w << "DetailAttrib\n";
    writeDefinitions(w, set, true, -1);
    const char* open = " (";
    for (size_t a = 0; a < set.numFixedAttributes(); ++a) {
      w << open;
      open = "\t";
      writeValues(w, set.fixedAttribute(a), 0);
    }
    w << ")\n";
  }
  w << "beginExtra\nendExtra\n";
}

}  // namespace vrparticles
