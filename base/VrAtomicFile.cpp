#include "base/VrAtomicFile.h"

#include <cstdio>
#include <unistd.h>

VrAtomicFile::VrAtomicFile(const std::string& path)
    : target(path), temporary(path + ".tmp" + std::to_string(getpid())) {
  stream.open(temporary, std::ios::binary | std::ios::trunc);
}

VrAtomicFile::~VrAtomicFile() {
  if (committed) return;
  if (stream.is_open()) stream.close();
  std::remove(temporary.c_str());
}

bool VrAtomicFile::commit() {
  if (!stream.is_open()) return false;
  stream.flush();
  const bool written = stream.good();
  stream.close();
  if (!written || stream.fail()) return false;
  if (std::rename(temporary.c_str(), target.c_str()) != 0) return false;
  committed = true;
  return true;
}
