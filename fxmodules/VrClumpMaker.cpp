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
  NearestRoot(const std::vector<Vec>& points, const std::vector<double>& radii) : pts(points), radii(radii) {
    for (double r : radii) widest = std::max(widest, r);
    if (pts.empty()) return;
    lo = hi = pts[0];
    for (const Vec& p : pts)
      for (int k = 0; k < 3; ++k) {
        lo[k] = std::min(lo[k], p[k]);
        hi[k] = std::max(hi[k], p[k]);
      }
    const double cells = std::max(1.0, std::cbrt(static_cast<double>(pts.size())));
    double extent = 0.0;
    for (int k = 0; k < 3; ++k) extent = std::max(extent, hi[k] - lo[k]);
    size = extent > 0.0 ? extent / cells : 1.0;
    for (int k = 0; k < 3; ++k) dims[k] = std::max(1, static_cast<int>((hi[k] - lo[k]) / size) + 1);
    buckets.assign(static_cast<size_t>(dims[0]) * dims[1] * dims[2], {});
    for (size_t i = 0; i < pts.size(); ++i) buckets[bucketOf(cell(pts[i]))].push_back(static_cast<unsigned>(i));
  }

  /// Index of the nearest point (the lowest index among equals); -1 without points of a
  /// positive radius.
  int find(const Vec& q) const {
    if (pts.empty() || widest <= 0.0) return -1;
    int c[3];
    for (int k = 0; k < 3; ++k)
      c[k] = std::clamp(static_cast<int>(std::floor((q[k] - lo[k]) / size)), 0, dims[k] - 1);
    int best = -1;
    double bestD = std::numeric_limits<double>::max();
    const int most = std::max({dims[0], dims[1], dims[2]});
    for (int ring = 0; ring <= most; ++ring) {
      for (int x = c[0] - ring; x <= c[0] + ring; ++x)
        for (int y = c[1] - ring; y <= c[1] + ring; ++y)
          for (int z = c[2] - ring; z <= c[2] + ring; ++z) {
            if (std::max({std::abs(x - c[0]), std::abs(y - c[1]), std::abs(z - c[2])}) != ring) continue;
            if (x < 0 || y < 0 || z < 0 || x >= dims[0] || y >= dims[1] || z >= dims[2]) continue;
            for (unsigned i : buckets[bucketOf({x, y, z})]) {
              if (radii[i] <= 0.0) continue;
              const double d = (pts[i] - q).dot(pts[i] - q) / (radii[i] * radii[i]);
              if (d < bestD || (d == bestD && static_cast<int>(i) < best)) {
                bestD = d;
                best = static_cast<int>(i);
              }
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
  Cell cell(const Vec& p) const {
    Cell out{};
    int* c[3] = {&out.x, &out.y, &out.z};
    for (int k = 0; k < 3; ++k) *c[k] = std::clamp(static_cast<int>((p[k] - lo[k]) / size), 0, dims[k] - 1);
    return out;
  }
  size_t bucketOf(const Cell& c) const {
    return (static_cast<size_t>(c.z) * dims[1] + c.y) * dims[0] + c.x;
  }

  const std::vector<Vec>& pts;
  const std::vector<double>& radii;
  double widest = 0.0;
  Vec lo, hi;
  double size = 1.0;
  int dims[3] = {1, 1, 1};
  std::vector<std::vector<unsigned>> buckets;
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
    for (int face : faces) {
      vrutil::PRNG rng(static_cast<uint64_t>(options.seed) * 2654435761ull ^
                       (static_cast<uint64_t>(vrutil::hashString(patch->name())) << 40) ^
                       static_cast<uint64_t>(face) * 40503ull);
      const double expected = density * std::max(0.0, patch->area(face));
      const int count = static_cast<int>(std::floor(expected + rng.random01()));
      for (int k = 0; k < count; ++k) {
        const double u = rng.random01(), v = rng.random01(), keep = rng.random01();
        if (mask && mask->eval(u, v, face, &patch->name())[0] <= keep) continue;
        roots.push_back(Root{patch, face, u, v});
      }
    }
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
  for (size_t i = 0; i < roots.size(); ++i) {
    const Root& root = roots[i];
    root.patch->evalGeom(root.u, root.v, root.face, points[i], true);
    radii[i] = 1.0 + std::clamp(variance->eval(root.u, root.v, root.face, &root.patch->name())[0], -1.0, 1.0);
  }

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
    std::vector<unsigned char> data;
    for (int f : faces) {
      unsigned short resU = 1, resV = 1;
      patch->computeFaceResolution(resU, resV, f, texels);
      vrptex::FaceInfo info;
      info.res = vrptex::Res(log2Of(resU), log2Of(resV));
      const int nu = info.res.u(), nv = info.res.v();
      data.assign(static_cast<size_t>(nu) * nv * 3, 0);
      for (int j = 0; j < nv; ++j)
        for (int i = 0; i < nu; ++i) {
          const double u = (i + 0.5) / nu, vt = (j + 0.5) / nv;
          Vec p;
          patch->evalGeom(u, flipV ? 1.0 - vt : vt, f, p, true);
          const int g = nearest.find(p);
          vrutil::encodeId2RGB(g < 0 ? 0u : static_cast<unsigned>(g + 1), &data[(static_cast<size_t>(j) * nu + i) * 3]);
        }
      if (!map.writeFace(f, info, data.data())) return false;
    }
    if (!map.close()) return false;
  }
  module.setAttr("mapInitialized", "true", "bool");
  // Searches and textures remembered from before now name stale or missing files.
  vrutil::clearFileCache();
  VrExpression::clearPtexs();
  return true;
}
