#pragma once
// VrParticleOutput: one particle per primitive in a particle file (`.pdb`, `.bgeo`, `.bgeo.gz`,
// `.geo`), with the thirteen instance channels: position, aim_VP, up_VP and scale (vectors),
// id_VP, descid_VP, ri_VP, rf_VP, index_VP, u_VS, v_VS, faceid_VS and geomid_VS. `.bgeo`,
// `.bgeo.gz` and `.geo` are written while the render runs, each run encoded by the thread that
// made it; `.pdb`, which stores each channel of every particle in turn, gathers the set in memory
// and writes it when the render ends.

#include "io/output/VrPrimitiveOutput.h"
#include "io/particles/VrParticleStream.h"
#include "io/particles/VrParticles.h"

#include <memory>

class VrParticleOutput : public VrPrimitiveOutput {
 public:
  VrParticleOutput(const std::string& path, const VrOutputSettings& settings);

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;
  bool wantsInstanceChannels() const override { return true; }
  bool encodesRuns() const override { return streamed; }
  void encode(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
              std::string& bytes) const override;
  bool writeEncoded(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
                    const std::string& bytes) override;

  /// Adds the thirteen channels to `set`, in their order.
  static void addInstanceChannels(VrParticleSet& set);
  /// Appends one particle holding `record` to a set made by `addInstanceChannels`.
  static void addInstance(VrParticleSet& set, const VrInstanceRecord& record);

 private:
  VrParticleSet set;  // the channels; the particles too, when they are not streamed
  bool streamed = false;
  std::unique_ptr<VrParticleStream> stream;
};
