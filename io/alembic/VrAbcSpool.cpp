#include "io/alembic/VrAbcSpool.h"

#include "base/vrutilScratchFile.h"


VrAbcSpool::~VrAbcSpool() {
  if (file) std::fclose(file);
}

bool VrAbcSpool::open(const std::string& directory, std::string& error) {
  if (file) std::fclose(file);
  file = nullptr;
  hash = VrAbcMurmur3::Stream();
  broken = false;
  file = vrutil::openScratchFile(directory, error);
  return file != nullptr;
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
