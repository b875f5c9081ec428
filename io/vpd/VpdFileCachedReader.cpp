// The shared reader holds only the immutable opened file; all moving state lives in the
// contexts. Reads are positional (pread), so threads never contend for a file offset.

#include "io/vpd/VpdFileCachedReader.h"

#include "io/vpd/VpdFileImpl.h"

VpdFileCachedReaderContext::VpdFileCachedReaderContext() : cursor(new Vpd::detail::Cursor) {}
VpdFileCachedReaderContext::~VpdFileCachedReaderContext() = default;
VpdFileCachedReaderContext::VpdFileCachedReaderContext(VpdFileCachedReaderContext&&) noexcept =
    default;
VpdFileCachedReaderContext& VpdFileCachedReaderContext::operator=(
    VpdFileCachedReaderContext&&) noexcept = default;

namespace {
const std::string noError;
}

int VpdFileCachedReaderContext::face() const { return cursor ? cursor->face() : -1; }
int VpdFileCachedReaderContext::block() const { return cursor ? cursor->block() : -1; }
const std::string& VpdFileCachedReaderContext::error() const {
  return cursor ? cursor->error() : noError;
}
void VpdFileCachedReaderContext::reset() {
  if (cursor) cursor->reset();
}

std::unique_ptr<VpdFileCachedReader> VpdFileCachedReader::open(const std::string& path,
                                                               std::string* error) {
  std::string why;
  std::unique_ptr<Vpd::detail::OpenFile> opened = Vpd::detail::OpenFile::open(path, why);
  if (!opened) {
    if (error) *error = why;
    return nullptr;
  }
  return std::unique_ptr<VpdFileCachedReader>(new VpdFileCachedReader(std::move(opened)));
}

VpdFileCachedReader::VpdFileCachedReader(std::unique_ptr<Vpd::detail::OpenFile> opened)
    : VpdFileInfo(std::move(opened)) {}

VpdFileCachedReader::~VpdFileCachedReader() = default;

bool VpdFileCachedReader::close() { return file->close(); }

// A moved-from context gets a fresh cursor back before use.
static Vpd::detail::Cursor& cursorOf(std::unique_ptr<Vpd::detail::Cursor>& cursor) {
  if (!cursor) cursor.reset(new Vpd::detail::Cursor);
  return *cursor;
}

bool VpdFileCachedReader::findFace(VpdFileCachedReaderContext& context, int face) const {
  return cursorOf(context.cursor).findFace(*file, face);
}

bool VpdFileCachedReader::findBlock(VpdFileCachedReaderContext& context, int block) const {
  return cursorOf(context.cursor).findBlock(*file, block);
}

std::uint64_t VpdFileCachedReader::numPrims(const VpdFileCachedReaderContext& context) const {
  return context.cursor ? context.cursor->numPrims() : 0;
}

bool VpdFileCachedReader::readPrim(VpdFileCachedReaderContext& context, std::uint32_t& id,
                                   std::vector<float>& values) const {
  return cursorOf(context.cursor).readPrim(*file, id, values);
}

bool VpdFileCachedReader::findPrim(VpdFileCachedReaderContext& context, std::uint32_t id,
                                   std::vector<float>& values) const {
  return cursorOf(context.cursor).findPrim(*file, id, values);
}
