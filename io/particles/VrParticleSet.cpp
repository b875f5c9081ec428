// The particle set: attribute-major storage, one value vector per attribute.

#include "io/particles/VrParticles.h"

const char* VrParticleTypeName(VrParticleType type) {
  switch (type) {
    case VrParticleType::Vector: return "VECTOR";
    case VrParticleType::Float: return "FLOAT";
    case VrParticleType::Int: return "INT";
    case VrParticleType::IndexedString: return "INDEXEDSTR";
  }
  return "NONE";
}

namespace {

void sizeValues(VrParticleAttribute& attr, size_t particles) {
  const size_t n = particles * static_cast<size_t>(attr.count);
  if (attr.isInt())
    attr.ints.resize(n, 0);
  else
    attr.floats.resize(n, 0.0f);
}

int findIn(const std::vector<VrParticleAttribute>& list, const std::string& name) {
  for (size_t i = 0; i < list.size(); ++i)
    if (list[i].name == name) return static_cast<int>(i);
  return -1;
}

// Adds to `list` (values for `particles`) or answers the existing attribute of that name.
int addTo(std::vector<VrParticleAttribute>& list, size_t particles, const std::string& name,
          VrParticleType type, int count) {
  if (count < 1) return -1;
  const int existing = findIn(list, name);
  if (existing >= 0) {
    const VrParticleAttribute& a = list[static_cast<size_t>(existing)];
    return a.type == type && a.count == count ? existing : -1;
  }
  VrParticleAttribute attr;
  attr.name = name;
  attr.type = type;
  attr.count = count;
  sizeValues(attr, particles);
  list.push_back(std::move(attr));
  return static_cast<int>(list.size() - 1);
}

}  // namespace

void VrParticleSet::resize(size_t count) {
  for (VrParticleAttribute& attr : attrs) sizeValues(attr, count);
  particles = count;
}

size_t VrParticleSet::addParticle() {
  resize(particles + 1);
  return particles - 1;
}

int VrParticleSet::addAttribute(const std::string& name, VrParticleType type, int count) {
  return addTo(attrs, particles, name, type, count);
}

int VrParticleSet::findAttribute(const std::string& name) const { return findIn(attrs, name); }

int32_t VrParticleSet::indexedString(int index, const std::string& text) {
  VrParticleAttribute& attr = attrs[static_cast<size_t>(index)];
  if (attr.type != VrParticleType::IndexedString) return -1;
  for (size_t i = 0; i < attr.strings.size(); ++i)
    if (attr.strings[i] == text) return static_cast<int32_t>(i);
  attr.strings.push_back(text);
  return static_cast<int32_t>(attr.strings.size() - 1);
}

int VrParticleSet::addFixedAttribute(const std::string& name, VrParticleType type, int count) {
  return addTo(fixed, 1, name, type, count);
}

int VrParticleSet::findFixedAttribute(const std::string& name) const { return findIn(fixed, name); }
