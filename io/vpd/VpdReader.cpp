#include "io/vpd/VpdReader.h"

#include "io/vpd/VpdFileImpl.h"

VpdFileInfo::VpdFileInfo(std::unique_ptr<Vpd::detail::OpenFile> opened) : file(std::move(opened)) {}

VpdFileInfo::~VpdFileInfo() = default;

const std::string& VpdFileInfo::path() const { return file->path(); }
const Vpd::Header& VpdFileInfo::header() const { return file->header(); }
unsigned VpdFileInfo::formatMinor() const { return file->minorVersion(); }
int VpdFileInfo::blockIndex(const std::string& name) const { return file->blockIndex(name); }
const std::unordered_map<std::string, int>& VpdFileInfo::keyToId() const { return file->keyToId(); }
const std::vector<int>& VpdFileInfo::facesInFile() const { return file->indexedFaces(); }
bool VpdFileInfo::isOpen() const { return file->isOpen(); }

std::uint64_t VpdFileInfo::numPrims(int face, int block) const {
  const int slot = file->faceSlot(face);
  if (slot < 0 || block < 0 || static_cast<std::size_t>(block) >= blockNames().size()) return 0;
  return file->extent(slot, block).count;
}

std::unique_ptr<VpdReader> VpdReader::open(const std::string& path, std::string* error) {
  std::string why;
  std::unique_ptr<Vpd::detail::OpenFile> opened = Vpd::detail::OpenFile::open(path, why);
  if (!opened) {
    if (error) *error = why;
    return nullptr;
  }
  return std::unique_ptr<VpdReader>(new VpdReader(std::move(opened)));
}

VpdReader::VpdReader(std::unique_ptr<Vpd::detail::OpenFile> opened)
    : VpdFileInfo(std::move(opened)), cursor(new Vpd::detail::Cursor) {}

VpdReader::~VpdReader() = default;

bool VpdReader::close() {
  cursor->reset();
  return file->close();
}

bool VpdReader::findFace(int face) { return cursor->findFace(*file, face); }
bool VpdReader::findBlock(int block) { return cursor->findBlock(*file, block); }
std::uint64_t VpdReader::numPrims() const { return cursor->numPrims(); }

bool VpdReader::readPrim(std::uint32_t& id, std::vector<float>& values) {
  return cursor->readPrim(*file, id, values);
}

bool VpdReader::findPrim(std::uint32_t id, std::vector<float>& values) {
  return cursor->findPrim(*file, id, values);
}

const std::string& VpdReader::error() const { return cursor->error(); }
