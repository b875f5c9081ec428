#pragma once
// Writes a set of curves (AbcGeom_Curve_v2): points, vertex count per curve, type, wrap and
// basis, and optionally widths, uv, normals, weights, and per-curve orders with knots for NURBS
// curves. One sample per call; what is not given repeats the previous sample.

#include "io/alembic/VrAbcGeomBaseWriter.h"
#include "io/alembic/VrAbcGeomParamWriter.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>

class VrAbcSpool;

class VrAbcCurvesWriter {
 public:
  /// Stored numbers of the curve type, wrap and basis (see VrAbcCurves).
  enum Type : uint8_t { Cubic = 0, Linear = 1, VariableOrder = 2 };
  enum Wrap : uint8_t { NonPeriodic = 0, Periodic = 1 };
  enum Basis : uint8_t { NoBasis = 0, Bezier = 1, Bspline = 2, CatmullRom = 3, Hermite = 4, Power = 5 };

  struct Sample {
    VrAbcView<float> positions;       ///< x, y, z per point; needed in the first sample
    VrAbcView<int32_t> numVertices;   ///< points per curve; needed in the first sample
    uint8_t type = Cubic;
    uint8_t wrap = NonPeriodic;
    uint8_t basis = Bspline;
    VrAbcView<float> widths;          ///< one per point (vertex scope) or as `widthScope` says
    VrAbcScope widthScope = VrAbcScope::Vertex;
    VrAbcView<float> uvs;
    VrAbcScope uvScope = VrAbcScope::Vertex;
    VrAbcView<float> normals;
    VrAbcScope normalScope = VrAbcScope::Vertex;
    VrAbcView<float> weights;         ///< one per point, for rational curves
    VrAbcView<uint8_t> orders;        ///< one per curve, with type VariableOrder
    VrAbcView<float> knots;
    VrAbcView<float> velocities;      ///< x, y, z per point, in units per second
  };

  /// A sample whose arrays were gathered in spools (see VrAbcSpool), for curve sets too large
  /// to hold in memory. Points, vertex counts and the box are required; widths, one per point,
  /// may be null.
  struct SpooledSample {
    const VrAbcSpool* positions = nullptr;    ///< x, y, z floats per point
    /// Instead of `positions`: the points streamed into the archive already.
    const VrAbcWrittenSample* writtenPositions = nullptr;
    const VrAbcSpool* numVertices = nullptr;  ///< int32 points per curve
    const VrAbcSpool* widths = nullptr;       ///< floats, one per point (vertex scope)
    const VrAbcSpool* velocities = nullptr;   ///< x, y, z floats per point, units per second
    double bounds[6] = {0, 0, 0, 0, 0, 0};    ///< lower corner, then upper corner
    uint8_t type = Cubic;
    uint8_t wrap = NonPeriodic;
    uint8_t basis = Bspline;
  };

  bool create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling);
  bool write(const Sample& sample);
  /// The next sample from spools; what was given to earlier samples but not here (uv, normals,
  /// weights, orders, knots) repeats.
  bool write(const SpooledSample& sample);
  uint32_t numSamples() const { return base.numSamples(); }
  VrAbcObjectWriter* object() const { return base.object(); }
  /// The ".arbGeomParams" compound of the curves, for attributes of their own.
  VrAbcCompoundWriter* arbGeomParams() { return base.arbGeomParams(); }

 private:
  VrAbcGeomBaseWriter base;
  VrAbcPropertyWriter* numVertices = nullptr;
  VrAbcPropertyWriter* basisAndType = nullptr;
  VrAbcGeomParamWriter widths, uvs, normals;
  VrAbcPropertyWriter* weights = nullptr;
  VrAbcPropertyWriter* orders = nullptr;
  VrAbcPropertyWriter* knots = nullptr;
  VrAbcPropertyWriter* velocities = nullptr;
};
