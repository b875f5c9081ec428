#include "io/alembic/VrAbcSpool.h"

#include "base/vrutilScratchFile.h"

// Spools take a run's values a few kilobytes at a time; a buffer this size keeps that from
// costing a system call each.
constexpr size_t SpoolBufferBytes = 256u << 10;

VrAbcSpool::~VrAbcSpool() {
  if (file) std::fclose(file);
}

bool VrAbcSpool::open(const std::string& directory, std::string& error) {
  if (file) std::fclose(file);
  file = nullptr;
  hash = VrAbcMurmur3::Stream();
  broken = false;
  file = vrutil::openScratchFile(directory, error);
  if (!file) return false;
  if (!buffer) buffer.reset(new char[SpoolBufferBytes]);
  std::setvbuf(file, buffer.get(), _IOFBF, SpoolBufferBytes);
  return true;
}

bool VrAbcSpool::append(const void* data, uint64_t bytes) {
  if (!file || broken) return false;
  if (bytes == 0) return true;
  if (std::fwrite(data, 1, static_cast<size_t>(bytes), file) != bytes) {
    broken = true;
    return false;
  }
  hash.update(data, static_cast<size_t>(bytes));
  return true;
}

int VrAbcSpool::descriptor() const {
  if (!file || broken || std::fflush(file) != 0) return -1;
  return fileno(file);
}
