// Scattering: each face gets floor(density · area + r) points, r uniform in [0, 1), at uniform
// (u, v), kept where `ptMask` at the point is above a second uniform draw. The stream of a face is
// seeded from (seed, patch name, face), so a face's points do not depend on the other faces.
//
// Regions: a texel centre ((i + 0.5) / resU, (j + 0.5) / resV) of a face is evaluated on the
// reference surface and takes the guide whose root is nearest in space, each distance divided by
// the guide's radius 1 + clamp(`radiusVariance`, -1, 1) read at its root (a radius of 0 takes no
// texel). Roots are bucketed in a uniform grid over their bounding box; the search widens ring by
// ring until no closer root can lie outside the rings searched.

#include "fxmodules/VrClumpMaker.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"
#include "expressions/VrExpression.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "geometry/VrPatch.h"
#include "geometry/vrutilRandom.h"
#include "io/ptex/VrPtexWriter.h"
#include "io/vpd/VpdWriter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using Vec = SgVec3T<double>;

double attrNumber(const VrObject& object, const std::string& name, double fallback) {
  std::string value, type;
  if (!object.getAttr(name, value, type)) return fallback;
  char* end = nullptr;
  const double number = std::strtod(value.c_str(), &end);
  return end != value.c_str() ? number : fallback;
}

// Nearest root by straight-line distance over the root's radius, through a uniform grid of
// buckets.
class NearestRoot {
 public:
  NearestRoot(const std::vector<Vec>& points, const std::vector<double>& radii) {
    for (double r : radii) widest = std::max(widest, r);
    if (points.empty()) return;
    lo = hi = points[0];
    for (const Vec& p : points)
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], p[k]);
        hi[k] = std::max(hi[k], p[k]);
      }
    double extent = 0.0;
    for (int k = 0; k < 3; ++k) extent = std::max(extent, hi[k] - lo[k]);
    const double count = static_cast<double>(points.size());
    size = extent > 0.0 ? extent / std::max(1.0, std::cbrt(count)) : 1.0;
    fill(points, radii);
    // Roots on a surface leave most cells of the cube empty and crowd the rest: shrink the cells
    // as for roots spread over an area until an occupied cell holds about three, with at most
    // 64 cells a root.
    const double perCell = count / static_cast<double>(std::max<size_t>(occupied, 1));
    if (perCell > 3.0) {
      const double smaller = size * std::sqrt(3.0 / perCell);
      double cells = 1.0;
      for (int k = 0; k < 3; ++k) cells *= std::floor((hi[k] - lo[k]) / smaller) + 1.0;
      if (cells <= 64.0 * count) {
        size = smaller;
        fill(points, radii);
      }
    }
  }

  /// Index of the nearest point (the lowest index among equals); -1 without points of a
  /// positive radius.
  int find(const Vec& q) const {
    if (entries.empty() || widest <= 0.0) return -1;
    int c[3];
    for (int k = 0; k < 3; ++k)
      c[k] = std::clamp(static_cast<int>(std::floor((q[k] - lo[k]) / size)), 0, dims[k] - 1);
    int best = -1;
    double bestD = std::numeric_limits<double>::max();
    auto visit = [&](int x, int y, int z) {
      const size_t cellIndex = bucketOf({x, y, z});
      for (unsigned e = starts[cellIndex]; e < starts[cellIndex + 1]; ++e) {
        const Entry& root = entries[e];
        const double d = (root.p - q).dot(root.p - q) / root.r2;
        if (d < bestD || (d == bestD && root.index < best)) {
          bestD = d;
          best = root.index;
        }
      }
    };
    const int most = std::max({dims[0], dims[1], dims[2]});
    for (int ring = 0; ring <= most; ++ring) {
      // The cells of the ring's shell inside the grid: whole columns of z where x or y is on the
      // shell, else only the two cells at z = c ± ring.
      const int z0 = std::max(c[2] - ring, 0), z1 = std::min(c[2] + ring, dims[2] - 1);
      for (int x = std::max(c[0] - ring, 0); x <= std::min(c[0] + ring, dims[0] - 1); ++x)
        for (int y = std::max(c[1] - ring, 0); y <= std::min(c[1] + ring, dims[1] - 1); ++y) {
          if (std::abs(x - c[0]) == ring || std::abs(y - c[1]) == ring) {
            for (int z = z0; z <= z1; ++z) visit(x, y, z);
          } else {
            if (c[2] - ring >= 0) visit(x, y, c[2] - ring);
            if (ring > 0 && c[2] + ring < dims[2]) visit(x, y, c[2] + ring);
          }
        }
      // Everything outside the searched rings lies at least `ring * size` away from q's cell.
      const double reach = ring * size / widest;
      if (best >= 0 && reach * reach >= bestD) break;
    }
    return best;
  }

 private:
  struct Cell {
    int x, y, z;
  };
  /// A root of a positive radius, kept with the others of its cell.
  struct Entry {
    Vec p;
    double r2;
    int index;
  };

  Cell cell(const Vec& p) const {
    Cell out{};
    int* c[3] = {&out.x, &out.y, &out.z};
    for (int k = 0; k < 3; ++k) *c[k] = std::clamp(static_cast<int>((p[k] - lo[k]) / size), 0, dims[k] - 1);
    return out;
  }
  size_t bucketOf(const Cell& c) const {
    return (static_cast<size_t>(c.z) * dims[1] + c.y) * dims[0] + c.x;
  }

  /// Sorts the roots into the cells of the current size, in index order within a cell.
  void fill(const std::vector<Vec>& points, const std::vector<double>& radii) {
    for (int k = 0; k < 3; ++k) dims[k] = std::max(1, static_cast<int>((hi[k] - lo[k]) / size) + 1);
    starts.assign(static_cast<size_t>(dims[0]) * dims[1] * dims[2] + 1, 0);
    std::vector<size_t> cellOf(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
      if (radii[i] <= 0.0) continue;  // takes no texel
      cellOf[i] = bucketOf(cell(points[i]));
      ++starts[cellOf[i] + 1];
    }
    occupied = 0;
    for (size_t c = 1; c < starts.size(); ++c) {
      occupied += starts[c] > 0;
      starts[c] += starts[c - 1];
    }
    entries.resize(starts.back());
    std::vector<unsigned> next(starts.begin(), starts.end() - 1);
    for (size_t i = 0; i < points.size(); ++i)
      if (radii[i] > 0.0) entries[next[cellOf[i]]++] = Entry{points[i], radii[i] * radii[i], static_cast<int>(i)};
  }

  double widest = 0.0;
  Vec lo, hi;
  double size = 1.0;
  int dims[3] = {1, 1, 1};
  std::vector<unsigned> starts;  ///< entries of cell c: [starts[c], starts[c + 1])
  std::vector<Entry> entries;
  size_t occupied = 0;
};

int log2Of(unsigned short res) {
  int k = 0;
  while ((1u << (k + 1)) <= res) ++k;
  return k;
}

}  // namespace

std::vector<VrClumpMaker::Root> VrClumpMaker::scatter(VrClumpingFXModule& module, const Options& options) {
  std::vector<Root> roots;
  VrDescription* desc = module.description();
  if (!desc) return roots;
  const double density = options.density >= 0.0 ? options.density : attrNumber(module, "ptDensity", 1.0);
  const VrExpression* mask = module.ptMaskExpr();
  for (const auto& entry : desc->patches()) {
    const VrPatch* patch = entry.second;
    std::vector<int> faces = patch->faceIds();
    std::sort(faces.begin(), faces.end());
    // Each face draws from a stream of its own, so faces scatter in parallel and join in order.
    std::vector<std::vector<Root>> perFace(faces.size());
    VrTaskManager::parallelChunks(faces.size(), [&](size_t begin, size_t end) {
      for (size_t f = begin; f < end; ++f) {
        const int face = faces[f];
        vrutil::PRNG rng(static_cast<uint64_t>(options.seed) * 2654435761ull ^
                         (static_cast<uint64_t>(vrutil::hashString(patch->name())) << 40) ^
                         static_cast<uint64_t>(face) * 40503ull);
        const double expected = density * std::max(0.0, patch->area(face));
        const int count = static_cast<int>(std::floor(expected + rng.random01()));
        for (int k = 0; k < count; ++k) {
          const double u = rng.random01(), v = rng.random01(), keep = rng.random01();
          if (mask && mask->eval(u, v, face, &patch->name())[0] <= keep) continue;
          perFace[f].push_back(Root{patch, face, u, v});
        }
      }
    });
    for (const std::vector<Root>& face : perFace) roots.insert(roots.end(), face.begin(), face.end());
  }
  return roots;
}

bool VrClumpMaker::make(VrClumpingFXModule& module, const Options& options) {
  VrDescription* desc = module.description();
  if (!desc) return false;
  const std::vector<Root> roots = scatter(module, options);
  std::vector<Vec> points(roots.size());
  std::vector<double> radii(roots.size());
  const VrExpression* variance = module.radiusVarianceExpr();
  VrTaskManager::parallelChunks(roots.size(), [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      const Root& root = roots[i];
      root.patch->evalGeom(root.u, root.v, root.face, points[i], true);
      radii[i] = 1.0 + std::clamp(variance->eval(root.u, root.v, root.face, &root.patch->name())[0], -1.0, 1.0);
    }
  });

  const double texels = attrNumber(module, "texelsPerUnit", 10.0);
  const NearestRoot nearest(points, radii);
  for (const auto& entry : desc->patches()) {
    const VrPatch* patch = entry.second;
    const std::string base = vrutil::stripNameSpace(patch->name());
    std::string pointFile = module.pointDirectory();
    std::string mapFile = module.mapDirectory();
    if (!vrutil::expandOutputFileName(pointFile, patch->name(), desc, module.name(), true) ||
        !vrutil::expandOutputFileName(mapFile, patch->name(), desc, module.name(), true)) {
      VR_ERROR("Cannot make the folders of " + module.pointDirectory() + " and " + module.mapDirectory());
      return false;
    }
    pointFile += base + ".vuv";
    mapFile += base + ".ptx";

    // Points, faces ascending, ids counted per face.
    std::vector<int> faces = patch->faceIds();
    std::sort(faces.begin(), faces.end());
    std::string why;
    std::unique_ptr<VpdWriter> writer =
        VpdWriter::open(pointFile, faces, Vpd::PointPrimitive, 1, Vpd::WorldSpace, {Vpd::LocationBlock}, 0.0f, 1, {},
                        &why);
    if (!writer) {
      VR_ERROR(why);
      return false;
    }
    int face = -1;
    unsigned id = 0;
    for (size_t i = 0; i < roots.size(); ++i) {
      if (roots[i].patch != patch) continue;
      if (roots[i].face != face) {
        face = roots[i].face;
        id = 0;
        if (!writer->startFace(face) || !writer->startBlock(0)) break;
      }
      const Vec& p = points[i];
      writer->writePrim(id++, {static_cast<float>(roots[i].u), static_cast<float>(roots[i].v),
                               static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)});
    }
    if (!writer->close()) {
      VR_ERROR(writer->error());
      return false;
    }

    // The region map: one RGB texel per cell of the face's grid, v flipped on NURBS patches as
    // the map lookup flips it.
    VrPtexWriter::Options ptex;
    ptex.numChannels = 3;
    ptex.numFaces = faces.empty() ? 0 : std::max(faces.back() + 1, patch->numGeomFaces());
    VrPtexWriter map(mapFile, ptex);
    const bool flipV = patch->typeName() == "NurbsPatch";
    // The texels of a batch of faces are found in parallel, then the batch is handed to the
    // writer in order; the batch bounds the maker's own copy of the texels.
    struct FaceTexels {
      vrptex::FaceInfo info;
      std::vector<unsigned char> data;
    };
    constexpr size_t FacesPerBatch = 4096;
    std::vector<FaceTexels> batch;
    for (size_t first = 0; first < faces.size(); first += FacesPerBatch) {
      batch.resize(std::min(FacesPerBatch, faces.size() - first));
      VrTaskManager::parallelChunks(batch.size(), [&](size_t begin, size_t end) {
        for (size_t b = begin; b < end; ++b) {
          const int f = faces[first + b];
          unsigned short resU = 1, resV = 1;
          patch->computeFaceResolution(resU, resV, f, texels);
          FaceTexels& out = batch[b];
          out.info.res = vrptex::Res(log2Of(resU), log2Of(resV));
          const int nu = out.info.res.u(), nv = out.info.res.v();
          out.data.assign(static_cast<size_t>(nu) * nv * 3, 0);
          for (int j = 0; j < nv; ++j)
            for (int i = 0; i < nu; ++i) {
              const double u = (i + 0.5) / nu, vt = (j + 0.5) / nv;
              Vec p;
              patch->evalGeom(u, flipV ? 1.0 - vt : vt, f, p, true);
              const int g = nearest.find(p);
              vrutil::encodeId2RGB(g < 0 ? 0u : static_cast<unsigned>(g + 1),
                                   &out.data[(static_cast<size_t>(j) * nu + i) * 3]);
            }
        }
      });
      for (size_t b = 0; b < batch.size(); ++b)
        if (!map.writeFace(faces[first + b], batch[b].info, batch[b].data.data())) return false;
    }
    if (!map.close()) return false;
  }
  module.setAttr("mapInitialized", "true", "bool");
  // Searches and textures remembered from before now name stale or missing files.
  vrutil::clearFileCache();
  VrExpression::clearPtexs();
  return true;
}
