#pragma once
// An Alembic archive opened for reading (Ogawa archives only). `open` maps the file, reads the
// archive's tables (time samplings, metadata) and the top object; objects and properties are
// then read on demand through the handles `top()` leads to.
//
// Errors never throw: every failing call sends an Error naming the file (bare name) through
// vrmessage, answers false, and leaves the message as the thread's `lastError()`.

#include "io/alembic/VrAbcMetaData.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcOgawaFile.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct VrAbcArchiveCore;

class VrAbcArchive {
 public:
  VrAbcArchive();
  ~VrAbcArchive();
  VrAbcArchive(const VrAbcArchive&) = delete;
  VrAbcArchive& operator=(const VrAbcArchive&) = delete;

  /// Opens an archive; false with an Error when the file is missing, not an Ogawa archive (an
  /// HDF5 archive is refused as such), or damaged in its tables or top object.
  bool open(const std::string& path);
  bool isOpen() const { return opened; }

  /// What the file looked like, also after a failed open.
  VrAbcOgawaFile::Kind kind() const;
  /// The bare file name used in messages.
  const std::string& fileName() const;

  /// The version number of the library that wrote the archive (10801 for 1.8.1); -1 if absent.
  int32_t archiveVersion() const { return version; }
  /// Archive metadata: _ai_Application, _ai_AlembicVersion, _ai_DateWritten, ...
  const VrAbcMetaData& metaData() const;
  size_t numTimeSamplings() const;
  const VrAbcTimeSampling& timeSampling(size_t i) const;
  /// The largest sample count any property of time sampling `i` has; -1 when not stored.
  int64_t maxSamples(size_t i) const;
  /// The index of a time sampling equal to `sampling`, or -1.
  int findTimeSampling(const VrAbcTimeSampling& sampling) const;
  /// The archive's time range, with the rules the format's tools use: animated samplings
  /// first, then one-sample ones, then the default sampling; DBL_MAX and -DBL_MAX when none.
  void startEndTime(double& start, double& end) const;

  /// The top object ("/"). Valid only while `isOpen()`.
  const VrAbcObject& top() const { return topObject; }
  /// The object at a path such as "/a/b"; false with an Error when there is none.
  bool findObject(const std::string& path, VrAbcObject& out) const;

  /// The message of the last failure on the calling thread.
  static const std::string& lastError();

 private:
  std::shared_ptr<VrAbcArchiveCore> core;
  bool opened = false;
  int32_t version = -1;
  VrAbcObject topObject;
};
