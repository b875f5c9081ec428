#include "io/output/VrArchivePointsSpool.h"

#include "io/alembic/VrAbcPointsWriter.h"
#include "io/output/VrInstanceRecord.h"

namespace {

using Vec = SgVec3T<double>;
Vec at(const float* p, int i) { return Vec(p[3 * i], p[3 * i + 1], p[3 * i + 2]); }

void toFloats(const Vec& v, float out[3]) {
  out[0] = static_cast<float>(v.x);
  out[1] = static_cast<float>(v.y);
  out[2] = static_cast<float>(v.z);
}

const char* const fileParams[4] = {"archiveFileLow", "archiveFileMedium", "archiveFileHigh", "archiveFileProxy"};

}  // namespace

bool VrArchivePointsSpool::openOwn(const std::string& directory, std::string& error) {
  return openAll({&ids, &aims, &ups, &scales, &groups, &frames, &files[0].indices, &files[1].indices,
                  &files[2].indices, &files[3].indices},
                 directory, error);
}

bool VrArchivePointsSpool::add(const VrOutputPrimitive& prim) {
  if (prim.numCVs != 4) return false;
  for (size_t s = 0; s < samplePoints.size(); ++s) {
    samplePoints[s].assign(prim.cvs + 12 * s, prim.cvs + 12 * s + 3);
    rows[s] = samplePoints[s].data();
  }
  VrInstanceRecord record;
  VrInstancePlacement(at(prim.cvs, 0), at(prim.cvs, 1), at(prim.cvs, 2), at(prim.cvs, 3), record);
  float aim[3], up[3], scale[3];
  toFloats(record.aim, aim);
  toFloats(record.up, up);
  toFloats(record.scale, scale);
  const uint64_t id = (static_cast<uint64_t>(static_cast<uint32_t>(prim.face)) << 32) | static_cast<uint32_t>(prim.id);
  const int32_t group = prim.archiveGroup;
  const float frame = prim.archiveFrame;
  bool ok = motion.append(rows.data(), 1) && ids.append(&id, sizeof id) && aims.append(aim, sizeof aim) &&
            ups.append(up, sizeof up) && scales.append(scale, sizeof scale) && groups.append(&group, sizeof group) &&
            frames.append(&frame, sizeof frame);
  for (int k = 0; ok && k < 4; ++k) {
    FileColumn& column = files[k];
    const std::string file = prim.archiveFiles[k] ? prim.archiveFiles[k] : "";
    auto found = column.indexOf.find(file);
    if (found == column.indexOf.end()) {
      found = column.indexOf.emplace(file, static_cast<uint32_t>(column.texts.size())).first;
      column.texts.push_back(file);
    }
    ok = column.indices.append(&found->second, sizeof found->second);
  }
  return ok;
}

bool VrArchivePointsSpool::writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  return writePoints(parent, name, timeSampling, [&](VrAbcPointsWriter::SpooledSample& sample) {
    sample.ids = &ids;
    const VrAbcDataType vec3{VrAbcPod::Float32, 3};
    sample.arbitrary = {{"aim", vec3, "vector", VrAbcScope::Varying, &aims},
                        {"up", vec3, "vector", VrAbcScope::Varying, &ups},
                        {"scale", vec3, "vector", VrAbcScope::Varying, &scales},
                        {"archiveGroup", VrAbcDataType{VrAbcPod::Int32, 1}, "", VrAbcScope::Varying, &groups},
                        {"archiveFrame", VrAbcDataType{VrAbcPod::Float32, 1}, "", VrAbcScope::Varying, &frames}};
    for (int k = 0; k < 4; ++k) sample.strings.push_back({fileParams[k], &files[k].texts, &files[k].indices});
  });
}
