// Stand-ins for the particle set and writer of io/particles/VrParticles.h until their
// implementation is part of the library. Every definition here is weak: once
// io/particles/VrParticles.cpp is built in, its definitions take the place of these, and this file
// should be deleted. Until then the set keeps its particles in memory and writing a file answers
// false.

#include "io/particles/VrParticles.h"

#define VR_PENDING __attribute__((weak))

VR_PENDING void VrParticleSet::resize(size_t count) {
  for (VrParticleAttribute& a : attrs) {
    const size_t values = count * static_cast<size_t>(a.count);
    if (a.isInt())
      a.ints.resize(values, 0);
    else
      a.floats.resize(values, 0.0f);
  }
  particles = count;
}

VR_PENDING size_t VrParticleSet::addParticle() {
  resize(particles + 1);
  return particles - 1;
}

VR_PENDING int VrParticleSet::findAttribute(const std::string& name) const {
  for (size_t i = 0; i < attrs.size(); ++i)
    if (attrs[i].name == name) return static_cast<int>(i);
  return -1;
}

VR_PENDING int VrParticleSet::addAttribute(const std::string& name, VrParticleType type, int count) {
  const int found = findAttribute(name);
  if (found >= 0) return attrs[static_cast<size_t>(found)].type == type && attrs[static_cast<size_t>(found)].count == count ? found : -1;
  if (count < 1) return -1;
  VrParticleAttribute a;
  a.name = name;
  a.type = type;
  a.count = count;
  attrs.push_back(a);
  resize(particles);
  return static_cast<int>(attrs.size() - 1);
}

VR_PENDING bool VrWriteParticles(const std::string& path, const VrParticleSet&, std::string* error, VrParticleFormat) {
  if (error) *error = "particle files cannot be written by this build yet: " + path;
  return false;
}

VR_PENDING bool VrReadParticles(const std::string& path, VrParticleSet&, std::string* error, VrParticleFormat) {
  if (error) *error = "particle files cannot be read by this build yet: " + path;
  return false;
}
