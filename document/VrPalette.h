#pragma once
// VrPalette: a collection, the user's document. It owns its descriptions, its motion sample
// collections and its snapshot, and carries the data search path, the frame state and the world
// transform. Every collection is listed by name in one process-wide dictionary from construction
// to destruction. Main thread only.

#include "base/VrDict.h"
#include "base/VrObject.h"
#include "geometry/SgXform3T.h"

#include <memory>
#include <string>
#include <vector>

class VrDescription;
class VrExpression;

class VrPalette : public VrObject {
 public:
  VrPalette();
  ~VrPalette() override;

  std::string typeName() const override { return "Palette"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  /// @name Descriptions
  /// @{
  /// Takes ownership; false when the description is already held.
  bool addDescription(VrDescription* description);
  /// Releases (does not delete) the first description of that name; false when none.
  bool removeDescription(const std::string& name);
  /// Releases this exact description; false when it is not held.
  bool removeDescription(const VrDescription* description);
  VrDescription* description(const std::string& name) const;
  /// Null past the end.
  VrDescription* description(unsigned index) const;
  unsigned numDescriptions() const { return static_cast<unsigned>(descriptions.size()); }
  /// @}

  /// @name The process-wide collection dictionary
  /// @{
  /// The collection registered under `name`, or null.
  static VrPalette* palette(const std::string& name);
  static const VrDict<VrPalette*>& palettes();
  /// @}

  /// @name Motion samples and snapshot (owned)
  /// @{
  void addSample(VrPalette* sample) { samples.push_back(sample); }
  /// Releases (does not delete) a sample; false when it is not held.
  bool removeSample(const VrPalette* sample);
  VrPalette* sample(unsigned index) const { return index < samples.size() ? samples[index] : nullptr; }
  unsigned numSamples() const { return static_cast<unsigned>(samples.size()); }
  /// Takes ownership of the snapshot, deleting the previous one.
  void setSnapshot(VrPalette* snapshot);
  VrPalette* snapshot() const { return snapshotCollection; }
  /// @}

  /// @name Frame, guides, interpolation and world transform
  /// @{
  double frame() const { return currentFrame; }
  void setFrame(double frame) { currentFrame = frame; }
  double framesPerSecond() const { return fps; }
  void setFramesPerSecond(double value) { fps = value; }
  unsigned maxGuideId() const { return maximumGuideId; }
  void setMaxGuideId(unsigned id) { maximumGuideId = id; }
  void resetMaxGuideId() { maximumGuideId = 0; }
  const std::string& interpolation() const { return interpolationName; }
  void setInterpolation(const std::string& name) { interpolationName = name; }
  const SgXform3T<double>& world() const { return worldXform; }
  void setWorld(const SgXform3T<double>& xform) { worldXform = xform; }
  void setWorld(const double matrix[4][4]);
  const SgXform3T<double>& worldInverse() const { return worldInverseXform; }
  void setWorldInverse(const SgXform3T<double>& xform) { worldInverseXform = xform; }
  void setWorldInverse(const double matrix[4][4]);
  /// @}

  /// @name Data search path
  /// @{
  /// The directories of `vrDataPath`, each ending in a separator.
  const std::vector<std::string>& vrDataPath() const { return dataPathList; }
  /// The directories joined with ';'.
  const std::string& vrDataPathStr() const { return dataPathString; }
  /// @}

  /// The collection expression under `shortName`; an empty pointer when there is none.
  const std::shared_ptr<VrExpression>& namedAttr(const std::string& shortName) const;

 protected:
  void setName(const std::string& value) override;

 private:
  void setDataPath(const std::string& value);

  std::vector<VrDescription*> descriptions;
  std::vector<std::string> dataPathList;
  std::string dataPathString;
  std::vector<VrPalette*> samples;
  VrPalette* snapshotCollection = nullptr;
  double currentFrame = 0.0;
  double fps = 24.0;
  unsigned maximumGuideId = 0;
  std::string interpolationName = "none";
  SgXform3T<double> worldXform;
  SgXform3T<double> worldInverseXform;
};
