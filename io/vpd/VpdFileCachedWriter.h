#pragma once
// Writing one point/primitive file from many threads. Each thread writes whole faces through
// its own VpdFileCachedWriterContext; the records are cached in memory per face and block, and
// go to the file in ascending face id and block order: early, as soon as the lowest faces are
// complete (`finishFace`, or its context starts another), the rest at `commitAndClose`.
// So the file is the same, byte for byte, whatever the number of threads and the order they
// ran in, and memory holds only the faces that finished out of order. It is also the file a
// VpdWriter makes when given the faces in that order.
//
//   auto writer = VpdFileCachedWriter::openWrite(path, faces, ...);      // one thread
//   parallel over faces: writer->startFace(ctx, face); writer->startBlock(ctx, 0);
//                        writer->writePrim(ctx, id, values);             // each thread its ctx
//   writer->commitAndClose();                                            // one thread, after

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/vpd/VpdFormat.h"

namespace Vpd {
namespace detail {
struct CachedFace;
}  // namespace detail
}  // namespace Vpd

/// One thread's writing position: the face it writes and the block within it. A context may
/// serve several writers in turn: starting a face binds it to that writer.
class VpdFileCachedWriterContext {
 public:
  VpdFileCachedWriterContext() = default;
  VpdFileCachedWriterContext(VpdFileCachedWriterContext&&) noexcept = default;
  VpdFileCachedWriterContext& operator=(VpdFileCachedWriterContext&&) noexcept = default;

  /// The face being written, or -1.
  int face() const { return faceId; }
  /// The block being written, or -1.
  int block() const { return blockIdx; }
  /// Why the last call through this context answered false.
  const std::string& error() const { return err; }
  /// Forgets face and block; what was written stays with the writer.
  void reset() {
    writerSerial = 0;
    cached = nullptr;
    faceId = -1;
    blockIdx = -1;
  }

 private:
  friend class VpdFileCachedWriter;
  std::uint64_t writerSerial = 0;
  Vpd::detail::CachedFace* cached = nullptr;
  int faceId = -1;
  int blockIdx = -1;
  std::string err;
};

class VpdFileCachedWriter {
 public:
  /// As VpdWriter::open: checks the header and creates the temporary file beside `path` at
  /// once, so that an unwritable place fails here and not at the end. Null on failure with the
  /// cause in `error` when given.
  static std::unique_ptr<VpdFileCachedWriter> openWrite(
      const std::string& path, const std::vector<int>& faceIds, Vpd::PrimType primType,
      unsigned char cvCount, Vpd::CoordSpace coordSpace, const std::vector<std::string>& blockNames,
      float time, unsigned attrVersion, const std::vector<std::string>& keyNames = {},
      std::string* error = nullptr);
  static std::unique_ptr<VpdFileCachedWriter> openWrite(const std::string& path,
                                                        const Vpd::Header& header,
                                                        std::string* error = nullptr);
  /// Discards unless `commitAndClose` succeeded.
  virtual ~VpdFileCachedWriter();
  VpdFileCachedWriter(const VpdFileCachedWriter&) = delete;
  VpdFileCachedWriter& operator=(const VpdFileCachedWriter&) = delete;

  /// Starts `face` for `context`. False when the face is not one of the header's, was started
  /// before by any context, or the writer is closed. Safe from any number of threads at once.
  bool startFace(VpdFileCachedWriterContext& context, int face);
  /// Starts a block of the context's face; false when the context has no face of this writer,
  /// the block is out of range or was started on the face before.
  bool startBlock(VpdFileCachedWriterContext& context, int block);
  bool startBlock(VpdFileCachedWriterContext& context, const std::string& name);
  /// The context's face is complete: it goes to the file as soon as every lower face is (a
  /// face is also complete once its context starts another). Safe from any number of threads.
  void finishFace(VpdFileCachedWriterContext& context);
  /// Caches one record in the context's block; false when no block is current or there are
  /// more than Vpd::MaxRecordValues values.
  bool writePrim(VpdFileCachedWriterContext& context, std::uint32_t id, const float* values,
                 std::size_t count);
  bool writePrim(VpdFileCachedWriterContext& context, std::uint32_t id,
                 const std::vector<float>& values) {
    return writePrim(context, id, values.data(), values.size());
  }

  /// Key names to ids, for packing attributes; fixed at opening, so safe from any thread.
  const std::unordered_map<std::string, int>& keyToId() const { return keys; }
  int keyId(const std::string& name) const;

  /// Writes every cached face in ascending face id, the index and the header, and renames the
  /// file into place. No context may be writing. True on success; on failure nothing is left
  /// at `path` by this writer. Later calls answer false.
  virtual bool commitAndClose();
  /// Discards the cache and the temporary file; `path` is not touched.
  virtual void close();

  const std::string& path() const { return target; }
  const Vpd::Header& header() const { return head; }
  /// Why `commitAndClose` answered false.
  const std::string& error() const { return err; }
  bool isOpen() const;

 private:
  struct State;
  VpdFileCachedWriter();
  /// Appends the face's records and notes their extents; false when the file refused them.
  bool writeFace(int face, Vpd::detail::CachedFace& cached);
  /// Writes the complete faces at the head of the file's order; `hold` is released meanwhile.
  void writeCompleteFaces(std::unique_lock<std::mutex>& hold);

  std::string target;
  Vpd::Header head;
  std::unordered_map<std::string, int> keys;
  std::unique_ptr<State> state;
  std::string err;
};
