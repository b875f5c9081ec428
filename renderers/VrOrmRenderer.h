#pragma once
// VrOrmRenderer: writes a description's primitives as a plain script that a host-side reader
// turns into host geometry: `outputDir` + description name + ".orm". The script is line based,
// one command per line, numbers with up to 9 significant digits:
//
//   orm 1                                    format and version
//   group <description>Dump                  every later command makes geometry under this group
//   curve <face> <id> <n> x y z ...          a spline: a degree-2 curve through its n CVs
//   card <face> <id> <n> x y z ...           a card: a plane subdivided to n vertices, moved to them
//   sphere <face> <id> <n> x y z ...         a sphere: a smooth cube fitted to the CVs
//   import archive                           (once, before the first instance, with outputInstances)
//   instance <face> <id> m00 m01 ... m33     an archive instanced and placed by the 4x4 row-major
//                                            matrix (rows: aim * sx, up * sy, aim x up * sz, P0 1)
//   copy <face> <id> m00 ... m33             the same as a full copy, without outputInstances
//   end
//
// Any other primitive kind is refused with "Unsupported primitive type: <type>", reported once,
// and ends the script. Serial only; main thread. Sample 0 only.

#include "renderers/VrRenderer.h"

#include <fstream>
#include <string>
#include <vector>

class VrOrmRenderer : public VrRenderer {
 public:
  explicit VrOrmRenderer(VrDescription* description);
  ~VrOrmRenderer() override;

  std::string typeName() const override { return "OrmRenderer"; }
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;
  bool okToEmit(int sample, double u, double v) override;
  bool firstSampleOnly() const override { return true; }

  /// Opens the script (creating its directory) and writes the group line.
  void initDescription() override;
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  /// Writes "end" and closes the script.
  void finishDescription() override;

  const std::string& outputDir() const { return outDir; }
  bool outputInstances() const { return instances; }
  /// The script of the last `initDescription`.
  const std::string& outputPath() const { return path; }
  bool failed() const { return failedFlag; }

 private:
  std::string outDir;
  bool instances = true;
  std::string path;
  std::ofstream out;
  bool failedFlag = false;
  bool archiveImported = false;
};
