#pragma once
// VrRendererContext: the per-thread result record of a parallel render. A worker's primitive
// context points at it; the renderer counts and bounds what the worker emits here instead of in
// its own fields, and merges it when the worker is done (`VrRenderer::reduceContext`). Back ends
// with more per-thread state derive from it (`VrRenderer::newRendererContext`). Only its own
// thread touches it.

#include "geometry/SgBox3T.h"
#include "geometry/SgVec3T.h"

class VrRendererContext {
 public:
  virtual ~VrRendererContext() = default;

  /// @name Primitives emitted for the current face
  /// @{
  int emitCount() const { return emits; }
  void incrEmitCount() { ++emits; }
  void resetEmitCount() { emits = 0; }
  /// @}

  /// @name Primitives emitted by this worker over all its faces
  /// @{
  int totalCount() const { return total; }
  void addTotalCount(int n) { total += n; }
  void setTotalCount(int n) { total = n; }
  /// @}

  /// Start of the current face, for `vrutil::beginTiming` and `vrutil::endTiming`.
  long long& timingMark() { return timing; }

  /// How far what this worker emitted reaches beyond its faces' boxes; 0.01 at the start.
  double maxBound() const { return bound; }
  void setMaxBound(double value) { bound = value; }

  /// @name What was emitted for the current face
  /// @{
  const SgVec3T<double>& emittedOrigin() const { return origin; }
  const SgVec3T<double>& emittedSize() const { return size; }
  bool emittedValid() const { return valid; }
  void setEmittedValid(bool on) { valid = on; }
  /// Stores the box and marks it valid; negative sizes become 0.
  void setEmittedBox(const SgVec3T<double>& minCorner, const SgVec3T<double>& extent);
  /// Grows the box to hold `box`; an invalid `box` changes nothing.
  void mergeEmittedBox(const SgBox3T<double>& box);
  /// The box as the math kit's; invalid while nothing was emitted.
  SgBox3T<double> emittedBox() const;
  /// @}

 private:
  int emits = 0;
  int total = 0;
  long long timing = 0;
  double bound = 0.01;
  SgVec3T<double> origin;
  SgVec3T<double> size;
  bool valid = false;
};
