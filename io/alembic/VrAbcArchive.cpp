// Ownership and threading. A VrAbcArchive owns a VrAbcArchiveCore through a shared pointer: the
// mapped file and the tables read at open (time samplings, indexed metadata, archive metadata).
// Every handle made from the archive (objects, compound, scalar and array properties) holds the
// same shared pointer, so handles stay valid after the archive object is destroyed, and the file
// stays mapped until the last handle goes. Nothing in the core changes after `open` returns, and
// handles read the file without caching anything, so any number of threads may read one archive
// at once through their own handles; the only per-thread state is the last error message, which
// is thread-local. `open` itself must not race with readers of the same VrAbcArchive object.

#include "io/alembic/VrAbcArchive.h"

#include "base/VrMessage.h"
#include "io/alembic/VrAbcArchiveCore.h"

#include <algorithm>
#include <cfloat>
#include <cstring>

namespace {

thread_local std::string threadLastError;

// The layout version of Ogawa-based Alembic archives this reader knows.
constexpr int32_t ogawaLayoutVersion = 0;

// Indexed metadata is a table of short strings; a larger block is damage.
constexpr uint64_t indexedMetaDataLimit = 0x10000;

std::string bareName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool readInt32(const VrAbcSpan& span, int32_t& value) {
  if (span.size != 4) return false;
  std::memcpy(&value, span.data, 4);
  return true;
}

bool parseTimeSamplings(const VrAbcSpan& span, std::vector<VrAbcTimeSampling>& samplings,
                        std::vector<int64_t>& maxSamples, std::string& error) {
  uint64_t pos = 0;
  while (pos < span.size) {
    if (span.size - pos < 16) {
      error = "the time sampling table is cut short";
      return false;
    }
    uint32_t maxSample = 0, count = 0;
    double timePerCycle = 0.0;
    std::memcpy(&maxSample, span.data + pos, 4);
    std::memcpy(&timePerCycle, span.data + pos + 4, 8);
    std::memcpy(&count, span.data + pos + 12, 4);
    pos += 16;
    if ((span.size - pos) / 8 < count) {
      error = "the sample times of a time sampling run past their block";
      return false;
    }
    std::vector<double> times(count);
    if (count) std::memcpy(times.data(), span.data + pos, size_t{count} * 8);
    pos += uint64_t{count} * 8;
    VrAbcTimeSampling sampling;
    if (!VrAbcTimeSampling::fromStored(timePerCycle, times, sampling, error)) return false;
    samplings.push_back(std::move(sampling));
    maxSamples.push_back(maxSample);
  }
  return true;
}

bool parseIndexedMetaData(const VrAbcSpan& span, std::vector<VrAbcMetaData>& out,
                          std::string& error) {
  out.assign(1, VrAbcMetaData());
  if (span.size > indexedMetaDataLimit) {
    error = "the indexed metadata block is impossibly large";
    return false;
  }
  uint64_t pos = 0;
  while (pos < span.size) {
    const uint8_t size = span.data[pos++];
    if (span.size - pos < size) {
      error = "an indexed metadata string runs past its block";
      return false;
    }
    out.push_back(VrAbcMetaData::parse(std::string(reinterpret_cast<const char*>(span.data + pos), size)));
    pos += size;
  }
  return true;
}

}  // namespace

bool VrAbcArchiveCore::fail(const std::string& what) const {
  threadLastError = fileName + ": " + what;
  VR_ERROR(threadLastError);
  return false;
}

const std::string& VrAbcArchive::lastError() { return threadLastError; }

VrAbcArchive::VrAbcArchive() : core(std::make_shared<VrAbcArchiveCore>()) {}

VrAbcArchive::~VrAbcArchive() = default;

VrAbcOgawaFile::Kind VrAbcArchive::kind() const { return core->file.kind(); }

const std::string& VrAbcArchive::fileName() const { return core->fileName; }

const VrAbcMetaData& VrAbcArchive::metaData() const { return core->archiveMetaData; }

size_t VrAbcArchive::numTimeSamplings() const { return core->timeSamplings.size(); }

const VrAbcTimeSampling& VrAbcArchive::timeSampling(size_t i) const { return core->timeSamplings[i]; }

int64_t VrAbcArchive::maxSamples(size_t i) const {
  return i < core->maxSamples.size() ? core->maxSamples[i] : -1;
}

int VrAbcArchive::findTimeSampling(const VrAbcTimeSampling& sampling) const {
  for (size_t i = 0; i < core->timeSamplings.size(); ++i)
    if (core->timeSamplings[i] == sampling) return static_cast<int>(i);
  return -1;
}

bool VrAbcArchive::open(const std::string& path) {
  // A fresh core each time, so handles of an earlier open keep what they saw.
  core = std::make_shared<VrAbcArchiveCore>();
  opened = false;
  version = -1;
  topObject = VrAbcObject();
  VrAbcArchiveCore& c = *core;
  c.fileName = bareName(path);

  std::string error;
  if (!c.file.open(path, error)) return c.fail(error);

  std::vector<uint64_t> root;
  if (!c.file.readGroup(c.file.rootGroup(), root, error)) return c.fail(error);
  const auto isData = [&](size_t i) { return i < root.size() && VrAbcOgawaFile::isData(root[i]); };
  if (root.size() < 6 || !isData(0) || !isData(1) || isData(2) || !isData(3) || !isData(4) || !isData(5))
    return c.fail("not an Alembic archive: the root group has an unexpected layout");

  VrAbcSpan span;
  int32_t layout = -1;
  if (!c.file.readData(root[0], span, error)) return c.fail(error);
  if (!readInt32(span, layout) || layout != ogawaLayoutVersion)
    return c.fail("unsupported Alembic file version " + std::to_string(layout));
  if (!c.file.readData(root[1], span, error)) return c.fail(error);
  int32_t written = -1;
  if (readInt32(span, written)) version = written;

  if (!c.file.readData(root[4], span, error)) return c.fail(error);
  if (!parseTimeSamplings(span, c.timeSamplings, c.maxSamples, error)) return c.fail(error);
  if (!c.file.readData(root[5], span, error)) return c.fail(error);
  if (!parseIndexedMetaData(span, c.indexedMetaData, error)) return c.fail(error);
  if (!c.file.readData(root[3], span, error)) return c.fail(error);
  c.archiveMetaData = VrAbcMetaData::parse(std::string(reinterpret_cast<const char*>(span.data),
                                                       static_cast<size_t>(span.size)));
  c.topObject = root[2];

  if (!VrAbcObject::loadTop(core, topObject)) return false;
  opened = true;
  return true;
}

bool VrAbcArchive::findObject(const std::string& path, VrAbcObject& out) const {
  out = VrAbcObject();
  if (!opened) return false;
  VrAbcObject current = topObject;
  size_t start = 0;
  while (start < path.size()) {
    if (path[start] == '/') {
      ++start;
      continue;
    }
    const size_t slash = path.find('/', start);
    const std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    VrAbcObject next;
    if (!current.child(part, next)) return false;
    current = std::move(next);
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  out = std::move(current);
  return true;
}

void VrAbcArchive::startEndTime(double& start, double& end) const {
  double animatedStart = DBL_MAX, animatedEnd = -DBL_MAX;
  double singleStart = DBL_MAX, singleEnd = -DBL_MAX;
  double defaultStart = DBL_MAX, defaultEnd = -DBL_MAX;
  for (size_t i = 0; i < core->timeSamplings.size(); ++i) {
    const int64_t count = maxSamples(i);
    if (count < 0) continue;
    const VrAbcTimeSampling& ts = core->timeSamplings[i];
    double first = 0.0, last = 0.0;
    if (count > 1 && i != 0) {
      if (ts.sampleTime(0, first) && ts.sampleTime(count - 1, last)) {
        animatedStart = std::min(first, animatedStart);
        animatedEnd = std::max(last, animatedEnd);
      }
    } else if (count == 1 && i != 0) {
      if (ts.sampleTime(0, first)) {
        singleStart = std::min(first, singleStart);
        singleEnd = std::max(first, singleEnd);
      }
    } else if (count > 0 && i == 0) {
      if (ts.sampleTime(0, first) && ts.sampleTime(count - 1, last)) {
        defaultStart = first;
        defaultEnd = last;
      }
    }
  }
  if (animatedStart != DBL_MAX && animatedEnd != -DBL_MAX) {
    start = animatedStart;
    end = animatedEnd;
  } else if (singleStart != DBL_MAX && singleEnd != -DBL_MAX) {
    start = singleStart;
    end = singleEnd;
  } else if (defaultStart != DBL_MAX && defaultEnd != -DBL_MAX) {
    start = defaultStart;
    end = defaultEnd;
  } else {
    start = DBL_MAX;
    end = -DBL_MAX;
  }
}
