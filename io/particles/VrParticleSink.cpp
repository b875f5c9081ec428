// Buffered, atomic output of the particle writers that fill a sink.

#include "io/particles/VrParticleSink.h"

namespace vrparticles {

namespace {
constexpr size_t BufferSize = 4u << 20;
}  // namespace

VrParticleSink::VrParticleSink(const std::string& path) : file(path), buffer(BufferSize) {
  opened = good = file.ok();
}

void VrParticleSink::drain() {
  if (good && used)
    good = file.write(buffer.data(), used);
  used = 0;
  file.writeBehind();
}

void VrParticleSink::makeRoom(size_t n) {
  drain();
  if (buffer.size() < n) buffer.resize(n);
}

bool VrParticleSink::finish(std::string& error) {
  if (!opened) {
    error = "cannot create the file";
    return false;
  }
  if (good) drain();
  if (!good || !file.commit()) {
    error = "cannot write the file";
    return false;
  }
  return true;
}

}  // namespace vrparticles
