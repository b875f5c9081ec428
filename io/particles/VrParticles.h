#pragma once
// VrParticles: one set of particles as particle-cache tools exchange them, and the readers and
// writers of the three file formats those tools open: Houdini's binary `.bgeo` (plain or
// gzip-compressed, told by the first bytes), Houdini's ASCII `.geo`, and the 32-bit `.pdb`
// layout. Each particle has a value for every attribute: vectors (three floats), floats and ints
// of a fixed count, and indexed strings (an int per particle into the attribute's own table of
// strings). Fixed attributes hold one value for the whole set.
//
// Readers check every count and size against the bytes that are there, so a damaged file gives
// false and a message, never a crash or an unbounded allocation. Writers go to a temporary name
// beside the target and rename it into place, so a failed write leaves no file behind.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class VrParticleType { Vector, Float, Int, IndexedString };

/// "VECTOR", "FLOAT", "INT", "INDEXEDSTR".
const char* VrParticleTypeName(VrParticleType type);

struct VrParticleAttribute {
  std::string name;
  VrParticleType type = VrParticleType::Float;
  int count = 1;                     ///< values per particle (3 for a vector)
  std::vector<float> floats;         ///< count * particles, for Vector and Float
  std::vector<int32_t> ints;         ///< count * particles, for Int and IndexedString
  std::vector<std::string> strings;  ///< the table of an IndexedString attribute

  bool isInt() const { return type == VrParticleType::Int || type == VrParticleType::IndexedString; }
};

class VrParticleSet {
 public:
  size_t numParticles() const { return particles; }
  /// Grows or shrinks every attribute; new values are zero.
  void resize(size_t count);
  /// Appends one particle (values zero) and answers its index.
  size_t addParticle();

  /// Adds an attribute and answers its index, or the index of the attribute of that name when it
  /// exists with the same type and count; -1 when it exists otherwise or `count` is below 1.
  int addAttribute(const std::string& name, VrParticleType type, int count);
  int findAttribute(const std::string& name) const;
  size_t numAttributes() const { return attrs.size(); }
  const VrParticleAttribute& attribute(size_t index) const { return attrs[index]; }
  VrParticleAttribute& attribute(size_t index) { return attrs[index]; }

  /// The values of particle `particle` in attribute `index` (count of them).
  float* floats(int index, size_t particle) { return attrs[index].floats.data() + particle * attrs[index].count; }
  int32_t* ints(int index, size_t particle) { return attrs[index].ints.data() + particle * attrs[index].count; }
  /// The index of `text` in an indexed-string attribute's table, added when new; -1 when the
  /// attribute is of another type.
  int32_t indexedString(int index, const std::string& text);

  /// Fixed attributes: one value list for the whole set (one "particle" each).
  int addFixedAttribute(const std::string& name, VrParticleType type, int count);
  int findFixedAttribute(const std::string& name) const;
  size_t numFixedAttributes() const { return fixed.size(); }
  const VrParticleAttribute& fixedAttribute(size_t index) const { return fixed[index]; }
  VrParticleAttribute& fixedAttribute(size_t index) { return fixed[index]; }

 private:
  size_t particles = 0;
  std::vector<VrParticleAttribute> attrs;
  std::vector<VrParticleAttribute> fixed;
};

enum class VrParticleFormat { Unknown, Bgeo, BgeoGz, Geo, Pdb32 };

/// The format a path's extension names: ".bgeo", ".bgeo.gz" (also ".bgeogz"), ".geo", ".pdb";
/// Unknown otherwise.
VrParticleFormat VrParticleFormatOf(const std::string& path);

/// Reads a particle file. `format` Unknown picks by the extension and, for `.bgeo`, by the first
/// bytes (gzip or not). False, with the reason in `error`, when the file cannot be read whole.
bool VrReadParticles(const std::string& path, VrParticleSet& set, std::string* error = nullptr,
                     VrParticleFormat format = VrParticleFormat::Unknown);

/// Writes the set atomically; `format` Unknown picks by the extension. False, with the reason in
/// `error`, when it cannot be written; then nothing is left at `path`.
bool VrWriteParticles(const std::string& path, const VrParticleSet& set, std::string* error = nullptr,
                      VrParticleFormat format = VrParticleFormat::Unknown);
