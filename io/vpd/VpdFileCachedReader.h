#pragma once
// One point/primitive file shared by many threads. The reader is opened once (per patch, say,
// in a module's initDescription) and never changes after that; each thread reads through its
// own VpdFileCachedReaderContext, which holds its face, block, record position and the block's
// records. Any number of threads may call the const operations at once, each with its own
// context. `close` must not run while any thread reads.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "io/vpd/VpdReader.h"

/// The reading position of one thread. A context may serve several readers in turn: selecting
/// a face binds it to that reader.
class VpdFileCachedReaderContext {
 public:
  VpdFileCachedReaderContext();
  ~VpdFileCachedReaderContext();
  VpdFileCachedReaderContext(VpdFileCachedReaderContext&&) noexcept;
  VpdFileCachedReaderContext& operator=(VpdFileCachedReaderContext&&) noexcept;

  /// The selected face, or -1.
  int face() const;
  /// The selected block, or -1.
  int block() const;
  /// Why the last call through this context answered false; empty after a plain end of block
  /// or a missing id.
  const std::string& error() const;
  /// Forgets face, block and the records held.
  void reset();

 private:
  friend class VpdFileCachedReader;
  std::unique_ptr<Vpd::detail::Cursor> cursor;
};

class VpdFileCachedReader : public VpdFileInfo {
 public:
  /// Opens and checks `path`, as VpdReader::open does, with the same failure texts.
  static std::unique_ptr<VpdFileCachedReader> open(const std::string& path,
                                                   std::string* error = nullptr);
  ~VpdFileCachedReader() override;

  /// Releases the file; no context may be reading. False when the system refuses or it was
  /// closed already. The header stays readable.
  virtual bool close();

  /// The operations of VpdReader, on the position held by `context`.
  /// @{
  bool findFace(VpdFileCachedReaderContext& context, int face) const;
  bool findBlock(VpdFileCachedReaderContext& context, int block) const;
  std::uint64_t numPrims(const VpdFileCachedReaderContext& context) const;
  using VpdFileInfo::numPrims;
  bool readPrim(VpdFileCachedReaderContext& context, std::uint32_t& id,
                std::vector<float>& values) const;
  bool findPrim(VpdFileCachedReaderContext& context, std::uint32_t id,
                std::vector<float>& values) const;
  /// @}

 private:
  explicit VpdFileCachedReader(std::unique_ptr<Vpd::detail::OpenFile> file);
};
