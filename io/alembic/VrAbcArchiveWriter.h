#pragma once
// Writes an Alembic archive (Ogawa), in the layout, with the sample keys and the digests, that
// the format's own library writes, so that its readers (and ours) read it back unchanged.
//
//   VrAbcArchiveWriter writer;
//   writer.open("out.abc", VrAbcArchiveWriter::Options());
//   uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24, 1.0 / 24));
//   VrAbcObjectWriter* mesh = writer.top().createChild("mesh", meta);
//   ... properties and samples, or a schema writer (VrAbcMeshWriter, ...) ...
//   writer.close();
//
// Samples go to disk as they are set; the hierarchy is written by `close`. Nothing is left at
// the path unless `close` succeeds. Errors are Errors naming the file, and make `close` fail.
// One writer is used from one thread at a time.

#include "io/alembic/VrAbcMetaData.h"
#include "io/alembic/VrAbcMurmur3.h"
#include "io/alembic/VrAbcObjectWriter.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <memory>
#include <string>

struct VrAbcWriterCore;

class VrAbcArchiveWriter {
 public:
  struct Options {
    std::string applicationName;  ///< _ai_Application
    std::string userDescription;  ///< _ai_Description
    std::string dateWritten;      ///< _ai_DateWritten; left out when empty
    double framesPerSecond = 0;   ///< _ai_DCC_FPS; left out when 0
    /// Taken as the whole archive metadata instead of the keys above (for copies).
    bool useMetaDataAsIs = false;
    VrAbcMetaData metaData;
    /// The library version the archive declares, as the format stores it (1.8.12 is 10812).
    int32_t archiveVersion = 10812;
  };

  VrAbcArchiveWriter();
  /// An archive that was not closed is dropped.
  ~VrAbcArchiveWriter();
  VrAbcArchiveWriter(const VrAbcArchiveWriter&) = delete;
  VrAbcArchiveWriter& operator=(const VrAbcArchiveWriter&) = delete;

  bool open(const std::string& path, const Options& options);
  bool isOpen() const { return topObject != nullptr; }

  /// The index of a time sampling in the archive's table, adding it when new. Entry 0 is
  /// uniform, start 0, step 1.
  uint32_t addTimeSampling(const VrAbcTimeSampling& sampling);
  /// The top object ("/"); only while open.
  VrAbcObjectWriter& top() { return *topObject; }

  /// Writes the hierarchy and tables and puts the archive in place; false with an Error when
  /// anything failed since `open`.
  bool close();

  /// Starts an array sample whose bytes go straight into the file as they come, before the
  /// property that takes it is made: nothing else may be written to the archive until
  /// `endStreamedSample`, which gives what VrAbcPropertyWriter::setSample takes.
  bool beginStreamedSample();
  bool appendStreamedSample(const void* data, uint64_t size);
  bool endStreamedSample(VrAbcWrittenSample& sample);
  bool isStreaming() const { return streaming; }

  /// The value of _ai_AlembicVersion in archives this writer makes.
  static const char* libraryVersionText();

 private:
  std::unique_ptr<VrAbcWriterCore> core;
  std::unique_ptr<VrAbcObjectWriter> topObject;
  VrAbcMetaData archiveMeta;
  int32_t archiveVersion = 10812;
  uint64_t versionBlocks[2] = {0, 0};  // the layout and library version blocks
  VrAbcMurmur3::Stream streamedHash;
  uint64_t streamedPointer = 0;
  bool streaming = false;
};
