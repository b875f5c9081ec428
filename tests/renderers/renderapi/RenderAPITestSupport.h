#pragma once
// Shared fixtures of the render API tests: a small Alembic grid, a collection file that grows
// splines on it, and a callbacks object that records every batch it is given.

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "document/VrPalette.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "renderers/renderapi/VornRenderAPI.h"
#include "support/TempDir.h"

namespace vrtest {

/// One primitive as a batch reported it.
struct RenderedPrim {
  std::string patch;
  int face = 0;
  int id = 0;
  int cvs = 0;
  std::vector<float> points;  // sample 0
  std::vector<float> widths;  // sample 0
  std::vector<float> last;    // points of the last motion sample
  bool operator<(const RenderedPrim& o) const {
    return std::tie(patch, face, id) < std::tie(o.patch, o.face, o.id);
  }
};

/// The length of the polyline through the primitive's sample-0 CVs.
inline double polylineLength(const RenderedPrim& prim) {
  double length = 0.0;
  for (int k = 1; k < prim.cvs; ++k) {
    const float* a = &prim.points[3 * (k - 1)];
    const float* b = &prim.points[3 * k];
    length += std::sqrt((b[0] - a[0]) * (b[0] - a[0]) + (b[1] - a[1]) * (b[1] - a[1]) +
                        (b[2] - a[2]) * (b[2] - a[2]));
  }
  return length;
}

/// Answers the camera questions of a colour pass: a perspective camera with a 90 degree view
/// looking down -z, placed by `cameraXform` (16 numbers, camera to world).
class CameraCallbacks : public VornRenderAPI::ProceduralCallbacks {
 public:
  explicit CameraCallbacks(const char* cameraXform = "1,0,0,0,0,1,0,0,0,0,1,0,0,0,10,1") : xform(cameraXform) {}
  const char* getString(EStringAttribute key) override {
    switch (key) {
      case EStringAttribute::RenderCam:
        return "persp,0,0,-1";
      case EStringAttribute::RenderCamFOV:
        return "90,90";
      case EStringAttribute::RenderCamRatio:
        return "1";
      case EStringAttribute::RenderCamXform:
        return xform;
      case EStringAttribute::Phase:
        return "Final";
      default:
        return "";
    }
  }

 private:
  const char* xform;
};

/// Answers the camera and shutter questions from its fields and records every flush.
class RecordingCallbacks : public CameraCallbacks {
 public:
  using Cache = VornRenderAPI::PrimitiveCache;

  struct Batch {
    std::string name;
    unsigned count = 0;
    unsigned limit = 0;
    unsigned samples = 0;
  };

  void flush(const char* geomName, Cache* cache) override {
    std::lock_guard<std::mutex> lock(mutex);
    Batch batch;
    batch.name = geomName;
    batch.count = cache->getUInt(Cache::EUIntAttribute::BatchCount);
    batch.limit = cache->getUInt(Cache::EUIntAttribute::BatchLimit);
    batch.samples = cache->getUInt(Cache::EUIntAttribute::SampleCount);
    batches.push_back(batch);

    const int* ids = cache->getIntArray(Cache::EIntArrayAttribute::PrimitiveId);
    const int* faces = cache->getIntArray(Cache::EIntArrayAttribute::FaceId);
    const int* counts = cache->getIntArray(Cache::EIntArrayAttribute::CVCount);
    const unsigned nIds = cache->getIntArraySize(Cache::EIntArrayAttribute::PrimitiveId);
    const unsigned nFaces = cache->getIntArraySize(Cache::EIntArrayAttribute::FaceId);
    const unsigned nCounts = cache->getIntArraySize(Cache::EIntArrayAttribute::CVCount);
    const float* points = cache->getVec3Array2D(Cache::EVec3Array2DAttribute::Points, 0);
    const float* widths = cache->getFloatArray2D(Cache::EFloatArray2DAttribute::WidthsPerCV, 0);
    const float* last = batch.samples > 1
                            ? cache->getVec3Array2D(Cache::EVec3Array2DAttribute::Points, batch.samples - 1)
                            : nullptr;
    size_t cv = 0;
    for (unsigned i = 0; i < batch.count; ++i) {
      if (i < nFaces && std::find(done.begin(), done.end(), static_cast<unsigned>(faces[i])) != done.end())
        ++lateFlushes;
      RenderedPrim prim;
      prim.patch = geomName;
      prim.id = i < nIds ? ids[i] : -1;
      prim.face = i < nFaces ? faces[i] : -1;
      prim.cvs = i < nCounts ? counts[i] : 0;
      for (int k = 0; k < prim.cvs; ++k, ++cv) {
        if (points) prim.points.insert(prim.points.end(), points + 3 * cv, points + 3 * cv + 3);
        if (widths) prim.widths.push_back(widths[cv]);
        if (last) prim.last.insert(prim.last.end(), last + 3 * cv, last + 3 * cv + 3);
      }
      prims.push_back(prim);
    }
  }
  void faceDone(const char*, unsigned face) override {
    std::lock_guard<std::mutex> lock(mutex);
    done.push_back(face);
  }
  const float* getFloatArray(EFloatArrayAttribute key) override {
    auto found = arrays.find(static_cast<int>(key));
    return found == arrays.end() ? nullptr : found->second.data();
  }
  unsigned getArraySize(EFloatArrayAttribute key) override {
    auto found = arrays.find(static_cast<int>(key));
    return found == arrays.end() ? 0u : static_cast<unsigned>(found->second.size());
  }
  bool getBool(EBoolAttribute key) override {
    return key == EBoolAttribute::DontReleaseCollection && keepCollection;
  }
  const char* getOverride(const char* name) override {
    auto found = overrides.find(name);
    return found == overrides.end() ? "" : found->second.c_str();
  }

  /// The primitives of every batch, sorted by (patch, face, id).
  std::vector<RenderedPrim> sorted() const {
    std::vector<RenderedPrim> out = prims;
    std::sort(out.begin(), out.end());
    return out;
  }

  std::map<int, std::vector<float>> arrays;
  std::map<std::string, std::string> overrides;
  bool keepCollection = false;
  std::vector<Batch> batches;
  std::vector<RenderedPrim> prims;
  std::vector<unsigned> done;  ///< faces in the order `faceDone` named them
  int lateFlushes = 0;         ///< primitives flushed for a face already done

 private:
  std::mutex mutex;
};

/// A 2 x 2 grid of unit quads named "plane" in z = 0 at frame 24 (fps 24) and z = 1 at frame 25.
inline bool writeGrid(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
  VrAbcObjectWriter* group = writer.top().createChild("group");
  if (!group) return false;
  VrAbcMeshWriter mesh;
  if (!mesh.create(*group, "plane", VrAbcMeshWriter::Kind::SubD, ts)) return false;
  const std::vector<int32_t> counts = {4, 4, 4, 4};
  const std::vector<int32_t> indices = {0, 1, 4, 3, 1, 2, 5, 4, 3, 4, 7, 6, 4, 5, 8, 7};
  for (int s = 0; s < 2; ++s) {
    std::vector<float> positions;
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 3; ++x) positions.insert(positions.end(), {float(x), float(y), float(s)});
    VrAbcMeshWriter::Sample sample;
    sample.positions = positions;
    if (s == 0) {
      sample.faceCounts = counts;
      sample.faceIndices = indices;
    }
    if (!mesh.write(sample)) return false;
  }
  return writer.close();
}

/// A collection `name` with description "hair": splines on the four faces of "plane".
/// `rendererAttrs` are extra lines for the render back end's block.
inline std::string collectionText(const std::string& name, const std::string& rendererAttrs = "",
                                  const std::string& density = "40.0") {
  std::ostringstream out;
  out << "# Vorn Palette File\n#\nFileVersion 18\n\nPalette\n\tname\t\t\t" << name << "\n\tendAttrs\n\n"
      << "Description\n\tname\t\t\thair\n\tendAttrs\n\n"
      << "SplinePrimitive\n\tlength\t\t\t0.5\n\twidth\t\t\t0.02\n\ttaper\t\t\t0.5\n\tendAttrs\n\n"
      << "RandomGenerator\n\tdensity\t\t\t" << density << "\n\tmask\t\t\t1.0\n\tendAttrs\n\n"
      << "RendermanRenderer\n\tprimitiveBound\t\t1.0\n\tfaceid_VS\t\ttrue\n"
      << rendererAttrs << "\tendAttrs\n\n"
      << "\tActive\tSplinePrimitive\n\tActive\tRandomGenerator\n\tActive\tRendermanRenderer\n\n"
      << "Patches\thair\t0\nPatch\tSubd\n\tname\t\tplane\n\tfaceIds\t\t4 0 1 2 3\nendObject\nendPatches\n";
  return out.str();
}

}  // namespace vrtest
