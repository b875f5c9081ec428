#include "io/alembic/VrAbcArchiveWriter.h"

#include "base/VrMessage.h"
#include "io/alembic/VrAbcWriterCore.h"

#include <cstdio>

namespace {

// The layout version of Ogawa-based Alembic archives.
constexpr int32_t ogawaLayoutVersion = 0;

std::string bareName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

void pushBytes(std::vector<uint8_t>& out, const void* data, size_t size) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  out.insert(out.end(), p, p + size);
}

}  // namespace

uint32_t VrAbcWriterCore::metaDataIndex(const std::string& serialized) {
  if (serialized.empty()) return 0;
  if (serialized.size() < 256) {
    const auto found = metaIndex.find(serialized);
    if (found != metaIndex.end()) return found->second + 1;
    if (metaIndex.size() < 254) {
      const uint32_t index = static_cast<uint32_t>(metaStrings.size());
      metaIndex[serialized] = index;
      metaStrings.push_back(serialized);
      return index + 1;
    }
  }
  return 0xff;
}

void VrAbcWriterCore::hashHeader(const VrAbcPropertyHeader& h, VrAbcSpookyHash& hash) const {
  std::vector<uint8_t> data(h.name.begin(), h.name.end());
  const std::string meta = h.metaData.serializeLenient();
  data.insert(data.end(), meta.begin(), meta.end());
  if (!h.isCompound()) {
    data.push_back(static_cast<uint8_t>(h.dataType.pod));
    data.push_back(h.dataType.extent);
    if (h.isScalar()) data.push_back(0);  // tells an empty scalar from an empty array
    const VrAbcTimeSampling& ts = timeSamplings[h.timeSamplingIndex];
    const double timePerCycle = ts.timePerCycle();
    pushBytes(data, &timePerCycle, 8);
    const uint32_t count = static_cast<uint32_t>(ts.storedTimes().size());
    pushBytes(data, &count, 4);
    for (double t : ts.storedTimes()) pushBytes(data, &t, 8);
  }
  if (!data.empty()) hash.update(data.data(), data.size());
}

bool VrAbcWriterCore::fail(const std::string& what) {
  failed = true;
  VR_ERROR(fileName + ": " + what);
  return false;
}

const char* VrAbcArchiveWriter::libraryVersionText() { return "Alembic 1.8.12 (written by Vorn)"; }

VrAbcArchiveWriter::VrAbcArchiveWriter() = default;

VrAbcArchiveWriter::~VrAbcArchiveWriter() {
  topObject.reset();
  if (core) core->file.abandon();
}

bool VrAbcArchiveWriter::open(const std::string& path, const Options& options) {
  topObject.reset();
  core.reset(new VrAbcWriterCore());
  core->fileName = bareName(path);
  core->timeSamplings.push_back(VrAbcTimeSampling());
  core->maxSamples.push_back(0);
  archiveVersion = options.archiveVersion;

  if (options.useMetaDataAsIs) {
    archiveMeta = options.metaData;
  } else {
    archiveMeta = VrAbcMetaData();
    archiveMeta.set("_ai_AlembicVersion", libraryVersionText());
    if (!options.applicationName.empty()) archiveMeta.set("_ai_Application", options.applicationName);
    if (!options.userDescription.empty()) archiveMeta.set("_ai_Description", options.userDescription);
    if (!options.dateWritten.empty()) archiveMeta.set("_ai_DateWritten", options.dateWritten);
    if (options.framesPerSecond > 0) {
      char fps[64];
      std::snprintf(fps, sizeof fps, "%g", options.framesPerSecond);
      archiveMeta.set("_ai_DCC_FPS", fps);
    }
  }

  std::string error;
  if (!core->file.open(path, error)) return core->fail(error);
  if (!core->file.writeData(&ogawaLayoutVersion, 4, versionBlocks[0]) ||
      !core->file.writeData(&archiveVersion, 4, versionBlocks[1])) {
    core->file.abandon();
    return core->fail("the file could not be written");
  }
  VrAbcObjectHeader header;
  header.name = "ABC";
  header.fullName = "/";
  header.metaData = archiveMeta;
  topObject.reset(new VrAbcObjectWriter(*core, header));
  return true;
}

bool VrAbcArchiveWriter::beginStreamedSample() {
  if (!core || streaming) return false;
  const VrAbcDigest reserved;  // the digest's place, filled in at the end
  streamedHash = VrAbcMurmur3::Stream();
  if (!core->file.beginOpenData(streamedPointer) || !core->file.appendData(reserved.bytes, 16))
    return core->fail("the file could not be written");
  streaming = true;
  return true;
}

bool VrAbcArchiveWriter::appendStreamedSample(const void* data, uint64_t size) {
  if (!core || !streaming) return false;
  if (size == 0) return true;
  if (!core->file.appendData(data, size)) return core->fail("the file could not be written");
  streamedHash.update(data, static_cast<size_t>(size));
  return true;
}

bool VrAbcArchiveWriter::endStreamedSample(VrAbcWrittenSample& sample) {
  if (!core || !streaming) return false;
  streaming = false;
  sample.key = streamedHash.digest();
  sample.bytes = streamedHash.length();
  sample.pointer = streamedPointer;
  if (!core->file.endOpenData(sample.key.bytes, 16)) return core->fail("the file could not be written");
  return true;
}

uint32_t VrAbcArchiveWriter::addTimeSampling(const VrAbcTimeSampling& sampling) {
  for (size_t i = 0; i < core->timeSamplings.size(); ++i)
    if (core->timeSamplings[i] == sampling) return static_cast<uint32_t>(i);
  core->timeSamplings.push_back(sampling);
  core->maxSamples.push_back(0);
  return static_cast<uint32_t>(core->timeSamplings.size() - 1);
}

bool VrAbcArchiveWriter::close() {
  if (!topObject) return false;
  VrAbcWriterCore& c = *core;
  std::vector<uint64_t> root;
  uint64_t pointer = 0;
  root.push_back(versionBlocks[0]);
  root.push_back(versionBlocks[1]);
  uint64_t topGroup = 0;
  VrAbcDigest topDigest;
  bool ok = !c.failed && topObject->finish(topGroup, topDigest);
  topObject.reset();
  if (ok) {
    root.push_back(topGroup);
    const std::string meta = archiveMeta.serializeLenient();
    ok = c.file.writeData(meta.data(), meta.size(), pointer);
    root.push_back(pointer);
  }
  if (ok) {
    std::vector<uint8_t> table;
    for (size_t i = 0; i < c.timeSamplings.size(); ++i) {
      const VrAbcTimeSampling& ts = c.timeSamplings[i];
      const uint32_t most = c.maxSamples[i];
      const double timePerCycle = ts.timePerCycle();
      const uint32_t count = static_cast<uint32_t>(ts.storedTimes().size());
      pushBytes(table, &most, 4);
      pushBytes(table, &timePerCycle, 8);
      pushBytes(table, &count, 4);
      for (double t : ts.storedTimes()) pushBytes(table, &t, 8);
    }
    ok = c.file.writeData(table.data(), table.size(), pointer);
    root.push_back(pointer);
  }
  if (ok) {
    std::vector<uint8_t> strings;
    for (const std::string& s : c.metaStrings) {
      strings.push_back(static_cast<uint8_t>(s.size()));
      strings.insert(strings.end(), s.begin(), s.end());
    }
    ok = c.file.writeData(strings.data(), strings.size(), pointer);
    root.push_back(pointer);
  }
  uint64_t rootGroup = 0;
  if (ok) ok = c.file.writeGroup(root, rootGroup);
  std::string error;
  if (!ok) {
    c.file.abandon();
    return c.failed ? false : c.fail("the archive could not be written");
  }
  if (!c.file.close(rootGroup, error)) return c.fail(error);
  return true;
}
