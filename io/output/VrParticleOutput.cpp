#include "io/output/VrParticleOutput.h"

#include <tbb/task_arena.h>

namespace {

enum Channel { Position, Aim, Up, Scale, Id, DescId, RandomInt, RandomFloat, Index, U, V, FaceId, GeomId };

struct ChannelDefinition {
  const char* name;
  VrParticleType type;
  int count;
};

const ChannelDefinition channels[] = {
    {"position", VrParticleType::Vector, 3}, {"aim_VP", VrParticleType::Vector, 3},
    {"up_VP", VrParticleType::Vector, 3},    {"scale", VrParticleType::Vector, 3},
    {"id_VP", VrParticleType::Int, 1},       {"descid_VP", VrParticleType::Int, 1},
    {"ri_VP", VrParticleType::Int, 1},       {"rf_VP", VrParticleType::Float, 1},
    {"index_VP", VrParticleType::Int, 1},    {"u_VS", VrParticleType::Float, 1},
    {"v_VS", VrParticleType::Float, 1},      {"faceid_VS", VrParticleType::Int, 1},
    {"geomid_VS", VrParticleType::Int, 1},
};

void putVector(VrParticleSet& set, Channel channel, size_t particle, const SgVec3T<double>& value) {
  float* out = set.floats(channel, particle);
  out[0] = static_cast<float>(value.x);
  out[1] = static_cast<float>(value.y);
  out[2] = static_cast<float>(value.z);
}

// Fills particle `p` of a set made by `addInstanceChannels`.
void putInstance(VrParticleSet& set, size_t p, const VrInstanceRecord& record) {
  putVector(set, Position, p, record.position);
  putVector(set, Aim, p, record.aim);
  putVector(set, Up, p, record.up);
  putVector(set, Scale, p, record.scale);
  *set.ints(Id, p) = static_cast<int32_t>(record.id);
  *set.ints(DescId, p) = static_cast<int32_t>(record.descId);
  *set.ints(RandomInt, p) = static_cast<int32_t>(record.randInt);
  *set.floats(RandomFloat, p) = static_cast<float>(record.randFloat);
  *set.ints(Index, p) = record.archiveIndex;
  *set.floats(U, p) = static_cast<float>(record.u);
  *set.floats(V, p) = static_cast<float>(record.v);
  *set.ints(FaceId, p) = record.faceId;
  *set.ints(GeomId, p) = static_cast<int32_t>(record.geomId);
}

}  // namespace

void VrParticleOutput::addInstanceChannels(VrParticleSet& set) {
  for (const ChannelDefinition& channel : channels) set.addAttribute(channel.name, channel.type, channel.count);
}

VrParticleOutput::VrParticleOutput(const std::string& path, const VrOutputSettings& settings)
    : VrPrimitiveOutput(path, settings) {
  addInstanceChannels(set);
  streamed = VrParticleStream::streams(VrParticleFormatOf(path), set);
}

void VrParticleOutput::addInstance(VrParticleSet& set, const VrInstanceRecord& record) {
  putInstance(set, set.addParticle(), record);
}

bool VrParticleOutput::begin() {
  set.resize(0);
  if (!streamed) return true;
  stream = std::make_unique<VrParticleStream>(path, VrParticleFormatOf(path), set);
  return stream->ok() || fail(stream->error());
}

bool VrParticleOutput::write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) {
  if (streamed) {
    std::string bytes;
    encode(patch, primitives, count, bytes);
    return writeEncoded(patch, primitives, count, bytes);
  }
  for (size_t i = 0; i < count; ++i) addInstance(set, instanceRecord(primitives[i]));
  return true;
}

void VrParticleOutput::encode(const std::string&, const VrOutputPrimitive* primitives, size_t count,
                              std::string& bytes) const {
  if (!stream) return;  // not begun: writeEncoded says so
  thread_local VrParticleSet batch;
  if (batch.numAttributes() == 0) addInstanceChannels(batch);
  batch.resize(count);
  for (size_t i = 0; i < count; ++i) putInstance(batch, i, instanceRecord(primitives[i]));
  stream->encode(batch, bytes);
}

bool VrParticleOutput::writeEncoded(const std::string&, const VrOutputPrimitive*, size_t count,
                                    const std::string& bytes) {
  if (!stream || !stream->append(bytes, count)) return fail(stream ? stream->error() : "was not begun");
  return true;
}

bool VrParticleOutput::end() {
  // The writers finish the file's bytes on as many threads as the render had.
  tbb::task_arena arena(settings.threads > 0 ? settings.threads : static_cast<int>(tbb::task_arena::automatic));
  if (streamed) {
    bool written = false;
    arena.execute([&] { written = stream && stream->finish(); });
    if (!written) return fail(stream ? stream->error() : "was not begun");
    return true;
  }
  std::string error;
  bool written = false;
  arena.execute([&] { written = VrWriteParticles(path, set, &error); });
  if (!written) return fail(error.empty() ? "cannot be written" : error);
  return true;
}
