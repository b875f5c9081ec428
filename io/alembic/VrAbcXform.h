#pragma once
// Reads the transform schema (AbcGeom_Xform_v3): a stack of operations (scale, translate,
// rotate, matrix) stored once, their channel values per sample, and whether the transform
// inherits its parent's.

#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcSchema.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <vector>

class VrAbcXform {
 public:
  /// Operation types as stored (the high four bits of an operation byte).
  enum OpType : uint8_t { Scale = 0, Translate = 1, Rotate = 2, Matrix = 3, RotateX = 4, RotateY = 5, RotateZ = 6 };

  struct Op {
    uint8_t type = Translate;
    uint8_t hint = 0;
    std::vector<double> channels;
  };

  struct Sample {
    bool inherits = true;
    std::vector<Op> ops;
    /// The composed matrix, row by row, translation in row 3 (points are row vectors).
    double matrix[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
  };

  bool open(const VrAbcObject& object);

  /// The samples of ".inherits", 0 without it.
  uint32_t numSamples() const;
  /// The time sampling of ".inherits", or uniform start 0 step 1 without it.
  const VrAbcTimeSampling& timeSampling() const;
  bool isConstantIdentity() const { return constantIdentity; }
  bool isConstant() const { return constant; }

  bool read(uint32_t index, Sample& out) const;

  /// Channels an operation type has (3, 4, 16 or 1; 0 for an unknown type).
  static size_t channelCount(uint8_t type);
  /// "scale", "translate", "rotate", "matrix", "rotateX", "rotateY", "rotateZ" or "unknown".
  static const char* opName(uint8_t type);
  /// Composes the operations, the first applied last, as the format's readers do.
  static void compose(const std::vector<Op>& ops, double out[4][4]);
  /// out = a * b for row-vector matrices (apply a, then b); out may be a or b.
  static void multiply(const double a[4][4], const double b[4][4], double out[4][4]);

 private:
  VrAbcCompoundProperty schema;
  VrAbcScalarProperty inheritsProp;
  bool hasVals = false;
  bool valsAreArray = false;
  VrAbcScalarProperty valsScalar;
  VrAbcArrayProperty valsArray;
  std::vector<Op> opStack;
  bool constantIdentity = true;
  bool constant = true;
};
