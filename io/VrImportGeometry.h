#pragma once
// Geometry import: gives the patches of the last collection import (VrImportedPatches) their
// reference and animated surfaces from a geometry file at a frame. Meshes (polygon and
// subdivision) become subdivision surfaces, NURBS surfaces NURBS surfaces; both are entered in
// SgSurfaceCache so that every patch bound to one geometry name shares one surface.
//
// Files are remembered: the reference surfaces by file, the animated surfaces by file and frame
// ("name(frame)"), so a file is parsed once per frame however many times it is asked for. The
// memo holds one reference on each of its surfaces until VrResetImportGeometry.
//
// Main thread only; the tables are process-wide and unlocked.

#include "geometry/SgBox3T.h"
#include "geometry/SgVec3T.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class SgSurface;
class VrBasePrimitive;
class VrPalette;
class VrPatch;

/// The space imported points are given in: the world (through every transform above their
/// object, animated ones at the time read, as the scene places them; the default), or each
/// object's own space.
enum class VrGeometrySpace { World, Object };

/// Surfaces by stripped geometry name.
using VrSurfaceTable = std::map<std::string, SgSurface*>;
/// Patches by stripped geometry name.
using VrPatchTable = std::map<std::string, std::vector<VrPatch*>>;

/// One guide or wire curve of a geometry file: its CVs, root first, the guide it belongs to
/// ("vorn_guideIndex", -1 when the file names none), the space its placement names
/// ("vorn_space": "world" for CVs in world space; anything else, "local" by convention, for CVs
/// already in the guide's own space) and the attribute values of each CV ("vorn_cv_<N>" holds
/// those of CV N; empty when the file has none).
struct VrCacheCurve {
  int guideIndex = -1;
  std::vector<SgVec3T<double>> cvs;
  std::string space;
  std::vector<std::vector<float>> cvValues;
};

/// A reader of geometry files.
class CacheUtil {
 public:
  virtual ~CacheUtil() = default;
  /// Builds surfaces for every name of `patches` at `time` (seconds), the samples around it
  /// blended by `interpolation` ("none", "linear", "quadratic", "cubic"). Animated surfaces go
  /// to `animated`; reference surfaces to `reference` unless it is null. Names already in a
  /// table are left alone. New surfaces are entered in SgSurfaceCache under `cachePrefix` +
  /// name (animated) and `referencePrefix` + name (reference). False when anything failed;
  /// what could be built is kept.
  virtual bool loadGeometry(const VrPatchTable& patches, double time, const std::string& interpolation,
                            VrSurfaceTable* reference, VrSurfaceTable& animated, const std::string& cachePrefix,
                            const std::string& referencePrefix) = 0;
};

/// The reader of Alembic (Ogawa) archives.
class AlembicUtil : public CacheUtil {
 public:
  explicit AlembicUtil(std::string path) : file(std::move(path)) {}
  bool loadGeometry(const VrPatchTable& patches, double time, const std::string& interpolation,
                    VrSurfaceTable* reference, VrSurfaceTable& animated, const std::string& cachePrefix,
                    const std::string& referencePrefix) override;
  const std::string& path() const { return file; }

  /// @name Point readers for modules. Positions are blended linearly between the samples
  /// around `time`. Names are stripped of their name space. False with an Error (by message
  /// key) when an object is missing, of another kind or unreadable.
  /// @{
  /// The control points of every curve of the named curve objects, curve after curve.
  bool readCurves(double time, const std::vector<std::string>& names,
                  std::vector<std::vector<SgVec3T<double>>>& curves);
  /// The points of the named meshes, one list per mesh.
  bool readMeshPositions(double time, const std::vector<std::string>& names,
                         std::vector<std::vector<SgVec3T<double>>>& positions);
  /// The same with each mesh's face vertex counts and face vertex lists.
  bool readMeshes(double time, const std::vector<std::string>& names,
                  std::vector<std::vector<SgVec3T<double>>>& positions, std::vector<std::vector<int>>& faceCounts,
                  std::vector<std::vector<int>>& faceIndices);
  /// The names of the file's meshes (polygon and subdivision), sorted.
  bool meshNames(std::vector<std::string>& names);
  /// The box of the points of the named objects (of every object when `names` is empty).
  bool boundingBox(double time, const std::vector<std::string>& names, SgBox3T<double>& box);
  /// Every curve of the file's curve objects, in file order, as guide curves. An object of
  /// curves that are not NURBS curves is an Error naming `where` (the file when empty) and is
  /// passed over.
  bool readGuideCurves(double time, std::vector<VrCacheCurve>& curves, const std::string& where = "");
  /// Replaces the CVs of the primitive's guides with the file's curves at `time`: each curve
  /// goes to the guide its "vorn_guideIndex" names (passed over when out of range), or without
  /// one to the guide whose root is nearest its first CV. Curves in "world" space are brought
  /// into the guide's space (offsets from its reference root, in its exported frame); a guide
  /// that cannot be placed on its surface takes them as they are, with a warning. CV values go
  /// to the guide's CV attributes, value k of each CV to the k-th attribute name in sorted
  /// order (names "vorn_cv<k>" when the guide has fewer). `where` (the collection path) ends
  /// the Errors. False on any failure.
  bool overrideGuides(VrBasePrimitive& primitive, double time, const std::string& where);
  /// @}

  /// Writes the curves as a new file: for curve k a placement "guide<k>" carrying "vorn_space"
  /// and under it the NURBS curve "guide<k>Shape" (clamped, cubic or of lower order when there
  /// are fewer CVs) carrying "vorn_guideIndex" and, when `cvValues` is given, "vorn_cv_<N>" for
  /// each CV. False with an Error when the file cannot be written, a curve has no CVs, or its
  /// CV values do not come one list per CV.
  bool writeCurves(const std::vector<VrCacheCurve>& curves);

  /// "none" 0, "linear" 1, "quadratic" 2, "cubic" 3; any other name is linear.
  static int interpolationMode(const std::string& name);

 private:
  struct Archive;
  bool openArchive();
  bool readMeshes(double time, const std::vector<std::string>& names,
                  std::vector<std::vector<SgVec3T<double>>>& positions, std::vector<std::vector<int>>* faceCounts,
                  std::vector<std::vector<int>>* faceIndices);

  std::vector<std::string> objectNames;
  std::string file;
  std::shared_ptr<Archive> opened;  // the archive, once read
};

/// Scoped owner of the reader for a path: an AlembicUtil for a name ending in ".abc", none
/// otherwise.
class CacheUtilHandle {
 public:
  explicit CacheUtilHandle(const std::string& path) : util(createCacheUtil(path)) {}
  bool isValid() const { return util != nullptr; }
  CacheUtil* getCacheUtil() const { return util.get(); }

 private:
  static CacheUtil* createCacheUtil(const std::string& path);
  std::unique_ptr<CacheUtil> util;
};

/// Binds the imported patches to the geometry of `file` at `frame` (time = frame /
/// framesPerSecond). A patch whose geometry is missing is removed from its description with an
/// Error; the others bind. False on any failure.
bool VrImportGeometry(const std::string& file, double frame, const std::string& interpolation = "linear",
                      double framesPerSecond = 24.0);
/// The same at the collection's frame and frame rate.
bool VrImportGeometry(const std::string& file, const VrPalette& palette, const std::string& interpolation = "linear");

/// Forgets the surfaces built and lets go of the memo's references on them (patches keep theirs).
void VrResetImportGeometry();
/// Closes the geometry files kept open. They stay open across resets (a frame range opens its
/// file once), at most four at a time, and are opened again when they change on disk.
void VrCloseGeometryFiles();
/// Chooses the space of later imports; a change forgets the surfaces built.
void VrSetGeometrySpace(VrGeometrySpace space);
VrGeometrySpace VrGetGeometrySpace();
/// How many times an archive was opened for geometry since the start of the process.
unsigned VrImportGeometryReadCount();
