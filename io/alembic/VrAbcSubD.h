#pragma once
// Reads the subdivision surface schema (AbcGeom_SubD_v1): a polygon cage (points, face counts,
// face indices), the subdivision scheme and boundary rules, creases, corners, holes, and
// optional uv.

#include "io/alembic/VrAbcGeomBase.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"

#include <cstdint>
#include <string>
#include <vector>

class VrAbcSubD {
 public:
  struct Sample {
    VrAbcGeomBase::Sample points;
    std::vector<int32_t> faceCounts;
    std::vector<int32_t> faceIndices;
    std::string scheme = "catmull-clark";
    int32_t interpolateBoundary = 0;
    int32_t faceVaryingInterpolateBoundary = 0;
    int32_t faceVaryingPropagateCorners = 0;
    std::vector<int32_t> creaseIndices;
    std::vector<int32_t> creaseLengths;
    std::vector<float> creaseSharpnesses;
    std::vector<int32_t> cornerIndices;
    std::vector<float> cornerSharpnesses;
    std::vector<int32_t> holes;
    bool hasUvs = false;
    VrAbcGeomParam::Sample uvs;
  };

  /// Opens the schema compound of `object`; false with an Error when a needed property is
  /// missing or of the wrong type.
  bool open(const VrAbcObject& object);

  /// The largest sample count of the schema's properties.
  uint32_t numSamples() const { return samples; }
  const VrAbcTimeSampling& timeSampling() const { return base.positions().timeSampling(); }
  VrAbcSchema::Variance topologyVariance() const;
  const std::vector<std::string>& faceSetNames() const { return faceSets; }
  const VrAbcGeomBase& geometry() const { return base; }
  /// The arbitrary parameters compound (".arbGeomParams"), invalid when there is none.
  const VrAbcCompoundProperty& arbGeomParams() const { return arbitrary; }

  bool read(uint32_t index, Sample& out) const;

 private:
  VrAbcGeomBase base;
  VrAbcArrayProperty indices, counts;
  VrAbcScalarProperty fvInterpolate, fvPropagate, interpolate, schemeProp;
  VrAbcArrayProperty creaseIndices, creaseLengths, creaseSharpnesses;
  VrAbcArrayProperty cornerIndices, cornerSharpnesses, holes;
  VrAbcGeomParam uv;
  VrAbcCompoundProperty arbitrary;
  uint32_t samples = 0;
  std::vector<std::string> faceSets;
};
