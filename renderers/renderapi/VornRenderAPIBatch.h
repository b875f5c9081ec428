#pragma once
// The storage of one batch of the render back end, and the read-only `PrimitiveCache` view that
// the plug-in's `flush` receives. A batch belongs to one thread (the serial renderer's, or one
// worker's `Renderer2::Context`); the view lives only during the `flush` call.

#include <string>
#include <vector>

#include "base/vrutilUninitialised.h"
#include "renderers/renderapi/VornRenderAPI.h"

namespace VornRenderAPI {

/// Arrays of one batch; vec3 arrays are flat, three floats per entry.
struct Batch {
  static constexpr int FloatChannels = 8;
  static constexpr int IntChannels = 7;
  static constexpr int StringChannels = 6;
  static constexpr int Vec3Channels = 17;

  /// A per-CV row: it grows by a whole primitive at a time, written right after, so growing it
  /// clears nothing.
  using Row = vrutil::UninitialisedFloats;

  unsigned count = 0;                        ///< complete primitives in the batch
  std::vector<Row> points;                   ///< per sample
  std::vector<Row> normals;                  ///< per sample
  std::vector<Row> widths;                   ///< per sample, one per CV
  std::vector<float> floats[FloatChannels];  ///< by PrimitiveCache::EFloatArrayAttribute
  std::vector<int> ints[IntChannels];        ///< by PrimitiveCache::EIntArrayAttribute
  std::vector<std::string> strings[StringChannels];
  std::vector<float> vec3s[Vec3Channels];        ///< by PrimitiveCache::EVec3ArrayAttribute
  std::vector<Row> customFloats;                 ///< per custom channel
  std::vector<std::vector<int>> customInts;      ///< per custom channel
  /// Per archive: the box of its files (6 doubles as `cachedBound` gives them) and whether it
  /// has one.
  std::vector<double> archiveBoxes;
  std::vector<unsigned char> archiveHasBox;

  /// Makes room for `samples` motion samples (never shrinks). Asked per primitive: the test is
  /// inline, the growing is not.
  void sizeSamples(unsigned samples) {
    if (points.size() < samples || normals.size() < samples || widths.size() < samples) growSamples(samples);
  }
  /// Makes `channels` rows in both custom tables (never shrinks).
  void sizeCustoms(size_t channels);
  /// Empties every array and sets the count to 0; the sample rows stay.
  void clear();

 private:
  void growSamples(unsigned samples);
};

/// What a batch view reports besides the arrays: set by the renderer when a description starts.
struct BatchState {
  bool flags[37] = {};
  double primitiveBound = 0.0;
  double maxBound = 0.0;
  float constantWidth = 0.0f;
  int numLodRanges = 0;
  double lodRanges[4][3] = {};
  unsigned batchLimit = 0;
  unsigned sampleCount = 1;
  std::string typeName;
  /// `typeName` as the per-primitive path branches on it, worked out once per setup.
  enum class Kind { Other, Spline, CardOrSphere, Archive } kind = Kind::Other;
  /// One entry per custom channel, in row order: its name, type word and declaration
  /// ("uniform <type>" or "varying <type>" for per-CV values).
  std::vector<std::string> customNames, customTypes, customDeclarations;
};

/// The view handed to `flush`.
class BatchView : public PrimitiveCache {
 public:
  BatchView(const Batch& batch, const BatchState& state) : BatchView(batch, state, state.maxBound) {}
  /// `maxBound` replaces the state's (it grows while a description renders).
  BatchView(const Batch& batch, const BatchState& state, double maxBound)
      : batch(batch), state(state), maxBound(maxBound) {}

  const float* getVec3Array2D(EVec3Array2DAttribute key, unsigned row) const override;
  const int* getIntArray2D(EIntArray2DAttribute key, unsigned row) const override;
  const float* getFloatArray2D(EFloatArray2DAttribute key, unsigned row) const override;
  const float* getVec3Array(EVec3ArrayAttribute key) const override;
  const char* getStringArray(EStringArrayAttribute key, unsigned index) const override;
  const int* getIntArray(EIntArrayAttribute key) const override;
  const float* getFloatArray(EFloatArrayAttribute key) const override;
  const double* getDoubleArray(EDoubleArrayAttribute key) const override;
  const bool* getBoolArray(EBoolArrayAttribute key) const override;
  const double* getVec3(EVec3Attribute key) const override;
  unsigned getUInt(EUIntAttribute key) const override;
  const char* getString() const override;
  int getInt(EIntAttribute key) const override;
  float getFloat(EFloatAttribute key) const override;
  double getDouble(EDoubleAttribute key) const override;
  bool getBool(EBoolAttribute key) const override;

  unsigned getVec3Array2DSize(EVec3Array2DAttribute key, unsigned row) const override;
  unsigned getIntArray2DSize(EIntArray2DAttribute key, unsigned row) const override;
  unsigned getFloatArray2DSize(EFloatArray2DAttribute key, unsigned row) const override;
  unsigned getVec3ArraySize(EVec3ArrayAttribute key) const override;
  unsigned getStringArraySize(EStringArrayAttribute key) const override;
  unsigned getIntArraySize(EIntArrayAttribute key) const override;
  unsigned getFloatArraySize(EFloatArrayAttribute key) const override;
  unsigned getDoubleArraySize(EDoubleArrayAttribute key) const override;
  unsigned getBoolArraySize(EBoolArrayAttribute key) const override;

  bool cachedBound(unsigned prim, double bbox[6]) const override;

 private:
  const Batch::Row* row2D(EVec3Array2DAttribute key, unsigned row) const;
  const Batch::Row* row2D(EFloatArray2DAttribute key, unsigned row) const;
  /// The list behind a string channel: per primitive in the batch, per custom channel in the state.
  const std::vector<std::string>* strings(EStringArrayAttribute key) const;

  const Batch& batch;
  const BatchState& state;
  double maxBound;
};

}  // namespace VornRenderAPI
