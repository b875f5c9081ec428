#pragma once
// VrParticleOutput: one particle per primitive in a particle file (`.pdb`, `.bgeo`, `.bgeo.gz`,
// `.geo`), with the thirteen instance channels: position, aim_VP, up_VP and scale (vectors),
// id_VP, descid_VP, ri_VP, rf_VP, index_VP, u_VS, v_VS, faceid_VS and geomid_VS. The set is
// gathered in memory and written when the render ends.

#include "io/output/VrPrimitiveOutput.h"
#include "io/particles/VrParticles.h"

class VrParticleOutput : public VrPrimitiveOutput {
 public:
  VrParticleOutput(const std::string& path, const VrOutputSettings& settings) : VrPrimitiveOutput(path, settings) {}

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;
  bool wantsInstanceChannels() const override { return true; }

  /// Adds the thirteen channels to `set`, in their order.
  static void addInstanceChannels(VrParticleSet& set);
  /// Appends one particle holding `record` to a set made by `addInstanceChannels`.
  static void addInstance(VrParticleSet& set, const VrInstanceRecord& record);

 private:
  VrParticleSet set;
};
