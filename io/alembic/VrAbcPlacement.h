#pragma once
// Where an object of an archive stands in the scene: the transforms above it, nearest first.
// Its world matrix composes them up to the first one that does not inherit its parent's (or to
// the top), each read at the samples around the time with its channels blended linearly.

#include "io/alembic/VrAbcXform.h"

#include <vector>

class VrAbcPlacement {
 public:
  /// The placement of a child of the object placed by `parent`: the parent's transforms, with
  /// `object` in front when it is a transform. False when a transform cannot be opened.
  static bool below(const VrAbcPlacement& parent, const VrAbcObject& object, VrAbcPlacement& out);

  bool empty() const { return xforms.empty(); }
  size_t size() const { return xforms.size(); }

  /// The matrix taking the object's points to the world at `time` (row vectors, translation in
  /// row 3); `interpolate` false takes each transform's sample at or before the time. False
  /// when a sample cannot be read.
  bool worldMatrix(double time, bool interpolate, double out[4][4]) const;
  /// The same with every transform at its first sample: the pose of the scene's rest frame.
  bool firstMatrix(double out[4][4]) const;

  /// Moves x, y, z triples by `matrix`, dividing by the homogeneous weight where it is not 1.
  static void transformPoints(const double matrix[4][4], std::vector<float>& xyz);
  static bool isIdentity(const double matrix[4][4]);

 private:
  bool compose(double time, bool atFirst, bool interpolate, double out[4][4]) const;
  std::vector<VrAbcXform> xforms;
};
