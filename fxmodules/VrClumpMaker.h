#pragma once
// VrClumpMaker: makes the clump guides and region maps of a clumping module without a paint
// application. It scatters guide points on every face of the description's patches and writes
// them as one `.vuv` file per patch under the module's `pointDir`, then gives every texel of a
// region map per patch (Ptex, under `mapDir`, at the module's `texelsPerUnit`) the encoded id of
// the nearest guide root: the clump regions are the Voronoi cells of the guides, measured by
// straight-line distance between points of the reference surface. Called from the main thread;
// the faces are shared among the task manager's workers, and the files are the same on any count.

#include <string>
#include <vector>

class VrClumpingFXModule;
class VrPatch;

class VrClumpMaker {
 public:
  struct Options {
    double density = -1.0;  ///< guides per unit area; negative: the module's `ptDensity`
    unsigned seed = 0;      ///< the same seed makes the same files
  };

  /// One guide root.
  struct Root {
    const VrPatch* patch = nullptr;
    int face = 0;
    double u = 0.0, v = 0.0;
  };

  /// Makes both kinds of files for every patch of the module's description and sets
  /// `mapInitialized`. False (with an Error naming the file) when a file cannot be written;
  /// files written so far stay.
  static bool make(VrClumpingFXModule& module, const Options& options);

  /// The guide roots `make` scatters, in guide order (patches by name, faces ascending).
  static std::vector<Root> scatter(VrClumpingFXModule& module, const Options& options);
};
