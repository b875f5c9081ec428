#pragma once
// VrParticleRenderer: exports a description's archive primitives as particles, one particle file
// per render (`particleFile`, default "${DESC}/particles.pdb"; the extension picks the format).
// A primitive counts when its `mask` expression is 0.0001 or more (the default "0.0" keeps none,
// and the file is then written with no particles). The channels, in this order, are position,
// aim_VP, up_VP, scale (vectors), id_VP, descid_VP, ri_VP (ints), rf_VP (float), index_VP (int),
// u_VS, v_VS (floats), faceid_VS, geomid_VS (ints), filled as the fields of `VrInstanceRecord`.
// The dispatch, the marking as culled and the failure rules are those of `VrInstanceRenderer`;
// the file is written at `finishDescription` unless the render failed.

#include "io/particles/VrParticles.h"
#include "renderers/VrInstanceRenderer.h"

class VrParticleRenderer : public VrInstanceRenderer {
 public:
  explicit VrParticleRenderer(VrDescription* description);

  std::string typeName() const override { return "ParticleRenderer"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  /// The base's pairs, then the files of `mask` under prefix + "particleRenderer.mask".
  void getExternalContext(ExternalContext& pairs, const std::string& prefix) const override;

  /// Starts an empty particle set with every channel.
  void initDescription() override;
  /// Writes the set to the expanded `particleFile` unless failed, then releases it.
  void finishDescription() override;

  const VrExpression& mask() const { return maskExpression; }
  const std::string& particleFile() const { return fileName; }
  /// The particles gathered since `initDescription`; empty after `finishDescription`.
  const VrParticleSet& particles() const { return set; }

 protected:
  bool keeps(double u, double v, int face, const std::string* patchName) override;
  bool writeInstance(const VrInstanceRecord& record) override;

 private:
  VrExpression maskExpression;
  std::string fileName;
  VrParticleSet set;
};
