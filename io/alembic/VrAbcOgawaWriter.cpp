#include "io/alembic/VrAbcOgawaWriter.h"

#include <cstring>

bool VrAbcOgawaWriter::open(const std::string& path, std::string& error) {
  file.reset(new VrAtomicFile(path));
  failed = false;
  position = 0;
  pendingData = 0;
  if (!file->ok()) {
    file.reset();
    error = "cannot create the file";
    return false;
  }
  // "Ogawa", not yet frozen, version 1, root group unknown.
  const uint8_t header[16] = {'O', 'g', 'a', 'w', 'a', 0x00, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0};
  if (!put(header, sizeof header)) {
    file.reset();
    error = "cannot write the file";
    return false;
  }
  return true;
}

bool VrAbcOgawaWriter::put(const void* data, uint64_t size) {
  if (!file || failed) return false;
  if (!file->write(data, size)) {
    failed = true;
    return false;
  }
  position += size;
  file->writeBehind();
  return true;
}

bool VrAbcOgawaWriter::beginData(uint64_t total, uint64_t& pointer) {
  if (pendingData || openData) failed = true;
  if (total == 0) {
    pointer = emptyData;
    return !failed && file;
  }
  const uint64_t at = position;
  if (!put(&total, 8)) return false;
  pendingData = total;
  pointer = at | emptyData;
  return true;
}

bool VrAbcOgawaWriter::appendData(const void* data, uint64_t size) {
  if (openData) return put(data, size);
  if (size > pendingData) {
    failed = true;
    return false;
  }
  if (!put(data, size)) return false;
  pendingData -= size;
  return true;
}

bool VrAbcOgawaWriter::beginOpenData(uint64_t& pointer) {
  if (pendingData || openData) failed = true;
  const uint64_t at = position;
  const uint64_t unknown = 0;
  if (!put(&unknown, 8)) return false;
  openData = true;
  openStart = at;
  pointer = at | emptyData;
  return true;
}

bool VrAbcOgawaWriter::endOpenData(const void* head, uint64_t headSize) {
  if (!file || failed || !openData || position < openStart + 8 + headSize) {
    failed = true;
    return false;
  }
  openData = false;
  const uint64_t total = position - openStart - 8;
  std::ostream& out = file->out();
  out.seekp(static_cast<std::streamoff>(openStart));
  out.write(reinterpret_cast<const char*>(&total), 8);
  out.write(static_cast<const char*>(head), static_cast<std::streamsize>(headSize));
  out.seekp(static_cast<std::streamoff>(position));
  if (!out) failed = true;
  return !failed;
}

bool VrAbcOgawaWriter::appendDataFrom(int fd, uint64_t offset, uint64_t size) {
  if (!file || failed || openData || size > pendingData) {
    failed = true;
    return false;
  }
  if (!file->appendFrom(fd, offset, size)) {
    failed = true;
    return false;
  }
  position += size;
  pendingData -= size;
  file->writeBehind();
  return true;
}

bool VrAbcOgawaWriter::writeData(const void* const* parts, const uint64_t* sizes, size_t count,
                                 uint64_t& pointer) {
  if (pendingData || openData) failed = true;
  uint64_t total = 0;
  for (size_t i = 0; i < count; ++i) total += sizes[i];
  if (total == 0) {
    pointer = emptyData;
    return !failed && file;
  }
  const uint64_t at = position;
  if (!put(&total, 8)) return false;
  for (size_t i = 0; i < count; ++i)
    if (!put(parts[i], sizes[i])) return false;
  pointer = at | emptyData;
  return true;
}

bool VrAbcOgawaWriter::writeData(const void* data, uint64_t size, uint64_t& pointer) {
  return writeData(&data, &size, 1, pointer);
}

bool VrAbcOgawaWriter::writeGroup(const std::vector<uint64_t>& children, uint64_t& out) {
  if (pendingData || openData) failed = true;
  if (children.empty()) {
    out = emptyGroup;
    return !failed && file;
  }
  const uint64_t at = position;
  const uint64_t count = children.size();
  if (!put(&count, 8) || !put(children.data(), count * 8)) return false;
  out = at;
  return true;
}

bool VrAbcOgawaWriter::close(uint64_t rootGroup, std::string& error) {
  if (!file || failed || pendingData || openData) {
    error = "the file could not be written";
    file.reset();
    return false;
  }
  std::ostream& out = file->out();
  const uint8_t frozen = 0xff;
  out.seekp(8);
  out.write(reinterpret_cast<const char*>(&rootGroup), 8);
  out.seekp(5);
  out.write(reinterpret_cast<const char*>(&frozen), 1);
  const bool written = static_cast<bool>(out) && file->commit();
  file.reset();
  if (!written) error = "the file could not be written";
  return written;
}
