// The "partio-ref-v1" dump of particle files.

#include "io/particles/VrParticleDump.h"

#include "base/vrutilString.h"

#include "io/particles/VrParticleBytes.h"

#include <cstdio>
#include <set>

namespace {

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

// The dump's escaping of names and strings; `quote` also escapes the double quote.
std::string escape(const std::string& text, bool quote) { return vrutil::escapeForDump(text, quote); }

std::string quoted(const std::string& text) { return "\"" + escape(text, true) + "\""; }

// The values of one particle (or of a fixed attribute), joined by `separator`.
std::string values(const VrParticleAttribute& a, size_t particle, const char* separator) {
  std::string line;
  for (int k = 0; k < a.count; ++k) {
    if (k) line += separator;
    const size_t i = particle * static_cast<size_t>(a.count) + static_cast<size_t>(k);
    if (!a.isInt()) {
      line += number(a.floats[i]);
      continue;
    }
    const int32_t v = a.ints[i];
    line += std::to_string(v);
    if (a.type == VrParticleType::IndexedString)
      line += v >= 0 && static_cast<size_t>(v) < a.strings.size() ? "=" + quoted(a.strings[static_cast<size_t>(v)]) : "=-";
  }
  return line;
}

std::string table(const VrParticleAttribute& a) {
  std::string line = "count=" + std::to_string(a.strings.size()) + " values=";
  for (size_t i = 0; i < a.strings.size(); ++i) line += (i ? "," : "") + quoted(a.strings[i]);
  return line;
}

}  // namespace

void VrParticleDump::writeSet(const VrParticleSet& set, std::ostream& out) {
  const size_t n = set.numParticles();
  out << "num_particles: " << n << "\nnum_attributes: " << set.numAttributes() << "\n";
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& attr = set.attribute(a);
    out << "attr[" << a << "]: name=" << escape(attr.name, false) << " type=" << VrParticleTypeName(attr.type)
        << " count=" << attr.count << "\n";
  }
  out << "num_fixed_attributes: " << set.numFixedAttributes() << "\n";
  for (size_t a = 0; a < set.numFixedAttributes(); ++a) {
    const VrParticleAttribute& attr = set.fixedAttribute(a);
    VrParticleAttribute plain = attr;
    if (plain.type == VrParticleType::IndexedString) plain.type = VrParticleType::Int;
    out << "fixed_attr[" << a << "]: name=" << escape(attr.name, false) << " type=" << VrParticleTypeName(attr.type)
        << " count=" << attr.count << " values=" << values(plain, 0, ",") << "\n";
  }
  for (size_t a = 0; a < set.numFixedAttributes(); ++a)
    if (set.fixedAttribute(a).type == VrParticleType::IndexedString)
      out << "fixed_indexed_strings[" << escape(set.fixedAttribute(a).name, false) << "]: " << table(set.fixedAttribute(a)) << "\n";
  for (size_t a = 0; a < set.numAttributes(); ++a)
    if (set.attribute(a).type == VrParticleType::IndexedString)
      out << "indexed_strings[" << escape(set.attribute(a).name, false) << "]: " << table(set.attribute(a)) << "\n";
  for (size_t a = 0; a < set.numAttributes(); ++a) {
    const VrParticleAttribute& attr = set.attribute(a);
    const size_t count = static_cast<size_t>(attr.count);
    std::vector<double> sums(count, 0.0);
    for (size_t i = 0; i < n; ++i)
      for (size_t k = 0; k < count; ++k) sums[k] += attr.isInt() ? double(attr.ints[i * count + k]) : double(attr.floats[i * count + k]);
    out << "sum[" << escape(attr.name, false) << "]:";
    for (double s : sums) out << " " << number(s);
    out << "\n";
  }
  std::set<size_t> shown;
  for (size_t i : {size_t(0), size_t(1), size_t(2), n - 1})
    if (i < n) shown.insert(i);
  for (size_t i : shown) {
    out << "\nparticle: " << i << "\n";
    for (size_t a = 0; a < set.numAttributes(); ++a)
      out << "particle[" << i << "]." << escape(set.attribute(a).name, false) << ": " << values(set.attribute(a), i, " ")
          << "\n";
  }
  out << "\nend: ok\n";
}

bool VrParticleDump::write(const std::string& path, std::ostream& out, VrParticleFormat format, std::string* error) {
  if (format == VrParticleFormat::Unknown) format = VrParticleFormatOf(path);
  out << "format: partio-ref-v1\nfile: " << escape(vrparticles::fileName(path), false) << "\nreader: "
      << (format == VrParticleFormat::Pdb32 ? "pdb32 (forced)" : "auto (by file extension)") << "\n";
  VrParticleSet set;
  std::string why;
  if (!VrReadParticles(path, set, &why, format)) {
    out << "read: error\nread_messages: " << escape(why, false) << "\n";
    if (error) *error = why;
    return false;
  }
  out << "read: ok\nread_messages: -\n";
  writeSet(set, out);
  return true;
}
