#pragma once
// VrClumpGuides: the clump guides of a clumping module, a plain second base of the module. A
// guide is an ordinary primitive of the description, grown at a location read from a point file
// (`.vuv`) with the stack in front of the module applied, and kept with its root frame, length,
// segment lengths and accumulated curl angles. Guides are numbered in the order they are read:
// patch by patch, faces ascending, records in file order; a region map names guide i as id i + 1.
//
// Reading happens on the main thread in the module's `initDescription`; afterwards the guides
// are read-only and any number of workers may use them.

#include "geometry/SgVec3T.h"

#include <string>
#include <vector>

class VpdFileCachedReader;
class VrDescription;
class VrFXModule;
class VrFXRamp;
class VrPatch;
class VrPrimitive;

/// One clump guide.
struct VrClumpGuide {
  bool valid = false;  ///< false for a culled or zero-length guide
  double u = 0.0, v = 0.0;
  int face = -1;
  std::string patchName;
  SgVec3T<double> T, A, B;  ///< root frame: normal, then the unit u and v directions
  int region = -1;          ///< the primitive's guide region at its location, -1 for none
  double length = 0.0;
  std::vector<SgVec3T<double>> cvs;
  std::vector<double> curlAngles;      ///< accumulated curl angle per CV (radians per unit curl)
  std::vector<double> segmentLengths;  ///< n - 1 control-polygon segments
  bool filled = false;                 ///< curlAngles is built
  /// The "break" CV values of the interpolation guide that shaped it (the dominant one while
  /// the spline's `breakActive`); empty without.
  std::vector<float> breakValues;
};

class VrClumpGuides {
 public:
  virtual ~VrClumpGuides() = default;

  /// Appends the guides of the Location block of `reader` on the faces of `patch`, grown by
  /// `primitive` with its stack up to `module`. `curlScale`, when given, builds the curl angles.
  /// False with an Error when the file has no Location block. Faces missing from the file are
  /// skipped with a Warning.
  bool readClumpGuides(VrPrimitive* primitive, VrFXModule* module, VrDescription* description,
                       const VpdFileCachedReader& reader, const VrPatch* patch, const VrFXRamp* curlScale,
                       const std::string& path);
  /// The same with the guides grown on the task arena's workers; the guides are identical to
  /// the serial reader's. False (nothing appended) when a worker could not be set up.
  bool readClumpGuidesInParallel(VrPrimitive* primitive, VrFXModule* module, VrDescription* description,
                                 const VpdFileCachedReader& reader, const VrPatch* patch,
                                 const VrFXRamp* curlScale, const std::string& path);
  void clearGuides() { guides.clear(); }
  /// Guides grown from now on are scaled about their root by `scale` (1: as grown).
  void setGuideLengthScale(double scale) { lengthScale = scale; }

  const std::vector<VrClumpGuide>& clumpGuides() const { return guides; }
  size_t numClumpGuides() const { return guides.size(); }

 private:
  bool read(VrPrimitive* primitive, VrFXModule* module, const VpdFileCachedReader& reader,
            const VrPatch* patch, const VrFXRamp* curlScale, const std::string& path, bool parallel);

  std::vector<VrClumpGuide> guides;
  double lengthScale = 1.0;
};
