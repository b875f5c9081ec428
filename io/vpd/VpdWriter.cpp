#include "io/vpd/VpdWriter.h"

#include <unordered_set>

#include "io/vpd/VpdFileImpl.h"

using Vpd::detail::Extent;

struct VpdWriter::State {
  std::unique_ptr<Vpd::detail::FileSink> sink;
  std::unordered_set<int> allowedFaces;
  Vpd::detail::IndexMap index;
  std::vector<Extent>* face = nullptr;  // the current face's extents, inside `index`
  int faceId = -1;
  int block = -1;
  bool closed = false;
};

VpdWriter::VpdWriter() : state(new State) {}

VpdWriter::~VpdWriter() = default;

std::unique_ptr<VpdWriter> VpdWriter::open(const std::string& path, const std::vector<int>& faceIds,
                                           Vpd::PrimType primType, unsigned char cvCount,
                                           Vpd::CoordSpace coordSpace,
                                           const std::vector<std::string>& blockNames, float time,
                                           unsigned attrVersion,
                                           const std::vector<std::string>& keyNames,
                                           std::string* error) {
  Vpd::Header header;
  header.faceIds = faceIds;
  header.primType = primType;
  header.cvCount = cvCount;
  header.coordSpace = coordSpace;
  header.blockNames = blockNames;
  header.time = time;
  header.attrVersion = attrVersion;
  header.keyNames = keyNames;
  return open(path, header, error);
}

std::unique_ptr<VpdWriter> VpdWriter::open(const std::string& path, const Vpd::Header& header,
                                           std::string* error) {
  std::string why;
  std::unique_ptr<Vpd::detail::FileSink> sink = Vpd::detail::FileSink::create(path, header, why);
  if (!sink) {
    if (error) *error = why;
    return nullptr;
  }
  std::unique_ptr<VpdWriter> writer(new VpdWriter);
  writer->target = path;
  writer->head = header;
  for (std::size_t i = 0; i < header.keyNames.size(); ++i)
    writer->keys.emplace(header.keyNames[i], static_cast<int>(i));
  writer->state->sink = std::move(sink);
  writer->state->allowedFaces.insert(header.faceIds.begin(), header.faceIds.end());
  return writer;
}

bool VpdWriter::isOpen() const { return !state->closed && !state->sink->failed(); }

bool VpdWriter::refuse(const std::string& why) {
  err = why;
  return false;
}

// False, with the reason, when the writer can take no more.
static bool usable(bool closed, const Vpd::detail::FileSink& sink, const std::string& path,
                   std::string& err) {
  if (sink.failed()) {
    err = sink.error();
    return false;
  }
  if (closed) {
    err = "Closed Vorn point/primitive file: " + path;
    return false;
  }
  return true;
}

void VpdWriter::endBlock() {
  State& s = *state;
  if (s.face && s.block >= 0) {
    Extent& x = (*s.face)[static_cast<std::size_t>(s.block)];
    x.size = s.sink->position() - x.offset;
  }
  s.block = -1;
}

bool VpdWriter::startFace(int face) {
  State& s = *state;
  endBlock();
  s.face = nullptr;
  s.faceId = -1;
  if (!usable(s.closed, *s.sink, target, err)) return false;
  if (!s.allowedFaces.count(face))
    return refuse("Face " + std::to_string(face) +
                  " is not a face of Vorn point/primitive file: " + target);
  const auto inserted = s.index.emplace(face, std::vector<Extent>(head.blockNames.size()));
  if (!inserted.second)
    return refuse("Face " + std::to_string(face) +
                  " written twice in Vorn point/primitive file: " + target);
  s.face = &inserted.first->second;
  s.faceId = face;
  return true;
}

bool VpdWriter::startBlock(int block) {
  State& s = *state;
  endBlock();
  if (!usable(s.closed, *s.sink, target, err)) return false;
  if (!s.face) return refuse("No face started in Vorn point/primitive file: " + target);
  if (block < 0 || static_cast<std::size_t>(block) >= head.blockNames.size())
    return refuse("No block " + std::to_string(block) + " in Vorn point/primitive file: " + target);
  Extent& x = (*s.face)[static_cast<std::size_t>(block)];
  if (x.offset != 0)
    return refuse("Block " + head.blockNames[static_cast<std::size_t>(block)] +
                  " written twice on face " + std::to_string(s.faceId) +
                  " in Vorn point/primitive file: " + target);
  x.offset = s.sink->position();
  s.block = block;
  return true;
}

bool VpdWriter::startBlock(const std::string& name) {
  for (std::size_t i = 0; i < head.blockNames.size(); ++i)
    if (head.blockNames[i] == name) return startBlock(static_cast<int>(i));
  endBlock();
  return refuse("No block " + name + " in Vorn point/primitive file: " + target);
}

bool VpdWriter::writePrim(std::uint32_t id, const float* values, std::size_t count) {
  State& s = *state;
  if (!usable(s.closed, *s.sink, target, err)) return false;
  if (s.block < 0) return refuse("No block started in Vorn point/primitive file: " + target);
  if (count > Vpd::MaxRecordValues)
    return refuse("Record of " + std::to_string(count) +
                  " values is too long for Vorn point/primitive file: " + target);
  if (!s.sink->appendRecord(id, values, static_cast<std::uint32_t>(count)))
    return refuse(s.sink->error());
  ++(*s.face)[static_cast<std::size_t>(s.block)].count;
  return true;
}

int VpdWriter::keyId(const std::string& name) const {
  const auto found = keys.find(name);
  return found == keys.end() ? -1 : found->second;
}

bool VpdWriter::close() {
  State& s = *state;
  endBlock();
  s.face = nullptr;
  if (!usable(s.closed, *s.sink, target, err)) {
    s.closed = true;
    s.sink->discard();
    return false;
  }
  s.closed = true;
  if (!s.sink->commit(s.index)) return refuse(s.sink->error());
  return true;
}

void VpdWriter::discard() {
  State& s = *state;
  s.face = nullptr;
  s.block = -1;
  s.closed = true;
  s.sink->discard();
}
