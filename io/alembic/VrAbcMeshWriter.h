#pragma once
// Writes a polygon mesh (AbcGeom_PolyMesh_v1) or a subdivision surface (AbcGeom_SubD_v1), one
// sample per call, laid out as the format's own writers lay them out. Topology written once
// stays until given again; uv and normals may appear from any sample on (earlier samples get
// empty ones). Faces are stored clockwise, as the format wants (see VrAbcWinding.h).

#include "io/alembic/VrAbcGeomBaseWriter.h"
#include "io/alembic/VrAbcGeomParamWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

class VrAbcMeshWriter {
 public:
  enum class Kind { PolyMesh, SubD };
  /// For the subdivision settings: keep what the previous sample had (0 in the first sample).
  static constexpr int32_t keep = INT32_MIN;

  struct Sample {
    VrAbcView<float> positions;      ///< x, y, z per point; needed in the first sample
    VrAbcView<int32_t> faceCounts;   ///< vertices per face; needed in the first sample
    VrAbcView<int32_t> faceIndices;  ///< point of each face vertex
    VrAbcView<float> uvs;            ///< u, v per value
    VrAbcView<uint32_t> uvIndices;   ///< makes the uvs indexed when given in their first sample
    VrAbcScope uvScope = VrAbcScope::FaceVarying;
    VrAbcView<float> normals;        ///< x, y, z per value; polygon meshes only
    VrAbcScope normalScope = VrAbcScope::FaceVarying;
    // Subdivision surfaces only.
    std::string scheme;              ///< "" keeps the previous ("catmull-clark" at first)
    int32_t interpolateBoundary = keep;
    int32_t faceVaryingInterpolateBoundary = keep;
    int32_t faceVaryingPropagateCorners = keep;
  };

  /// A polygon mesh sample whose arrays were gathered in spools (see VrAbcSpool), for meshes
  /// too large to hold in memory. The faces are in the file's order (clockwise). Topology,
  /// uvs and arbitrary parameters not given after the first sample repeat.
  struct SpooledSample {
    const VrAbcSpool* positions = nullptr;    ///< x, y, z floats per point; always
    const VrAbcSpool* faceCounts = nullptr;   ///< int32 vertices per face
    const VrAbcSpool* faceIndices = nullptr;  ///< int32 point of each face vertex
    const VrAbcSpool* uvs = nullptr;          ///< u, v floats per value
    VrAbcScope uvScope = VrAbcScope::Vertex;
    const VrAbcSpool* velocities = nullptr;   ///< x, y, z floats per point, units per second
    double bounds[6] = {0, 0, 0, 0, 0, 0};    ///< lower corner, then upper corner
    std::vector<VrAbcSpooledParam> arbitrary;
  };

  /// The order of the face vertices handed to `write`: counter-clockwise seen from outside (the
  /// system's own), reversed on the way out together with face-varying uvs and normals; or
  /// already clockwise, in the file's order, written as they are.
  enum class Winding { CounterClockwise, Clockwise };

  /// Creates the mesh object `name` under `parent`; its samples follow `timeSampling`.
  bool create(VrAbcObjectWriter& parent, const std::string& name, Kind kind, uint32_t timeSampling,
              Winding winding = Winding::CounterClockwise);
  /// Writes the next sample. False with an Error when the first sample lacks points or faces,
  /// or a count does not suit its values.
  bool write(const Sample& sample);
  /// Writes the next sample of a polygon mesh from spools. False with an Error when the first
  /// sample lacks points or faces.
  bool write(const SpooledSample& sample);
  uint32_t numSamples() const { return base.numSamples(); }

  /// Writes a constant arbitrary parameter of points (three floats per point), in
  /// ".arbGeomParams": the reference pose "vorn_Pref", for instance.
  bool writeArbitraryPoints(const std::string& name, const VrAbcView<float>& points,
                            VrAbcScope scope = VrAbcScope::Vertex) {
    return base.writeArbitraryPoints(name, points, scope);
  }
  VrAbcObjectWriter* object() const { return base.object(); }

 private:
  bool writeInt(VrAbcPropertyWriter* prop, int32_t value);

  Kind kind = Kind::PolyMesh;
  Winding winding = Winding::CounterClockwise;
  std::vector<int32_t> faceCounts;  // the latest counts, to reverse samples that repeat them
  VrAbcGeomBaseWriter base;
  VrAbcPropertyWriter* indices = nullptr;
  VrAbcPropertyWriter* counts = nullptr;
  VrAbcPropertyWriter* fvInterpolate = nullptr;
  VrAbcPropertyWriter* fvPropagate = nullptr;
  VrAbcPropertyWriter* interpolate = nullptr;
  VrAbcPropertyWriter* scheme = nullptr;
  VrAbcGeomParamWriter uvs;
  VrAbcGeomParamWriter normals;
  VrAbcPropertyWriter* velocities = nullptr;
  std::vector<VrAbcGeomParamWriter> arbitrary;
};
