#pragma once
// VrRandomGenerator: the default generator. It scatters primitives over each face at `density`
// primitives per unit of area.
//
// Locations come from the fixed blue-noise sample table (vrutil::getSample), never from a live
// random source: the face's set and flip are hashed from (description id, geometry name, face),
// the same key that seeds `rand()` in expressions. So a face gets the same locations on every
// run, machine and thread count; a denser face reads further along the same sequence and keeps
// the points it had; a mask keeps the earliest points of the sequence, so thinning stays even;
// and a primitive's id is its place among the face's accepted table points, so it keeps its id
// (and every random value drawn from it) when the mask, the window or a neighbouring face
// changes.
//
// A face that is longer in one direction stretches the sample square the other way (surface
// compensation): points that fall outside the square are dropped and the sequence is read
// further, one table look-up each.
//
// Not read by this build: the `.vuv` point files of `usePoints` (a warning says so once per
// geometry), and the per-face maximum of a density compensation map, which is taken as 1.0, as
// for a missing map.

#include "generators/VrVpdReadingGenerator.h"

#include <string>

/// The per-thread point-file state of a worker.
class VrRandomGeneratorContext : public VrVpdGeneratorContext {};

class VrRandomGenerator : public VrVpdReadingGenerator {
 public:
  /// Largest stretch of the sample square by surface compensation.
  static constexpr double scMax = 10.0;
  /// Stretches within this tolerance of 1 are left out.
  static constexpr double scTolerance = 0.1;

  explicit VrRandomGenerator(VrDescription* description);
  ~VrRandomGenerator() override;

  std::string typeName() const override { return "RandomGenerator"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then "mask" and "densityCompensate ", and with `usePoints` the point file
  /// of each patch under "Point".
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrGeneratorContext> newGeneratorContext() const override;
  void genPrimitives(int face, const std::vector<VrPatch*>& patches, double start, double percent) override;
  void genPrimitivesInParallel(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                               double start, double percent) override;

  /// @name Attributes
  /// @{
  /// Primitives per unit of area, at least 1e-6.
  double density() const { return densityValue; }
  const VrExpression& mask() const { return maskExpr; }
  bool dcFlag() const { return dcOn; }
  const VrExpression& dcExprInternal() const { return dcExpr; }
  const VrExpression& roundOffInternal() const { return roundOffExpr; }
  bool scFlag() const { return scOn; }
  bool usePoints() const { return pointsOn; }
  /// With a trailing separator.
  const std::string& pointDir() const { return pointDirectory; }
  /// @}

  /// The stretch of the sample square on a face: the face's length along u over its length
  /// along v, clamped to [1/scMax, scMax]; 1.0 within the tolerance, with `scFlag` off, on an
  /// unbound patch or a degenerate face.
  double surfaceCompensation(const VrPatch& patch, int face) const;
  /// The most a density compensation map allows on a face (1.0 until maps are read).
  double dcMax(const std::string& geometry, int face) const;

 private:
  void scatter(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches, double start,
               double percent);
  /// Adds the points of the geometry's ".vuv" file on this face.
  void points(VrVpdGeneratorContext& state, VrPrimitiveContext& context, int face,
              const std::vector<VrPatch*>& patches, double percent);
  void warnAboutMask() const;

  double densityValue = 1.0;
  VrExpression maskExpr;
  bool dcOn = false;
  VrExpression dcExpr;
  VrExpression roundOffExpr;
  bool scOn = true;
  bool pointsOn = false;
  std::string pointDirectory;
};
