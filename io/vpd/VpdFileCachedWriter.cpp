// Ownership and threads. The writer owns the temporary file (through its sink) and every cached
// face. A face is created under the writer's mutex by `startFace` and from then on belongs to the
// one context that started it: `startBlock` and `writePrim` touch only that face's buffers and
// take no lock. Contexts hold a plain pointer to their face plus the writer's serial number, so a
// context left over from an earlier writer is recognised and refused rather than followed.
// Faces go to the file early, in ascending order: a face is complete once the context that
// wrote it starts another, and whichever thread completes the lowest face not yet written writes
// every complete face from there on, outside the mutex (one writing thread at a time), while the
// others go on caching. Faces still cached at the end are written by `commitAndClose`.
// `commitAndClose` and `close` take the mutex, mark the writer closed and then free the faces;
// callers must have finished their parallel writes before either (the closed flag is atomic, so
// a late call is refused, but one already inside `writePrim` would race with the freeing).
// Output order depends only on face ids and block indices, never on which thread wrote what.

#include "io/vpd/VpdFileCachedWriter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_set>

#include "io/vpd/VpdFileImpl.h"

namespace Vpd {
namespace detail {

struct CachedFace {
  explicit CachedFace(std::size_t blockCount)
      : records(blockCount), counts(blockCount, 0), started(blockCount, false) {}
  std::vector<std::vector<unsigned char>> records;  // encoded records, per block
  std::vector<std::uint64_t> counts;
  std::vector<bool> started;
  bool complete = false;  // its context has moved on
  bool written = false;   // its records are in the file and released
};

}  // namespace detail
}  // namespace Vpd

namespace {
std::atomic<std::uint64_t> nextWriterSerial{1};
}

struct VpdFileCachedWriter::State {
  std::mutex mutex;
  std::unique_ptr<Vpd::detail::FileSink> sink;
  std::unordered_set<int> allowedFaces;
  std::vector<int> order;  // the allowed faces, ascending: the order of the file
  std::size_t nextToWrite = 0;
  bool writing = false;
  bool writeFailed = false;
  Vpd::detail::IndexMap index;
  std::map<int, std::unique_ptr<Vpd::detail::CachedFace>> faces;
  std::atomic<bool> closed{false};
  std::uint64_t serial = 0;
};

VpdFileCachedWriter::VpdFileCachedWriter() : state(new State) {}

VpdFileCachedWriter::~VpdFileCachedWriter() {
  if (!state->closed) close();
}

std::unique_ptr<VpdFileCachedWriter> VpdFileCachedWriter::openWrite(
    const std::string& path, const std::vector<int>& faceIds, Vpd::PrimType primType,
    unsigned char cvCount, Vpd::CoordSpace coordSpace, const std::vector<std::string>& blockNames,
    float time, unsigned attrVersion, const std::vector<std::string>& keyNames,
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
  return openWrite(path, header, error);
}

std::unique_ptr<VpdFileCachedWriter> VpdFileCachedWriter::openWrite(const std::string& path,
                                                                    const Vpd::Header& header,
                                                                    std::string* error) {
  std::string why;
  std::unique_ptr<Vpd::detail::FileSink> sink = Vpd::detail::FileSink::create(path, header, why);
  if (!sink) {
    if (error) *error = why;
    return nullptr;
  }
  std::unique_ptr<VpdFileCachedWriter> writer(new VpdFileCachedWriter);
  writer->target = path;
  writer->head = header;
  for (std::size_t i = 0; i < header.keyNames.size(); ++i)
    writer->keys.emplace(header.keyNames[i], static_cast<int>(i));
  State& s = *writer->state;
  s.sink = std::move(sink);
  s.allowedFaces.insert(header.faceIds.begin(), header.faceIds.end());
  s.order.assign(s.allowedFaces.begin(), s.allowedFaces.end());
  std::sort(s.order.begin(), s.order.end());
  s.serial = nextWriterSerial.fetch_add(1);
  return writer;
}

bool VpdFileCachedWriter::isOpen() const { return !state->closed; }

int VpdFileCachedWriter::keyId(const std::string& name) const {
  const auto found = keys.find(name);
  return found == keys.end() ? -1 : found->second;
}

namespace {

bool refuse(std::string& err, const std::string& why) {
  err = why;
  return false;
}

}  // namespace

bool VpdFileCachedWriter::writeFace(int face, Vpd::detail::CachedFace& cached) {
  State& s = *state;
  std::vector<Vpd::detail::Extent>& extents = s.index[face];
  extents.resize(head.blockNames.size());
  bool ok = true;
  for (std::size_t b = 0; ok && b < extents.size(); ++b) {
    if (!cached.started[b]) continue;
    std::vector<unsigned char>& records = cached.records[b];
    extents[b].offset = s.sink->position();
    extents[b].size = records.size();
    extents[b].count = cached.counts[b];
    ok = s.sink->append(records.data(), records.size());
    std::vector<unsigned char>().swap(records);  // release as we go
  }
  cached.written = true;
  return ok;
}

void VpdFileCachedWriter::writeCompleteFaces(std::unique_lock<std::mutex>& hold) {
  State& s = *state;
  s.writing = true;
  while (!s.writeFailed && s.nextToWrite < s.order.size()) {
    const int face = s.order[s.nextToWrite];
    const auto found = s.faces.find(face);
    if (found == s.faces.end() || !found->second->complete) break;
    ++s.nextToWrite;
    Vpd::detail::CachedFace& cached = *found->second;
    hold.unlock();
    const bool ok = writeFace(face, cached);
    hold.lock();
    if (!ok) s.writeFailed = true;
  }
  s.writing = false;
}

bool VpdFileCachedWriter::startFace(VpdFileCachedWriterContext& context, int face) {
  State& s = *state;
  // The face this context wrote before, for this writer, is complete.
  Vpd::detail::CachedFace* previous = context.writerSerial == s.serial ? context.cached : nullptr;
  context.reset();
  context.err.clear();
  if (s.closed) return refuse(context.err, "Closed Vorn point/primitive file: " + target);
  if (!s.allowedFaces.count(face))
    return refuse(context.err, "Face " + std::to_string(face) +
                                   " is not a face of Vorn point/primitive file: " + target);
  Vpd::detail::CachedFace* cached = nullptr;
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    if (s.closed) return refuse(context.err, "Closed Vorn point/primitive file: " + target);
    if (previous) previous->complete = true;
    auto& slot = s.faces[face];
    if (!slot) {
      slot.reset(new Vpd::detail::CachedFace(head.blockNames.size()));
      cached = slot.get();
    }
    if (previous && !s.writing) writeCompleteFaces(lock);
  }
  if (!cached)
    return refuse(context.err, "Face " + std::to_string(face) +
                                   " written twice in Vorn point/primitive file: " + target);
  context.writerSerial = s.serial;
  context.cached = cached;
  context.faceId = face;
  return true;
}

void VpdFileCachedWriter::finishFace(VpdFileCachedWriterContext& context) {
  State& s = *state;
  if (context.writerSerial != s.serial || !context.cached) return;
  std::unique_lock<std::mutex> lock(s.mutex);
  if (s.closed) return;
  context.cached->complete = true;
  if (!s.writing) writeCompleteFaces(lock);
}

bool VpdFileCachedWriter::startBlock(VpdFileCachedWriterContext& context, int block) {
  State& s = *state;
  context.blockIdx = -1;
  context.err.clear();
  if (s.closed) return refuse(context.err, "Closed Vorn point/primitive file: " + target);
  if (context.writerSerial != s.serial || !context.cached)
    return refuse(context.err, "No face started in Vorn point/primitive file: " + target);
  if (block < 0 || static_cast<std::size_t>(block) >= head.blockNames.size())
    return refuse(context.err,
                  "No block " + std::to_string(block) + " in Vorn point/primitive file: " + target);
  const std::size_t b = static_cast<std::size_t>(block);
  if (context.cached->started[b])
    return refuse(context.err, "Block " + head.blockNames[b] + " written twice on face " +
                                   std::to_string(context.faceId) +
                                   " in Vorn point/primitive file: " + target);
  context.cached->started[b] = true;
  context.blockIdx = block;
  return true;
}

bool VpdFileCachedWriter::startBlock(VpdFileCachedWriterContext& context, const std::string& name) {
  for (std::size_t i = 0; i < head.blockNames.size(); ++i)
    if (head.blockNames[i] == name) return startBlock(context, static_cast<int>(i));
  context.blockIdx = -1;
  return refuse(context.err, "No block " + name + " in Vorn point/primitive file: " + target);
}

bool VpdFileCachedWriter::writePrim(VpdFileCachedWriterContext& context, std::uint32_t id,
                                    const float* values, std::size_t count) {
  State& s = *state;
  if (s.closed) return refuse(context.err, "Closed Vorn point/primitive file: " + target);
  if (context.writerSerial != s.serial || !context.cached || context.blockIdx < 0)
    return refuse(context.err, "No block started in Vorn point/primitive file: " + target);
  if (count > Vpd::MaxRecordValues)
    return refuse(context.err, "Record of " + std::to_string(count) +
                                   " values is too long for Vorn point/primitive file: " + target);
  const std::size_t b = static_cast<std::size_t>(context.blockIdx);
  Vpd::detail::appendRecord(context.cached->records[b], id, values,
                            static_cast<std::uint32_t>(count));
  ++context.cached->counts[b];
  return true;
}

bool VpdFileCachedWriter::commitAndClose() {
  State& s = *state;
  std::lock_guard<std::mutex> lock(s.mutex);
  if (s.closed.exchange(true)) {
    if (err.empty()) err = "Closed Vorn point/primitive file: " + target;
    return false;
  }
  // The faces written early are the lowest ones; the rest follow in ascending face id.
  bool ok = !s.writeFailed;
  for (auto& [face, cached] : s.faces) {  // std::map: ascending face id
    if (!ok) break;
    if (!cached->written) ok = writeFace(face, *cached);
  }
  s.faces.clear();
  if (!ok || !s.sink->commit(s.index)) {
    err = s.sink->error();
    s.sink->discard();
    return false;
  }
  return true;
}

void VpdFileCachedWriter::close() {
  State& s = *state;
  std::lock_guard<std::mutex> lock(s.mutex);
  s.closed = true;
  s.sink->discard();
  s.faces.clear();
}
