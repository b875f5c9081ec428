#include "io/output/VrCardMeshSpool.h"

#include "geometry/SgVec3T.h"
#include "io/alembic/VrAbcMeshWriter.h"

#include <climits>
#include <cmath>

namespace {

using Vec = SgVec3T<double>;
Vec at(const float* p, int i) { return Vec(p[3 * i], p[3 * i + 1], p[3 * i + 2]); }

// The offsets from the root of the five grid lines along one axis (far mirrored edge, mirrored
// bend centre, root, bend centre, edge), and the parameter of each by length along the axis.
void axisProfile(const Vec& centre, const Vec& edge, Vec offsets[5], double params[5]) {
  const double inner = centre.length();
  const double outer = (edge - centre).length();
  // The mirror plane is square to the axis, which the root-to-centre offset gives. A bend centre
  // at the root leaves the axis unknown: the far half is then the near one turned about the root.
  auto mirrored = [&](const Vec& v) {
    if (inner <= 1e-12) return v * -1.0;
    const Vec axis = centre * (1.0 / inner);
    return v - axis * (2.0 * v.dot(axis));
  };
  offsets[0] = mirrored(edge);
  offsets[1] = mirrored(centre);
  offsets[2] = Vec();
  offsets[3] = centre;
  offsets[4] = edge;
  const double half = inner + outer;
  const double along[5] = {-half, -inner, 0.0, inner, half};
  for (int i = 0; i < 5; ++i) params[i] = half > 0.0 ? 0.5 + 0.5 * along[i] / half : i / 4.0;
}

}  // namespace

void VrCardMeshSpool::grid(const float* cp, float* points, float* uvs) {
  const Vec root = at(cp, 0);
  Vec uOffsets[side], vOffsets[side];
  double uParams[side], vParams[side];
  axisProfile(at(cp, 1) - root, at(cp, 3) - root, uOffsets, uParams);
  axisProfile(at(cp, 2) - root, at(cp, 4) - root, vOffsets, vParams);
  for (int r = 0; r < side; ++r)
    for (int c = 0; c < side; ++c) {
      const int k = r * side + c;
      const Vec p = root + uOffsets[c] + vOffsets[r];
      points[3 * k] = static_cast<float>(p.x);
      points[3 * k + 1] = static_cast<float>(p.y);
      points[3 * k + 2] = static_cast<float>(p.z);
      uvs[2 * k] = static_cast<float>(uParams[c]);
      uvs[2 * k + 1] = static_cast<float>(vParams[r]);
    }
}

bool VrCardMeshSpool::openOwn(const std::string& directory, std::string& error) {
  return openAll({&counts, &indices, &uvs, &ids, &faces}, directory, error);
}

bool VrCardMeshSpool::add(const VrOutputPrimitive& prim) {
  constexpr int numPoints = side * side;
  constexpr int numFaces = (side - 1) * (side - 1);
  // Face indices are 32-bit: an object stops short of 2^31 points.
  if (prim.numCVs != 5 || (cards + 1) * numPoints > static_cast<uint64_t>(INT32_MAX)) return false;
  float uv[2 * numPoints];
  for (size_t s = 0; s < samplePoints.size(); ++s) {
    samplePoints[s].resize(3 * numPoints);
    grid(prim.cvs + 15 * s, samplePoints[s].data(), uv);
    rows[s] = samplePoints[s].data();
  }
  // Quads in the file's order, clockwise seen from the card's front (its normal side).
  const int32_t base = static_cast<int32_t>(cards * numPoints);
  int32_t faceIndices[4 * numFaces], faceCounts[numFaces], faceIds[numFaces], faceFaces[numFaces];
  for (int r = 0, f = 0; r < side - 1; ++r)
    for (int c = 0; c < side - 1; ++c, ++f) {
      const int32_t corner = base + r * side + c;
      const int32_t quad[4] = {corner, corner + 1, corner + side + 1, corner + side};
      for (int k = 0; k < 4; ++k) faceIndices[4 * f + k] = quad[k];
      faceCounts[f] = 4;
      faceIds[f] = prim.id;
      faceFaces[f] = prim.face;
    }
  ++cards;
  return motion.append(rows.data(), numPoints) && uvs.append(uv, sizeof uv) &&
         indices.append(faceIndices, sizeof faceIndices) && counts.append(faceCounts, sizeof faceCounts) &&
         ids.append(faceIds, sizeof faceIds) && faces.append(faceFaces, sizeof faceFaces);
}

bool VrCardMeshSpool::writeInto(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  VrAbcMeshWriter mesh;
  if (!mesh.create(parent, name, VrAbcMeshWriter::Kind::PolyMesh, timeSampling, VrAbcMeshWriter::Winding::Clockwise))
    return false;
  const VrAbcDataType i32{VrAbcPod::Int32, 1};
  for (unsigned s = 0; s < motion.numSamples(); ++s) {
    VrAbcMeshWriter::SpooledSample sample;
    motionInto(s, sample);
    if (s == 0) {
      sample.faceCounts = &counts;
      sample.faceIndices = &indices;
      sample.uvs = &uvs;
      sample.arbitrary = {{"vorn_id", i32, "", VrAbcScope::Uniform, &ids},
                          {"vorn_face", i32, "", VrAbcScope::Uniform, &faces}};
    }
    if (!mesh.write(sample)) return false;
  }
  return true;
}
