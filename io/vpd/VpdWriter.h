#pragma once
// Writing a point/primitive file from one thread, streaming: faces and blocks are written in the
// order they are started, each record as it comes. The file is built under a temporary name
// beside `path` and renamed into place by `close`; a writer destroyed or discarded before that,
// or one that failed, leaves nothing at `path` (a file already there stays as it was).
//
//   std::unique_ptr<VpdWriter> writer = VpdWriter::open(path, faces, Vpd::PointPrimitive, 1,
//       Vpd::WorldSpace, {Vpd::LocationBlock}, 0.0f, 1, {}, &why);
//   writer->startFace(face); writer->startBlock(0); writer->writePrim(id, {u, v, x, y, z});
//   if (!writer->close()) ... writer->error() ...

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/vpd/VpdFormat.h"

class VpdWriter {
 public:
  /// Creates the temporary file and writes the header. Null when the header is invalid (no
  /// blocks, an empty or repeated block or key name, a repeated face id, an unknown primitive
  /// type or coordinate space) or the file cannot be created; the cause, one of the texts of
  /// VpdFormat.h, goes to `error` when given. Keys get the ids 0, 1, ... in the order given.
  static std::unique_ptr<VpdWriter> open(const std::string& path, const std::vector<int>& faceIds,
                                         Vpd::PrimType primType, unsigned char cvCount,
                                         Vpd::CoordSpace coordSpace,
                                         const std::vector<std::string>& blockNames, float time,
                                         unsigned attrVersion,
                                         const std::vector<std::string>& keyNames = {},
                                         std::string* error = nullptr);
  static std::unique_ptr<VpdWriter> open(const std::string& path, const Vpd::Header& header,
                                         std::string* error = nullptr);
  /// Discards the file unless `close` succeeded.
  virtual ~VpdWriter();
  VpdWriter(const VpdWriter&) = delete;
  VpdWriter& operator=(const VpdWriter&) = delete;

  /// Ends the current face and starts `face`. False, with no face current afterwards, when the
  /// face is not one of the header's, was started before, or the writer is closed or failed.
  bool startFace(int face);
  /// Ends the current block and starts block `block` (an index into the block names) on the
  /// current face. False, with no block current afterwards, when no face is current, the index
  /// is out of range, or the block was started on this face before.
  bool startBlock(int block);
  bool startBlock(const std::string& name);
  /// Appends one record to the current block: the primitive's id and its values. False when no
  /// block is current, there are more than Vpd::MaxRecordValues values, or the write fails;
  /// a failed write fails the whole file.
  bool writePrim(std::uint32_t id, const float* values, std::size_t count);
  bool writePrim(std::uint32_t id, const std::vector<float>& values) {
    return writePrim(id, values.data(), values.size());
  }

  /// Key names to ids, for packing attributes.
  const std::unordered_map<std::string, int>& keyToId() const { return keys; }
  /// The id of one key, or -1.
  int keyId(const std::string& name) const;

  /// Writes the index and the final header and renames the file into place. True on success;
  /// false when the writer failed before or the file cannot be finished, and then nothing is
  /// left at `path` by this writer. Later calls answer false.
  virtual bool close();
  /// Abandons the file: the temporary goes, `path` is not touched.
  void discard();

  const std::string& path() const { return target; }
  const Vpd::Header& header() const { return head; }
  /// Why the last call answered false.
  const std::string& error() const { return err; }
  bool isOpen() const;

 private:
  struct State;
  VpdWriter();
  void endBlock();
  bool refuse(const std::string& why);

  std::string target;
  Vpd::Header head;
  std::unordered_map<std::string, int> keys;
  std::unique_ptr<State> state;
  std::string err;
};
