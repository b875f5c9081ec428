#pragma once
// Reads the polygon mesh schema (AbcGeom_PolyMesh_v1): points, faces given as vertex counts
// and vertex indices, optional uv and normals.

#include "io/alembic/VrAbcGeomBase.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <string>
#include <vector>

class VrAbcPolyMesh {
 public:
  struct Sample {
    VrAbcGeomBase::Sample points;
    std::vector<int32_t> faceCounts;
    std::vector<int32_t> faceIndices;
    bool hasUvs = false;
    VrAbcGeomParam::Sample uvs;
    bool hasNormals = false;
    VrAbcGeomParam::Sample normals;
  };

  /// Opens the schema compound of `object` (".geom"); false with an Error when it or one of
  /// the properties the schema needs is missing or of the wrong type.
  bool open(const VrAbcObject& object);

  uint32_t numSamples() const { return base.positions().numSamples(); }
  const VrAbcTimeSampling& timeSampling() const { return base.positions().timeSampling(); }
  VrAbcSchema::Variance topologyVariance() const;
  /// The names of the face sets below the mesh, sorted.
  const std::vector<std::string>& faceSetNames() const { return faceSets; }
  const VrAbcGeomBase& geometry() const { return base; }
  const VrAbcGeomParam& uvParam() const { return uv; }

  /// Reads schema sample `index` (< numSamples).
  bool read(uint32_t index, Sample& out) const;

 private:
  VrAbcGeomBase base;
  VrAbcArrayProperty indices;
  VrAbcArrayProperty counts;
  VrAbcGeomParam uv;
  VrAbcGeomParam normals;
  std::vector<std::string> faceSets;
};
