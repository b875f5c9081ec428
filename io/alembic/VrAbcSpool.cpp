#include "io/alembic/VrAbcSpool.h"

#include "base/vrutilScratchFile.h"

#include <vector>

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

bool VrAbcSpool::readBack(const std::function<bool(const void*, uint64_t)>& sink) const {
  if (!file || broken) return false;
  if (std::fflush(file) != 0 || std::fseek(file, 0, SEEK_SET) != 0) return false;
  std::vector<char> piece(1 << 20);
  uint64_t left = size();
  bool ok = true;
  while (ok && left > 0) {
    const size_t want = left < piece.size() ? static_cast<size_t>(left) : piece.size();
    if (std::fread(piece.data(), 1, want, file) != want) {
      ok = false;
      break;
    }
    ok = sink(piece.data(), want);
    left -= want;
  }
  // Further appends go to the end again.
  if (std::fseek(file, 0, SEEK_END) != 0) return false;
  return ok;
}
