#include "io/VrImportGeometry.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgNurbsSurface.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/SgSurfaceCache.h"
#include "geometry/VrPatch.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurves.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcGeomParam.h"
#include "io/alembic/VrAbcGeomParamWriter.h"
#include "io/alembic/VrAbcNuPatch.h"
#include "io/alembic/VrAbcPlacement.h"
#include "io/alembic/VrAbcPolyMesh.h"
#include "io/alembic/VrAbcSampleInterpolator.h"
#include "io/alembic/VrAbcScalarProperty.h"
#include "io/alembic/VrAbcSchema.h"
#include "io/alembic/VrAbcSubD.h"
#include "io/alembic/VrAbcWinding.h"
#include "primitives/VrBasePrimitive.h"
#include "primitives/VrGuide.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <deque>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const prefName = "vorn_Pref";

// The files read since the last reset: reference surfaces by file, animated ones by file and
// frame. Each surface here carries one SgSurfaceCache reference owned by the memo.
struct ImportMemo {
  std::map<std::string, VrSurfaceTable> references;
  std::map<std::string, VrSurfaceTable> frames;
  // Readers of the last few files, kept open across resets so that a frame range opens its
  // geometry file once; a file changed on disk since it was opened is opened again.
  struct OpenFile {
    std::string path;
    struct timespec modified;
    off_t size;
    std::unique_ptr<CacheUtilHandle> handle;
  };
  std::deque<OpenFile> files;
  unsigned reads = 0;
  VrGeometrySpace space = VrGeometrySpace::World;
  // Part of the names under which the memo's surfaces enter SgSurfaceCache, counted up at each
  // reset, so that surfaces patches still hold from before a reset are never picked up again.
  unsigned generation = 0;
};

ImportMemo& memo() {
  static ImportMemo state;
  return state;
}

constexpr size_t openFilesKept = 4;

// The reader of `path`, opened before when the file is unchanged; null when the path names no
// readable geometry file.
CacheUtil* openReader(const std::string& path) {
  std::deque<ImportMemo::OpenFile>& files = memo().files;
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  for (auto it = files.begin(); it != files.end(); ++it) {
    if (it->path != path) continue;
    if (exists && it->size == status.st_size && it->modified.tv_sec == status.st_mtim.tv_sec &&
        it->modified.tv_nsec == status.st_mtim.tv_nsec)
      return it->handle->getCacheUtil();
    files.erase(it);
    break;
  }
  auto handle = std::make_unique<CacheUtilHandle>(path);
  if (!handle->isValid()) return nullptr;
  CacheUtil* reader = handle->getCacheUtil();
  files.push_back({path, status.st_mtim, status.st_size, std::move(handle)});
  if (files.size() > openFilesKept) files.pop_front();
  return reader;
}

void keyError(const std::string& key, const std::string& a1 = "", const std::string& a2 = "") {
  const std::string text = vrLocName(key, a1, a2);
  VR_ERROR(text.empty() ? key : text);
}

// The one geometry object of a file that a name stands for, read the same way whatever its
// schema.
class GeometryObject {
 public:
  virtual ~GeometryObject() = default;
  virtual bool isMesh() const = 0;
  virtual uint32_t numSamples() const = 0;
  virtual const VrAbcTimeSampling& timeSampling() const = 0;
  virtual bool positions(uint32_t index, std::vector<float>& out) const = 0;
  /// The reference pose; false when the object has none.
  bool pref(std::vector<float>& out) const {
    const VrAbcCompoundProperty& params = arbGeomParams();
    if (!params.valid() || !params.findHeader(prefName)) return false;
    VrAbcGeomParam param;
    VrAbcGeomParam::Sample sample;
    return param.open(params, prefName, VrAbcPod::Float32, 3, nullptr) && param.read(0, sample) &&
           sample.values.as(out);
  }
  /// Builds the surface from `points` with the topology of sample `index`; null when it fails.
  virtual SgSurface* build(uint32_t index, const std::vector<float>& points) const = 0;
  /// Face vertex counts and vertex lists of a mesh, or the vertex count of each curve (with no
  /// indices) of a curve set, at sample `index`. False for a surface.
  virtual bool topology(uint32_t, std::vector<int32_t>&, std::vector<int32_t>&) const { return false; }
  /// Whether the faces may differ between samples.
  virtual bool topologyMayChange() const { return false; }

  /// The transforms above the object; its points are moved through them into world space
  /// unless the import keeps object space.
  VrAbcPlacement placement;
  /// Moves points read at `time` (or, with `atRest`, points of the rest pose) into the space the
  /// import works in. False when a transform cannot be read.
  bool place(std::vector<float>& points, double time, bool interpolate, bool atRest = false) const {
    if (placement.empty() || memo().space == VrGeometrySpace::Object) return true;
    double matrix[4][4];
    if (!(atRest ? placement.firstMatrix(matrix) : placement.worldMatrix(time, interpolate, matrix))) return false;
    VrAbcPlacement::transformPoints(matrix, points);
    return true;
  }

 protected:
  virtual const VrAbcCompoundProperty& arbGeomParams() const = 0;
};

// A mesh's faces as the surfaces want them: the file's clockwise faces reversed. False when the
// face counts do not add up to the indices.
bool counterClockwise(std::vector<int32_t>& fileCounts, const std::vector<int32_t>& fileIndices,
                      std::vector<int32_t>& counts, std::vector<int32_t>& indices) {
  if (!vrabc::reverseEachFace(fileCounts.data(), fileCounts.size(), fileIndices.data(), fileIndices.size(), 1, indices))
    return false;
  counts = std::move(fileCounts);
  return true;
}

SgSurface* buildMesh(const std::vector<int32_t>& counts, const std::vector<int32_t>& indices,
                     const std::vector<float>& points) {
  if (points.empty() || points.size() % 3 != 0 || counts.empty()) return nullptr;
  const int nVerts = static_cast<int>(points.size() / 3);
  for (int32_t index : indices)
    if (index < 0 || index >= nVerts) return nullptr;
  auto* surface =
      new SgSubdSurface(nVerts, points.data(), static_cast<int>(counts.size()), counts.data(), indices.data());
  if (surface->isValid()) return surface;
  delete surface;
  return nullptr;
}

class PolyMeshObject : public GeometryObject {
 public:
  bool open(const VrAbcObject& object) {
    if (!mesh.open(object)) return false;
    const VrAbcCompoundProperty& schema = mesh.geometry().compound();
    if (schema.findHeader(".arbGeomParams")) schema.compound(".arbGeomParams", arbitrary);
    return true;
  }
  bool isMesh() const override { return true; }
  uint32_t numSamples() const override { return mesh.numSamples(); }
  const VrAbcTimeSampling& timeSampling() const override { return mesh.timeSampling(); }
  bool positions(uint32_t index, std::vector<float>& out) const override {
    return mesh.geometry().readPositions(index, out);
  }
  SgSurface* build(uint32_t index, const std::vector<float>& points) const override {
    std::vector<int32_t> counts, indices;
    return topology(index, counts, indices) ? buildMesh(counts, indices, points) : nullptr;
  }
  bool topologyMayChange() const override {
    return mesh.topologyVariance() == VrAbcSchema::Variance::Heterogeneous;
  }
  bool topology(uint32_t index, std::vector<int32_t>& counts, std::vector<int32_t>& indices) const override {
    VrAbcPolyMesh::Sample sample;
    return mesh.read(index, sample) && counterClockwise(sample.faceCounts, sample.faceIndices, counts, indices);
  }

 protected:
  const VrAbcCompoundProperty& arbGeomParams() const override { return arbitrary; }

 private:
  VrAbcPolyMesh mesh;
  VrAbcCompoundProperty arbitrary;
};

class SubDObject : public GeometryObject {
 public:
  bool open(const VrAbcObject& object) { return subd.open(object); }
  bool isMesh() const override { return true; }
  uint32_t numSamples() const override { return subd.numSamples(); }
  const VrAbcTimeSampling& timeSampling() const override { return subd.timeSampling(); }
  bool positions(uint32_t index, std::vector<float>& out) const override {
    return subd.geometry().readPositions(std::min(index, subd.geometry().positions().numSamples() - 1), out);
  }
  SgSurface* build(uint32_t index, const std::vector<float>& points) const override {
    std::vector<int32_t> counts, indices;
    return topology(index, counts, indices) ? buildMesh(counts, indices, points) : nullptr;
  }
  bool topologyMayChange() const override {
    return subd.topologyVariance() == VrAbcSchema::Variance::Heterogeneous;
  }
  bool topology(uint32_t index, std::vector<int32_t>& counts, std::vector<int32_t>& indices) const override {
    VrAbcSubD::Sample sample;
    return subd.read(index, sample) && counterClockwise(sample.faceCounts, sample.faceIndices, counts, indices);
  }

 protected:
  const VrAbcCompoundProperty& arbGeomParams() const override { return subd.arbGeomParams(); }

 private:
  VrAbcSubD subd;
};

void printNurbs(const std::string& name, const VrAbcNuPatch::Sample& s, const std::vector<float>& points) {
  if (VRDebugLevel == 0) return;
  std::ostringstream text;
  text << name << " knotsU:";
  for (float k : s.uKnots) text << ' ' << k;
  text << " knotsV:";
  for (float k : s.vKnots) text << ' ' << k;
  text << " degreeU: " << s.uOrder - 1 << " degreeV: " << s.vOrder - 1 << " verts:";
  for (float p : points) text << ' ' << p;
  VR_DEBUG(1, vrmsg::CatFile, text.str());
}

bool knotsValid(const std::vector<float>& knots, int32_t count) {
  if (count < 0 || knots.size() != static_cast<size_t>(count)) return false;
  for (size_t i = 1; i < knots.size(); ++i)
    if (!(knots[i] >= knots[i - 1])) return false;
  return true;
}

class NurbsSurfaceObject : public GeometryObject {
 public:
  explicit NurbsSurfaceObject(std::string name) : objectName(std::move(name)) {}
  bool open(const VrAbcObject& object) { return patch.open(object); }
  bool isMesh() const override { return false; }
  uint32_t numSamples() const override { return patch.numSamples(); }
  const VrAbcTimeSampling& timeSampling() const override { return patch.timeSampling(); }
  bool positions(uint32_t index, std::vector<float>& out) const override {
    return patch.geometry().readPositions(index, out);
  }
  SgSurface* build(uint32_t index, const std::vector<float>& points) const override {
    VrAbcNuPatch::Sample s;
    if (!patch.read(index, s)) return nullptr;
    const bool degreesOk = s.uOrder >= 1 && s.vOrder >= 1 && s.uOrder - 1 <= SgNurbsSurface::kMaxDegree &&
                           s.vOrder - 1 <= SgNurbsSurface::kMaxDegree && s.numU >= s.uOrder && s.numV >= s.vOrder;
    const char* failure = nullptr;
    if (!degreesOk)
      failure = "rAlembicErrorBadDegrees,key";
    else if (!knotsValid(s.uKnots, s.numU + s.uOrder) || !knotsValid(s.vKnots, s.numV + s.vOrder))
      failure = "rAlembicErrorBadKnot";
    else if (points.size() != static_cast<size_t>(s.numU) * static_cast<size_t>(s.numV) * 3)
      failure = "rAlembicErrorBadControl";
    else if (s.hasWeights && s.weights.size() * 3 != points.size())
      failure = "rAlembicErrorBadWeights";
    if (failure) {
      keyError(failure, objectName);
      printNurbs(objectName, s, points);
      return nullptr;
    }
    const int w = s.hasWeights ? 1 : 0;
    std::vector<double> cvs;
    cvs.reserve(points.size() / 3 * static_cast<size_t>(3 + w));
    for (size_t i = 0; i < points.size() / 3; ++i) {
      const double weight = w ? s.weights[i] : 1.0;
      for (size_t c = 0; c < 3; ++c) cvs.push_back(points[i * 3 + c] * weight);
      if (w) cvs.push_back(weight);
    }
    const std::vector<double> uKnots(s.uKnots.begin(), s.uKnots.end());
    const std::vector<double> vKnots(s.vKnots.begin(), s.vKnots.end());
    return new SgNurbsSurface(static_cast<int>(uKnots.size()), uKnots.data(), static_cast<int>(vKnots.size()),
                              vKnots.data(), s.numU, s.numV, cvs.data(), w);
  }

 protected:
  const VrAbcCompoundProperty& arbGeomParams() const override { return patch.arbGeomParams(); }

 private:
  std::string objectName;
  VrAbcNuPatch patch;
};

class CurvesObject : public GeometryObject {
 public:
  bool open(const VrAbcObject& object) { return curves.open(object); }
  bool isMesh() const override { return false; }
  uint32_t numSamples() const override { return curves.numSamples(); }
  const VrAbcTimeSampling& timeSampling() const override { return curves.timeSampling(); }
  bool positions(uint32_t index, std::vector<float>& out) const override {
    return curves.geometry().readPositions(index, out);
  }
  SgSurface* build(uint32_t, const std::vector<float>&) const override { return nullptr; }
  bool topology(uint32_t index, std::vector<int32_t>& counts, std::vector<int32_t>& indices) const override {
    VrAbcCurves::Sample sample;
    if (!curves.read(index, sample)) return false;
    counts = std::move(sample.numVertices);
    indices.clear();
    return true;
  }

 protected:
  const VrAbcCompoundProperty& arbGeomParams() const override { return curves.arbGeomParams(); }

 private:
  VrAbcCurves curves;
};

// An object of the archive with the transforms that place it.
struct PlacedObject {
  VrAbcObject object;
  VrAbcPlacement placement;
};

// Every object of the archive by stripped name; the first one met wins. Objects under a
// transform that cannot be read are left out (the reader has reported it).
void collectObjects(const VrAbcObject& object, const VrAbcPlacement& placement, int depth,
                    std::map<std::string, PlacedObject>& out) {
  if (depth > 256) return;
  for (size_t i = 0; i < object.numChildren(); ++i) {
    PlacedObject child;
    if (!object.child(i, child.object) || !VrAbcPlacement::below(placement, child.object, child.placement)) continue;
    collectObjects(child.object, child.placement, depth + 1, out);
    out.emplace(vrutil::stripNameSpace(child.object.name()), std::move(child));
  }
}

std::unique_ptr<GeometryObject> openShape(const VrAbcObject& object, const std::string& name);

std::unique_ptr<GeometryObject> openGeometry(const PlacedObject& placed, const std::string& name) {
  std::unique_ptr<GeometryObject> geometry = openShape(placed.object, name);
  if (geometry) geometry->placement = placed.placement;
  return geometry;
}

std::unique_ptr<GeometryObject> openShape(const VrAbcObject& object, const std::string& name) {
  switch (VrAbcSchema::strictKind(object.metaData())) {
    case VrAbcSchema::Kind::PolyMesh: {
      auto mesh = std::make_unique<PolyMeshObject>();
      if (mesh->open(object)) return mesh;
      break;
    }
    case VrAbcSchema::Kind::SubD: {
      auto subd = std::make_unique<SubDObject>();
      if (subd->open(object)) return subd;
      break;
    }
    case VrAbcSchema::Kind::Curves: {
      auto curves = std::make_unique<CurvesObject>();
      if (curves->open(object)) return curves;
      break;
    }
    case VrAbcSchema::Kind::NuPatch: {
      auto patch = std::make_unique<NurbsSurfaceObject>(name);
      if (patch->open(object)) return patch;
      break;
    }
    default:
      break;
  }
  return nullptr;
}

// Positions at `time` in the object's own space: the samples around it blended by `mode`;
// `index` is the sample whose topology goes with them.
bool localPositionsAt(const GeometryObject& geometry, double time, int mode, std::vector<float>& out,
                      uint32_t& index) {
  const uint32_t count = geometry.numSamples();
  uint32_t first = 0, second = 0;
  double weight = 0.0;
  if (!VrAbcSampleInterpolator::bracket(geometry.timeSampling(), count, time, first, second, weight)) return false;
  index = first;
  std::vector<float> a, b;
  if (!geometry.positions(first, a)) return false;
  if (mode == 0 || weight <= 0.0 || first == second) {
    out = std::move(a);
    return true;
  }
  if (!geometry.positions(second, b)) return false;
  if (a.size() != b.size()) {
    out = std::move(a);
    return true;
  }
  if (mode == 1) {
    VrAbcSampleInterpolator::lerp(a, b, weight, out);
    return true;
  }
  // Quadratic and cubic use the neighbours outside the bracket, at their own sample times (so an
  // acyclic sampling with uneven gaps is followed too). Quadratic: the parabola through the
  // sample before, the bracket and, at the start, the sample after. Cubic: the Hermite segment
  // whose tangents at both ends are those of the parabola through that end and its neighbours;
  // at the first or last sample the one parabola there serves, so that steady and steadily
  // accelerated motion keep their shape up to the ends (on even gaps this is Catmull-Rom with
  // the missing neighbour extrapolated along the parabola).
  const VrAbcTimeSampling& sampling = geometry.timeSampling();
  double ta = 0.0, tb = 1.0, tBefore = -1.0, tAfter = 2.0;
  if (!sampling.sampleTime(first, ta) || !sampling.sampleTime(second, tb) || !(tb > ta)) {
    ta = 0.0;
    tb = 1.0;
  }
  std::vector<float> before, after;
  const bool hasBefore = first > 0 && geometry.positions(first - 1, before) && before.size() == a.size() &&
                         sampling.sampleTime(first - 1, tBefore) && tBefore < ta;
  const bool hasAfter = second + 1 < count && geometry.positions(second + 1, after) && after.size() == a.size() &&
                        sampling.sampleTime(second + 1, tAfter) && tAfter > tb;
  const double h = tb - ta;
  const double x = ta + weight * h;
  const double s = weight;
  // Value and slope at `at` of the parabola through (x0, y0), (x1, y1), (x2, y2).
  auto parabola = [](double x0, double x1, double x2, double y0, double y1, double y2, double at, double& slope) {
    const double d0 = (x0 - x1) * (x0 - x2), d1 = (x1 - x0) * (x1 - x2), d2 = (x2 - x0) * (x2 - x1);
    slope = y0 * ((at - x1) + (at - x2)) / d0 + y1 * ((at - x0) + (at - x2)) / d1 + y2 * ((at - x0) + (at - x1)) / d2;
    return y0 * (at - x1) * (at - x2) / d0 + y1 * (at - x0) * (at - x2) / d1 + y2 * (at - x0) * (at - x1) / d2;
  };
  out.resize(a.size());
  for (size_t i = 0; i < a.size(); ++i) {
    const double p1 = a[i], p2 = b[i];
    const double p0 = hasBefore ? before[i] : 0.0, p3 = hasAfter ? after[i] : 0.0;
    double value, slope;
    if (mode == 2) {
      if (hasBefore) value = parabola(tBefore, ta, tb, p0, p1, p2, x, slope);
      else if (hasAfter) value = parabola(ta, tb, tAfter, p1, p2, p3, x, slope);
      else value = p1 + s * (p2 - p1);
    } else {
      double m1 = (p2 - p1) / h, m2 = m1;
      if (hasBefore) parabola(tBefore, ta, tb, p0, p1, p2, ta, m1);
      else if (hasAfter) parabola(ta, tb, tAfter, p1, p2, p3, ta, m1);
      if (hasAfter) parabola(ta, tb, tAfter, p1, p2, p3, tb, m2);
      else if (hasBefore) parabola(tBefore, ta, tb, p0, p1, p2, tb, m2);
      const double s2 = s * s, s3 = s2 * s;
      value = (2 * s3 - 3 * s2 + 1) * p1 + (s3 - 2 * s2 + s) * h * m1 + (-2 * s3 + 3 * s2) * p2 + (s3 - s2) * h * m2;
    }
    out[i] = static_cast<float>(value);
  }
  return true;
}

// Hair is identified by face, so a mesh must keep its faces in every sample: the sample at
// `index` against the first one, from which the reference surface is built. An Error when they
// differ.
bool sameTopology(const GeometryObject& geometry, uint32_t index, const std::string& name, const std::string& file) {
  if (index == 0 || !geometry.topologyMayChange()) return true;
  std::vector<int32_t> firstCounts, firstIndices, counts, indices;
  if (!geometry.topology(0, firstCounts, firstIndices) || !geometry.topology(index, counts, indices)) return true;
  if (firstCounts == counts && firstIndices == indices) return true;
  VR_ERROR("The geometry " + name + " changes its faces over time (" + std::to_string(firstCounts.size()) +
           " faces in its first sample, " + std::to_string(counts.size()) + " in sample " + std::to_string(index) +
           "); hair needs the same faces in every sample. [" + file + "]");
  return false;
}

// Positions at `time` in the space the import works in.
bool positionsAt(const GeometryObject& geometry, double time, int mode, std::vector<float>& out, uint32_t& index) {
  return localPositionsAt(geometry, time, mode, out, index) && geometry.place(out, time, mode != 0);
}

// Enters a new surface in the shared cache under `cacheName` (or finds the one there) and
// gives the memo its reference.
SgSurface* share(const std::string& cacheName, SgSurface* surface) {
  SgSurfaceCache::addSgSurface(cacheName, surface);
  SgSurface* shared = SgSurfaceCache::find(cacheName);
  if (shared != surface) delete surface;
  SgSurfaceCache::ref(shared);
  return shared;
}

bool hasExtension(const std::string& name, std::string& extension) {
  const size_t dot = name.find_last_of('.');
  const size_t slash = name.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
  extension = name.substr(dot);
  return true;
}

// Equal bit for bit (so that -0 and 0 differ and a NaN equals itself).
bool sameFloats(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

std::string frameKey(const std::string& file, double frame) {
  char text[64];
  std::snprintf(text, sizeof text, "(%9.4f)", frame);
  return file + text;
}

}  // namespace

struct AlembicUtil::Archive {
  VrAbcArchive archive;
  std::map<std::string, PlacedObject> objects;
};

bool AlembicUtil::openArchive() {
  if (opened) return true;
  if (access(file.c_str(), F_OK) != 0) {
    keyError("rFileDoesNotExist", file);
    return false;
  }
  auto archive = std::make_shared<Archive>();
  ++memo().reads;
  if (!archive->archive.open(file)) {
    keyError("rUnableToLoadFile", file);
    return false;
  }
  collectObjects(archive->archive.top(), VrAbcPlacement(), 0, archive->objects);
  opened = std::move(archive);
  return true;
}

namespace {

enum class Wanted { Mesh, Curves };

// Opens the named objects in turn for the point readers; false with an Error for a missing
// object or one of another kind.
std::unique_ptr<GeometryObject> openWanted(const std::map<std::string, PlacedObject>& objects, const std::string& name,
                                           Wanted wanted, const std::string& file) {
  auto found = objects.find(vrutil::stripNameSpace(name));
  if (found == objects.end()) {
    keyError("rAlembicErrorNoGeoFound", name, file);
    return nullptr;
  }
  std::unique_ptr<GeometryObject> geometry = openGeometry(found->second, name);
  const bool fits = geometry && (wanted == Wanted::Mesh ? geometry->isMesh()
                                                        : dynamic_cast<const CurvesObject*>(geometry.get()) != nullptr);
  if (!fits) {
    keyError("rAlembicErrorGeoTypeMismatch", name, file);
    return nullptr;
  }
  return geometry;
}

std::vector<SgVec3T<double>> toPoints(const std::vector<float>& values, size_t first, size_t count) {
  std::vector<SgVec3T<double>> points;
  points.reserve(count);
  for (size_t i = first; i < first + count; ++i)
    points.emplace_back(values[i * 3], values[i * 3 + 1], values[i * 3 + 2]);
  return points;
}

}  // namespace

bool AlembicUtil::readCurves(double time, const std::vector<std::string>& names,
                             std::vector<std::vector<SgVec3T<double>>>& curves) {
  curves.clear();
  if (!openArchive()) return false;
  for (const std::string& name : names) {
    std::unique_ptr<GeometryObject> geometry = openWanted(opened->objects, name, Wanted::Curves, file);
    if (!geometry) return false;
    std::vector<float> values;
    std::vector<int32_t> counts, unused;
    uint32_t index = 0;
    if (!positionsAt(*geometry, time, 1, values, index) || !geometry->topology(index, counts, unused)) {
      keyError("rAlembicErrorBadPositionFrame", name, file);
      return false;
    }
    size_t first = 0;
    for (int32_t count : counts) {
      if (count < 0 || first + static_cast<size_t>(count) > values.size() / 3) {
        keyError("rAlembicErrorBadPositionFrame", name, file);
        return false;
      }
      curves.push_back(toPoints(values, first, static_cast<size_t>(count)));
      first += static_cast<size_t>(count);
    }
  }
  return true;
}

bool AlembicUtil::readMeshes(double time, const std::vector<std::string>& names,
                             std::vector<std::vector<SgVec3T<double>>>& positions,
                             std::vector<std::vector<int>>* faceCounts, std::vector<std::vector<int>>* faceIndices) {
  positions.clear();
  if (faceCounts) faceCounts->clear();
  if (faceIndices) faceIndices->clear();
  if (!openArchive()) return false;
  for (const std::string& name : names) {
    std::unique_ptr<GeometryObject> geometry = openWanted(opened->objects, name, Wanted::Mesh, file);
    if (!geometry) return false;
    std::vector<float> values;
    std::vector<int32_t> counts, indices;
    uint32_t index = 0;
    if (!positionsAt(*geometry, time, 1, values, index) ||
        ((faceCounts || faceIndices) && !geometry->topology(index, counts, indices))) {
      keyError("rAlembicErrorBadPositionFrame", name, file);
      return false;
    }
    positions.push_back(toPoints(values, 0, values.size() / 3));
    if (faceCounts) faceCounts->emplace_back(counts.begin(), counts.end());
    if (faceIndices) faceIndices->emplace_back(indices.begin(), indices.end());
  }
  return true;
}

bool AlembicUtil::readMeshPositions(double time, const std::vector<std::string>& names,
                                    std::vector<std::vector<SgVec3T<double>>>& positions) {
  return readMeshes(time, names, positions, nullptr, nullptr);
}

bool AlembicUtil::readMeshes(double time, const std::vector<std::string>& names,
                             std::vector<std::vector<SgVec3T<double>>>& positions,
                             std::vector<std::vector<int>>& faceCounts, std::vector<std::vector<int>>& faceIndices) {
  return readMeshes(time, names, positions, &faceCounts, &faceIndices);
}

bool AlembicUtil::meshNames(std::vector<std::string>& names) {
  names.clear();
  if (!openArchive()) return false;
  for (const auto& entry : opened->objects) {
    std::unique_ptr<GeometryObject> geometry = openGeometry(entry.second, entry.first);
    if (geometry && geometry->isMesh()) names.push_back(entry.first);
  }
  return true;
}

bool AlembicUtil::boundingBox(double time, const std::vector<std::string>& names, SgBox3T<double>& box) {
  box = SgBox3T<double>();
  if (!openArchive()) return false;
  std::vector<std::string> all;
  if (names.empty())
    for (const auto& entry : opened->objects) all.push_back(entry.first);
  for (const std::string& name : names.empty() ? all : names) {
    auto found = opened->objects.find(vrutil::stripNameSpace(name));
    if (found == opened->objects.end()) {
      keyError("rAlembicErrorNoGeoFound", name, file);
      return false;
    }
    std::unique_ptr<GeometryObject> geometry = openGeometry(found->second, name);
    if (!geometry) continue;  // transforms and other objects carry no points
    std::vector<float> values;
    uint32_t index = 0;
    if (!positionsAt(*geometry, time, 1, values, index)) continue;
    for (const SgVec3T<double>& p : toPoints(values, 0, values.size() / 3)) box.extend(p);
  }
  return true;
}

namespace {

const char* const guideIndexName = "vorn_guideIndex";
const char* const spaceName = "vorn_space";
const char* const cvValuePrefix = "vorn_cv_";

// The values of "vorn_cv_<N>" for every CV of a curve of `numCVs` CVs; empty when the curve
// carries none. A missing or unreadable entry gives an empty list for that CV.
std::vector<std::vector<float>> readCVValues(const VrAbcCompoundProperty& params, size_t numCVs) {
  std::vector<std::vector<float>> out;
  if (!params.valid()) return out;
  bool any = false;
  std::vector<std::vector<float>> values(numCVs);
  for (size_t n = 0; n < numCVs; ++n) {
    const std::string name = cvValuePrefix + std::to_string(n);
    if (!params.findHeader(name)) continue;
    VrAbcGeomParam param;
    VrAbcGeomParam::Sample sample;
    if (param.open(params, name, VrAbcPod::Float32, 1, nullptr) && param.read(0, sample) &&
        sample.values.as(values[n]))
      any = true;
  }
  if (any) out = std::move(values);
  return out;
}

// Solves a * x + b * y + c * z = d for (x, y, z); false when the axes are degenerate.
bool solveFrame(const SgVec3T<double>& a, const SgVec3T<double>& b, const SgVec3T<double>& c,
                const SgVec3T<double>& d, SgVec3T<double>& out) {
  const double det = a.dot(b.cross(c));
  if (std::fabs(det) < 1e-12) return false;
  out = SgVec3T<double>(d.dot(b.cross(c)) / det, a.dot(d.cross(c)) / det, a.dot(b.cross(d)) / det);
  return true;
}

// A world-space CV as the guide keeps it: the offset from the reference root in the root frame
// (tangent, normal, binormal), written along the exported u tangent, normal and v tangent (the
// inverse of the placement VrGuide::patchFrame makes).
bool worldToGuide(const VrGuide& guide, const SgVec3T<double>& cv, SgVec3T<double>& out) {
  SgVec3T<double> abc;
  if (!solveFrame(guide.cGuideTangent(true), guide.cGuideN(true), guide.cGuideBinormal(true), cv - guide.cGuideP(true),
                  abc))
    return false;
  out = guide.exportedUTangent() * abc.x + guide.exportedNormal() * abc.y + guide.exportedVTangent() * abc.z;
  return true;
}

// Curve objects with the object above them, in the order of the file.
void collectCurves(const VrAbcObject& object, int depth, std::vector<std::pair<VrAbcObject, VrAbcObject>>& out) {
  if (depth > 256) return;
  for (size_t i = 0; i < object.numChildren(); ++i) {
    VrAbcObject child;
    if (!object.child(i, child)) continue;
    if (VrAbcSchema::strictKind(child.metaData()) == VrAbcSchema::Kind::Curves) out.emplace_back(child, object);
    collectCurves(child, depth + 1, out);
  }
}

std::string readSpace(const VrAbcObject& placement) {
  VrAbcCompoundProperty props;
  VrAbcScalarProperty space;
  VrAbcSample sample;
  if (!placement.properties(props) || !props.findHeader(spaceName) || !props.scalar(spaceName, space) ||
      !space.read(0, sample) || sample.strings.empty())
    return std::string();
  return sample.strings.front();
}

}  // namespace

bool AlembicUtil::readGuideCurves(double time, std::vector<VrCacheCurve>& curves, const std::string& where) {
  curves.clear();
  if (!openArchive()) return false;
  std::vector<std::pair<VrAbcObject, VrAbcObject>> found;
  collectCurves(opened->archive.top(), 0, found);
  bool ok = true;
  for (const auto& entry : found) {
    const VrAbcObject& object = entry.first;
    CurvesObject geometry;
    VrAbcCurves check;
    VrAbcCurves::Sample first;  // type 2 is variable order; type 0 with basis 2 a cubic B-spline
    if (!geometry.open(object) || !check.open(object) || !check.read(0, first) ||
        !(first.type == 2 || (first.type == 0 && first.basis == 2))) {
      VR_ERROR("Object found [" + object.name() + "] is not a nurbs curve. [" + (where.empty() ? file : where) + "]");
      ok = false;
      continue;
    }
    int guideIndex = -1;
    if (check.arbGeomParams().valid() && check.arbGeomParams().findHeader(guideIndexName)) {
      VrAbcGeomParam param;
      VrAbcGeomParam::Sample sample;
      std::vector<int32_t> values;
      if (param.open(check.arbGeomParams(), guideIndexName, VrAbcPod::Int32, 1, nullptr) && param.read(0, sample) &&
          sample.values.as(values) && !values.empty())
        guideIndex = values.front();
    }
    const std::string space = readSpace(entry.second);
    const VrAbcCompoundProperty& params = check.arbGeomParams();
    std::vector<float> values;
    std::vector<int32_t> counts, unused;
    uint32_t index = 0;
    if (!positionsAt(geometry, time, 1, values, index) || !geometry.topology(index, counts, unused)) {
      keyError("rAlembicErrorBadPositionFrame", object.name(), file);
      ok = false;
      continue;
    }
    size_t start = 0;
    for (int32_t count : counts) {
      if (count < 0 || start + static_cast<size_t>(count) > values.size() / 3) break;
      VrCacheCurve curve;
      curve.guideIndex = guideIndex;
      curve.space = space;
      curve.cvs = toPoints(values, start, static_cast<size_t>(count));
      curve.cvValues = readCVValues(params, curve.cvs.size());
      curves.push_back(std::move(curve));
      start += static_cast<size_t>(count);
    }
  }
  return ok;
}

bool AlembicUtil::overrideGuides(VrBasePrimitive& primitive, double time, const std::string& where) {
  if (access(file.c_str(), F_OK) != 0) {
    VR_ERROR("File does not exist: " + file);
    return false;
  }
  if (primitive.numGuides() == 0) {
    VR_ERROR("No guides to override [" + where + "]");
    return false;
  }
  std::vector<VrCacheCurve> curves;
  bool ok = readGuideCurves(time, curves, where);
  for (VrCacheCurve& curve : curves) {
    if (curve.cvs.empty()) continue;
    const bool world = curve.space == "world";
    long target = curve.guideIndex;
    if (target < 0) {
      VR_WARNING(1, "No vorn_guideIndex attribute on rig guide. Use closest guide instead.");
      double best = 0.0;
      for (unsigned i = 0; i < primitive.numGuides(); ++i) {
        const VrGuide& guide = primitive.guide(i);
        const std::vector<SgVec3T<double>>& cvs = guide.iOrigGuideGeom();
        if (cvs.empty()) continue;
        // World-space curves are compared with the root on the surface, when there is one.
        const SgVec3T<double> root = world && guide.transformedToSurface() ? guide.cGuideP(true) : cvs.front();
        const SgVec3T<double> d = root - curve.cvs.front();
        const double distance = d.x * d.x + d.y * d.y + d.z * d.z;
        if (target < 0 || distance < best) {
          target = static_cast<long>(i);
          best = distance;
        }
      }
    }
    if (target < 0 || target >= static_cast<long>(primitive.numGuides())) continue;
    VrGuide& guide = primitive.guide(static_cast<unsigned>(target));
    if (world) {
      bool placed = guide.transformedToSurface() || guide.patchFrame(guide.faceId());
      std::vector<SgVec3T<double>> local(curve.cvs.size());
      for (size_t i = 0; placed && i < curve.cvs.size(); ++i) placed = worldToGuide(guide, curve.cvs[i], local[i]);
      if (placed) {
        curve.cvs = std::move(local);
      } else {
        VR_WARNING(1, "Guide " + std::to_string(target) +
                          " is not on its surface: world space CVs are taken as they are. [" + where + "]");
      }
    }
    if (!curve.cvValues.empty()) {
      std::vector<std::string> names;
      for (auto it = guide.guideCVAttrs().begin(); it != guide.guideCVAttrs().end(); ++it) names.push_back(it.key());
      std::sort(names.begin(), names.end());
      // A guide without names of its own takes the first value as its "break", the per-CV guide
      // attribute that splines and clumping read.
      for (size_t n = 0; n < curve.cvValues.size(); ++n) {
        for (size_t k = 0; k < curve.cvValues[n].size(); ++k) {
          if (k >= names.size()) names.push_back(k == 0 ? std::string("break") : "vorn_cv" + std::to_string(k));
          std::vector<float>* values = guide.guideCVAttrs().find(names[k]);
          if (!values) values = guide.guideCVAttrs().insert(names[k].c_str(), std::vector<float>()).first;
          if (values->size() < curve.cvValues.size()) values->resize(curve.cvValues.size(), 0.0f);
          (*values)[n] = curve.cvValues[n][k];
        }
      }
    }
    guide.setOrigIGeom(std::move(curve.cvs));
  }
  return ok;
}

bool AlembicUtil::writeCurves(const std::vector<VrCacheCurve>& curves) {
  opened.reset();
  VrAbcArchiveWriter writer;
  if (!writer.open(file, VrAbcArchiveWriter::Options())) {
    keyError("rUnableToLoadFile", file);
    return false;
  }
  for (size_t k = 0; k < curves.size(); ++k) {
    const VrCacheCurve& curve = curves[k];
    const std::string name = "guide" + std::to_string(k);
    if (curve.cvs.empty()) {
      VR_ERROR("No CVs to write for curve " + name + " [" + file + "]");
      return false;
    }
    VrAbcObjectWriter* placement = writer.top().createChild(name);
    if (!placement) return false;
    VrAbcPropertyWriter* space =
        placement->properties().createScalar(spaceName, VrAbcMetaData(), VrAbcDataType{VrAbcPod::String, 1}, 0);
    if (!space || !space->setStrings({curve.space})) return false;
    std::vector<float> points;
    for (const SgVec3T<double>& p : curve.cvs)
      points.insert(points.end(), {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)});
    const int32_t count = static_cast<int32_t>(curve.cvs.size());
    const int order = std::min(4, static_cast<int>(count));
    std::vector<float> knots;
    for (int i = 0; i < count + order; ++i) {
      // Clamped and uniform: order zeros, the inner knots 1, 2, ..., then order copies of the end.
      const int value = std::min(std::max(i - order + 1, 0), count - order + 1);
      knots.push_back(static_cast<float>(value));
    }
    const std::vector<int32_t> counts = {count};
    const std::vector<uint8_t> orders = {static_cast<uint8_t>(order)};
    VrAbcCurvesWriter shape;
    if (!shape.create(*placement, name + "Shape", 0)) return false;
    VrAbcCurvesWriter::Sample sample;
    sample.positions = points;
    sample.numVertices = counts;
    sample.type = VrAbcCurvesWriter::VariableOrder;
    sample.basis = VrAbcCurvesWriter::Bspline;
    sample.orders = orders;
    sample.knots = knots;
    if (!shape.write(sample)) return false;
    if (!curve.cvValues.empty()) {
      if (curve.cvValues.size() != curve.cvs.size()) {
        VR_ERROR("Curve " + name + " has values for " + std::to_string(curve.cvValues.size()) + " CVs but " +
                 std::to_string(curve.cvs.size()) + " CVs [" + file + "]");
        return false;
      }
      VrAbcCompoundWriter* params = shape.arbGeomParams();
      if (!params) return false;
      for (size_t n = 0; n < curve.cvValues.size(); ++n) {
        VrAbcGeomParamWriter values;
        const std::vector<float>& cv = curve.cvValues[n];
        if (!values.create(*params, cvValuePrefix + std::to_string(n), VrAbcDataType{VrAbcPod::Float32, 1}, "",
                           VrAbcScope::Constant, false, 0) ||
            !values.write(cv.data(), cv.size(), true))
          return false;
      }
    }
    if (curve.guideIndex >= 0) {
      VrAbcCompoundWriter* params = shape.arbGeomParams();
      VrAbcGeomParamWriter index;
      const int32_t value = curve.guideIndex;
      if (!params ||
          !index.create(*params, guideIndexName, VrAbcDataType{VrAbcPod::Int32, 1}, "", VrAbcScope::Constant, false,
                        0) ||
          !index.write(&value, 1, true))
        return false;
    }
  }
  return writer.close();
}

int AlembicUtil::interpolationMode(const std::string& name) {
  if (name == "none") return 0;
  if (name == "quadratic") return 2;
  if (name == "cubic") return 3;
  return 1;
}

bool AlembicUtil::loadGeometry(const VrPatchTable& patches, double time, const std::string& interpolation,
                               VrSurfaceTable* reference, VrSurfaceTable& animated, const std::string& cachePrefix,
                               const std::string& referencePrefix) {
  if (!openArchive()) return false;
  const int mode = interpolationMode(interpolation);
  const std::map<std::string, PlacedObject>& objects = opened->objects;
  objectNames.clear();
  bool ok = true;
  for (const auto& entry : patches) {
    const std::string name = vrutil::stripNameSpace(entry.first);
    const bool needReference = reference && !reference->count(name);
    if (animated.count(name) && !needReference) continue;
    auto found = objects.find(name);
    if (found == objects.end()) {
      keyError("rAlembicErrorNoGeoFound", name, file);
      ok = false;
      continue;
    }
    objectNames.push_back(name);
    std::unique_ptr<GeometryObject> geometry = openGeometry(found->second, name);
    const std::string kind = entry.second.empty() ? std::string() : entry.second.front()->typeName();
    if (!geometry || (kind == "SubdPatch" && !geometry->isMesh()) ||
        (kind == "NurbsPatch" && !dynamic_cast<const NurbsSurfaceObject*>(geometry.get()))) {
      keyError("rAlembicErrorGeoTypeMismatch", name, file);
      ok = false;
      continue;
    }
    // The reference cage built here, kept so that an animated cage standing where it stands
    // can take the reference surface instead of building its own (a static mesh's usual case).
    std::vector<float> referencePoints;
    SgSurface* builtReference = nullptr;
    if (needReference) {
      std::vector<float>& points = referencePoints;
      const bool fromPref = geometry->pref(points);
      if ((!fromPref && !geometry->positions(0, points)) || !geometry->place(points, 0.0, false, true)) {
        keyError("rAlembicErrorBadPositionFile", name, file);
        ok = false;
        continue;
      }
      SgSurface* surface = geometry->build(0, points);
      if (!surface) {
        keyError("rAlembicErrorBadPosition", name, file);
        ok = false;
        continue;
      }
      builtReference = (*reference)[name] = share(referencePrefix + name, surface);
    }
    if (!animated.count(name)) {
      std::vector<float> points;
      uint32_t index = 0;
      SgSurface* surface = nullptr;
      if (positionsAt(*geometry, time, mode, points, index)) {
        if (!sameTopology(*geometry, index, name, file)) {
          ok = false;
          continue;
        }
        surface = builtReference && index == 0 && sameFloats(points, referencePoints)
                      ? builtReference
                      : geometry->build(index, points);
      }
      if (!surface) {
        keyError("rAlembicErrorBadPositionFrame", name, file);
        ok = false;
        continue;
      }
      animated[name] = share(cachePrefix + name, surface);
    }
  }
  return ok;
}

CacheUtil* CacheUtilHandle::createCacheUtil(const std::string& path) {
  if (path.size() >= 4 && path.compare(path.size() - 4, 4, ".abc") == 0) return new AlembicUtil(path);
  return nullptr;
}

bool VrImportGeometry(const std::string& file, double frame, const std::string& interpolation, double framesPerSecond) {
  std::string expanded = file;
  vrutil::fileCleanup(expanded);
  if (expanded.size() < 4) {
    VR_ERROR("Failed to open file because the filename is too short: " + file + " -> " + expanded);
    return false;
  }

  std::string name;
  bool found = false;
  for (const char* candidate : {".abc", ".lumo"}) {
    if (found) break;
    name = expanded;
    std::string extension;
    if (hasExtension(name, extension) && extension != candidate)
      name = name.substr(0, name.size() - extension.size()) + candidate;
    if (access(name.c_str(), R_OK) != 0) {
      VR_DEBUG(2, vrmsg::CatFile, std::string("Fallback to ") + candidate + " failed: " + file + " -> " + name);
    } else {
      VR_DEBUG(2, vrmsg::CatFile, std::string("Using ") + candidate + ": " + file + " -> " + name);
      found = true;
    }
  }
  if (!found) {
    VR_ERROR("Failed to open file and the fallback attempts also failed: " + file + " -> " + expanded);
    return false;
  }

  const std::string key = frameKey(expanded, frame);
  // Patches go by stripped name; several names may strip to the same one.
  VrPatchTable patches;
  for (const auto& entry : VrImportedPatches()) {
    std::vector<VrPatch*>& list = patches[vrutil::stripNameSpace(entry.first)];
    list.insert(list.end(), entry.second.begin(), entry.second.end());
  }

  ImportMemo& state = memo();
  VrSurfaceTable* reference = nullptr;
  auto knownReference = state.references.find(expanded);
  if (knownReference != state.references.end()) {
    VR_DEBUG(1, vrmsg::CatFile, "Reusing previously loaded pref from file: " + key);
  }
  reference = &state.references[expanded];

  bool complete = state.frames.count(key) != 0;
  VrSurfaceTable& animated = state.frames[key];
  for (const auto& entry : patches)
    if (!animated.count(entry.first) || !reference->count(entry.first)) complete = false;

  bool ok = true;
  if (complete) {
    VR_DEBUG(1, vrmsg::CatFile, "Reusing previously loaded geometry from file(frame): " + key);
  } else {
    VR_DEBUG(1, vrmsg::CatFile, "Importing geometry: " + key);
    CacheUtil* reader = openReader(name);
    const std::string prefix = "abc" + std::to_string(state.generation) + ":";
    if (!reader) {
      keyError("rUnableToLoadFile", name);
      ok = false;
    } else {
      ok = reader->loadGeometry(patches, framesPerSecond > 0.0 ? frame / framesPerSecond : frame,
                                               interpolation, reference, animated, prefix + key + ":",
                                               prefix + expanded + ":pref:");
    }
    VR_DEBUG(1, vrmsg::CatFile, "Done Importing geometry.");
  }

  for (const auto& entry : patches) {
    const std::string& geometryName = entry.first;
    auto ref = reference->find(geometryName);
    auto anim = animated.find(geometryName);
    if (ref == reference->end()) VR_WARNING(1, "No pref specified for: " + geometryName + ". Popping may result.");
    if (anim == animated.end())
      VR_WARNING(1, "No base geometry specified for: " + geometryName + ". Cant render patches on this geometry.");
    for (VrPatch* patch : entry.second) {
      if (anim == animated.end()) {
        VrDescription* description = patch->description();
        const std::string patchName = patch->name();
        VrForgetImportedPatch(patch);
        if (description) description->removePatch(patchName);
        VR_ERROR("Lumo Error. Removing patch: " + geometryName);
        continue;
      }
      patch->bindGeometry(ref == reference->end() ? nullptr : ref->second, anim->second, false);
      // The next sample starts from an empty list.
      VrForgetImportedPatch(patch);
    }
  }
  return ok;
}

bool VrImportGeometry(const std::string& file, const VrPalette& palette, const std::string& interpolation) {
  return VrImportGeometry(file, palette.frame(), interpolation, palette.framesPerSecond());
}

void VrResetImportGeometry() {
  ImportMemo& state = memo();
  for (auto& table : state.references)
    for (auto& entry : table.second) SgSurfaceCache::unref(entry.second);
  for (auto& table : state.frames)
    for (auto& entry : table.second) SgSurfaceCache::unref(entry.second);
  state.references.clear();
  state.frames.clear();
  ++state.generation;
}

void VrCloseGeometryFiles() { memo().files.clear(); }

unsigned VrImportGeometryReadCount() { return memo().reads; }

void VrSetGeometrySpace(VrGeometrySpace space) {
  if (memo().space == space) return;
  VrResetImportGeometry();
  memo().space = space;
}

VrGeometrySpace VrGetGeometrySpace() { return memo().space; }
