#include "primitives/VrGuideInterpolation.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrGuide.h"

#include <nanoflann.hpp>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <unordered_set>

// ---------------------------------------------------------------------------------------------
// Point tree

namespace {

struct PointCloud {
  const std::vector<SgVec3T<double>>* pts;
  size_t kdtree_get_point_count() const { return pts->size(); }
  double kdtree_get_pt(size_t i, size_t dim) const { return (*pts)[i][static_cast<int>(dim)]; }
  template <class Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }
};

using KdTree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, PointCloud>,
                                                   PointCloud, 3, unsigned>;

bool byDistanceThenIndex(const std::pair<unsigned, double>& a, const std::pair<unsigned, double>& b) {
  return a.second < b.second || (a.second == b.second && a.first < b.first);
}

}  // namespace

struct VrGuidePointTree::Impl {
  explicit Impl(const std::vector<SgVec3T<double>>* pts)
      : cloud{pts}, tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10)) {}
  PointCloud cloud;
  KdTree tree;
};

VrGuidePointTree::VrGuidePointTree(std::vector<SgVec3T<double>> points) : pts(std::move(points)) {
  if (!pts.empty()) impl = std::make_unique<Impl>(&pts);
}

VrGuidePointTree::~VrGuidePointTree() = default;

void VrGuidePointTree::nearest(const SgVec3T<double>& P, size_t k,
                               std::vector<std::pair<unsigned, double>>& out) const {
  out.clear();
  if (!impl || k == 0) return;
  k = std::min(k, pts.size());
  std::vector<unsigned> index(k);
  std::vector<double> dist2(k);
  const double q[3] = {P.x, P.y, P.z};
  const size_t found = impl->tree.knnSearch(q, k, index.data(), dist2.data());
  for (size_t i = 0; i < found; ++i) out.emplace_back(index[i], std::sqrt(dist2[i]));
  std::sort(out.begin(), out.end(), byDistanceThenIndex);
}

void VrGuidePointTree::within(const SgVec3T<double>& P, double radius,
                              std::vector<std::pair<unsigned, double>>& out) const {
  out.clear();
  if (!impl || radius < 0.0) return;
  const double q[3] = {P.x, P.y, P.z};
  std::vector<std::pair<unsigned, double>> found;
  // The L2 metric works in squared distances.
  impl->tree.radiusSearch(q, radius * radius, found, nanoflann::SearchParams(32, 0.0f, false));
  for (auto& f : found) out.emplace_back(f.first, std::sqrt(f.second));
  std::sort(out.begin(), out.end(), byDistanceThenIndex);
}

// ---------------------------------------------------------------------------------------------

namespace vrguide {

namespace {

// Runs fn(i) for i in [0, n), in parallel when multithreading is on.
template <class Fn>
void forEach(size_t n, const Fn& fn) {
  const size_t threads = VrTaskManager::threadCount();
  if (!VrTaskManager::multithreadingEnabled() || threads <= 1 || n <= 1) {
    for (size_t i = 0; i < n; ++i) fn(i);
    return;
  }
  tbb::task_arena arena(static_cast<int>(threads));
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, VrTaskManager::taskGrainSize(n)),
                      [&](const tbb::blocked_range<size_t>& r) {
                        for (size_t i = r.begin(); i != r.end(); ++i) fn(i);
                      });
  });
}

constexpr double kCoincident = 1e-5;
constexpr unsigned kNeighbourQuery = 4;

struct FaceWork {
  const VrPatch* patch;
  int face;
};

// What one face yields: neighbour pairs (g < h), its box, and whether it was sampled.
struct FaceResult {
  std::vector<std::pair<int, int>> pairs;
  FaceBox box;
  bool sampled = false;
};

void addPair(std::unordered_set<unsigned long long>& seen, int a, int b) {
  if (a == b) return;
  if (a > b) std::swap(a, b);
  seen.insert((static_cast<unsigned long long>(static_cast<unsigned>(a)) << 32) |
              static_cast<unsigned>(b));
}

}  // namespace

GuideRoots collectRoots(const std::vector<VrGuide>& guides) {
  GuideRoots roots;
  roots.points.reserve(guides.size());
  roots.normals.reserve(guides.size());
  roots.onSurface.reserve(guides.size());
  for (const VrGuide& g : guides) {
    roots.points.push_back(g.cGuideP(true));
    roots.normals.push_back(g.cGuideN(true));
    roots.onSurface.push_back(g.transformedToSurface() ? 1 : 0);
  }
  return roots;
}

void gatherNeighbors(const std::vector<VrGuide>& guides, const VrDescription& description,
                     const GuideRoots& roots, std::vector<std::vector<int>>& neighbourSets,
                     std::vector<FaceBox>& boxes) {
  neighbourSets.assign(guides.size(), std::vector<int>());
  boxes.clear();

  // The tree holds the guides on the surface; treeGuide maps its indices back.
  std::vector<int> treeGuide;
  std::vector<SgVec3T<double>> treePoints;
  std::map<std::pair<const VrPatch*, int>, std::vector<int>> byFace;
  for (size_t g = 0; g < guides.size(); ++g) {
    if (!roots.onSurface[g]) continue;
    treeGuide.push_back(static_cast<int>(g));
    treePoints.push_back(roots.points[g]);
    byFace[{guides[g].patch(), guides[g].faceId()}].push_back(static_cast<int>(g));
  }
  const VrGuidePointTree tree(std::move(treePoints));

  std::vector<std::pair<int, int>> allPairs;
  for (const auto& entry : description.patches()) {
    const VrPatch* patch = entry.second;
    if (!patch) continue;
    VR_DEBUG(3, vrmsg::CatPrimitive, "Process patch: " + patch->name());
    if (!patch->isBound()) continue;
    const std::vector<int>& faceIds = patch->faceIds();
    std::vector<FaceResult> results(faceIds.size());

    forEach(faceIds.size(), [&](size_t fi) {
      const int face = faceIds[fi];
      VR_DEBUG(4, vrmsg::CatPrimitive, "Process face: " + std::to_string(face));
      FaceResult& result = results[fi];
      std::unordered_set<unsigned long long> seen;
      std::vector<std::pair<unsigned, double>> found;

      double x = 999999.999;
      const auto onFace = byFace.find({patch, face});
      if (onFace != byFace.end()) {
        for (int g : onFace->second) {
          tree.nearest(roots.points[static_cast<size_t>(g)], kNeighbourQuery + 1, found);
          for (const auto& f : found) {
            const int h = treeGuide[f.first];
            if (h == g) continue;
            if (roots.normals[static_cast<size_t>(g)].dot(roots.normals[static_cast<size_t>(h)]) <= 0.0)
              continue;
            if (f.second <= kCoincident) {
              VR_WARNING(2, "Face " + std::to_string(face) + " has coincident " + "guides [" +
                                std::to_string(g) + "," + std::to_string(h) + "]");
              continue;
            }
            x = std::min(x, f.second);
            addPair(seen, g, h);
          }
        }
      }

      double n = 6.0 / x;
      if (n > 1000.0)
        VR_WARNING(2, "Face " + std::to_string(face) + " has guides " + "VERY close together.");
      n = std::min(std::max(n, 16.0), 1000.0);
      const int grid = static_cast<int>(n);

      // Samples run over the closed face, edges included. The guides nearest each sample (with
      // a normal on the sample's side) surround it, so they are neighbours of each other.
      std::vector<SgVec3T<double>> row(static_cast<size_t>(grid)), prevRow;
      SgVec3T<double> lo(1e300, 1e300, 1e300), hi(-1e300, -1e300, -1e300);
      double step = 0.0;
      std::vector<int> around, lastAround;
      for (int j = 0; j < grid; ++j) {
        const double v = static_cast<double>(j) / (grid - 1);
        for (int i = 0; i < grid; ++i) {
          const double u = static_cast<double>(i) / (grid - 1);
          SgVec3T<double> P, N, dPdu, dPdv;
          if (!patch->evalGeom(u, v, face, P, N, dPdu, dPdv, true)) {
            VR_ERROR("Failed to evaluate patch " + patch->name() + " of " + description.name() + " [" +
                     std::to_string(face) + "]");
            return;
          }
          row[static_cast<size_t>(i)] = P;
          for (int c = 0; c < 3; ++c) {
            lo[c] = std::min(lo[c], P[c]);
            hi[c] = std::max(hi[c], P[c]);
          }
          if (i > 0) step = std::max(step, (P - row[static_cast<size_t>(i - 1)]).length());
          if (j > 0) step = std::max(step, (P - prevRow[static_cast<size_t>(i)]).length());

          tree.nearest(P, kNeighbourQuery, found);
          around.clear();
          for (const auto& f : found) {
            const int g = treeGuide[f.first];
            if (N.dot(roots.normals[static_cast<size_t>(g)]) > 0.0) around.push_back(g);
          }
          // Neighbouring samples mostly see the same guides; their pairs are known already.
          if (around == lastAround) continue;
          lastAround = around;
          for (size_t a = 0; a < around.size(); ++a)
            for (size_t b = a + 1; b < around.size(); ++b) {
              const size_t ga = static_cast<size_t>(around[a]), gb = static_cast<size_t>(around[b]);
              if ((roots.points[ga] - roots.points[gb]).length() <= kCoincident) continue;
              addPair(seen, around[a], around[b]);
            }
        }
        prevRow.swap(row);
        row.resize(static_cast<size_t>(grid));
      }
      // Any surface point lies within one grid step of a sample.
      const double pad = step + 1e-6;
      result.box.patchName = patch->name();
      result.box.face = face;
      result.box.lo = lo - SgVec3T<double>(pad, pad, pad);
      result.box.hi = hi + SgVec3T<double>(pad, pad, pad);
      result.sampled = true;
      result.pairs.reserve(seen.size());
      for (unsigned long long key : seen)
        result.pairs.emplace_back(static_cast<int>(key >> 32), static_cast<int>(key & 0xFFFFFFFFu));
    });

    for (FaceResult& r : results) {
      if (!r.sampled) continue;
      allPairs.insert(allPairs.end(), r.pairs.begin(), r.pairs.end());
      boxes.push_back(std::move(r.box));
    }
  }

  std::sort(allPairs.begin(), allPairs.end());
  allPairs.erase(std::unique(allPairs.begin(), allPairs.end()), allPairs.end());
  for (const auto& p : allPairs) {
    neighbourSets[static_cast<size_t>(p.first)].push_back(p.second);
    neighbourSets[static_cast<size_t>(p.second)].push_back(p.first);
  }
  for (auto& set : neighbourSets) std::sort(set.begin(), set.end());
}

double pseudoAngle(SgVec3T<double> d, const SgVec3T<double>& N, const SgVec3T<double>& tangent) {
  d = d - N * d.dot(N);
  d.normalize();
  const double c = std::min(1.0, std::max(-1.0, d.dot(tangent)));
  double a = 1.0 - std::fabs(c) * c;
  if (tangent.cross(d).dot(N) < 0.0) a = 4.0 - a;
  return a;
}

void processGuides(std::vector<VrGuide>& guides, const GuideRoots& roots,
                   const std::vector<std::vector<int>>& neighbourSets,
                   const std::string& connectivityFile) {
  forEach(guides.size(), [&](size_t g) {
    if (!roots.onSurface[g]) return;
    const SgVec3T<double>& P = roots.points[g];
    const SgVec3T<double>& N = roots.normals[g];
    const SgVec3T<double>& T = guides[g].cGuideTangent(true);
    double r0 = 0.001;
    std::vector<std::pair<double, double>> directions;  // (angle, reach)
    for (int h : neighbourSets[g]) {
      SgVec3T<double> d = roots.points[static_cast<size_t>(h)] - P;
      const double e = d.length();
      r0 = std::max(r0, e);
      const double reach = std::max(0.99999 * e, e - 1e-5);
      d.normalize();
      directions.emplace_back(pseudoAngle(d, N, T), reach);
    }
    // Equal angles keep their order of arrival.
    std::stable_sort(directions.begin(), directions.end(),
                     [](const std::pair<double, double>& a, const std::pair<double, double>& b) {
                       return a.first < b.first;
                     });
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.16e", r0);
    std::string text = buffer;
    for (const auto& direction : directions) {
      std::snprintf(buffer, sizeof buffer, ":%.16e", direction.first);
      text += buffer;
      std::snprintf(buffer, sizeof buffer, ":%.16e", direction.second);
      text += buffer;
    }
    guides[g].setInterpolation(text);
  });

  if (connectivityFile.empty()) return;
  std::ofstream out(connectivityFile);
  if (!out) {
    VR_ERROR("Unable to open connectivity file " + connectivityFile);
    return;
  }
  out << "Version: 1\n";
  for (size_t g = 0; g < guides.size(); ++g) out << g << ": " << guides[g].interpolation() << '\n';
  VR_DEBUG(1, vrmsg::CatPrimitive, "Connectivity information written into: " + connectivityFile);
}

void associateCandidates(const std::vector<VrGuide>& guides, const GuideRoots& roots,
                         const std::vector<FaceBox>& boxes, VrGuideCandidates& table) {
  // Guides are put in tiers of reach, each tier spanning a factor of two, with a tree per tier.
  // A face asks each tier for the guides within its half diagonal plus the tier's largest
  // reach, so one guide of great reach cannot make every face look at every guide.
  double minReach = 0.0;
  for (size_t g = 0; g < guides.size(); ++g)
    if (roots.onSurface[g]) {
      const double r = guides[g].maxRadius();
      if (r > 0.0 && (minReach == 0.0 || r < minReach)) minReach = r;
    }
  struct Tier {
    std::vector<int> guide;
    std::vector<SgVec3T<double>> points;
    double maxReach = 0.0;
    std::unique_ptr<VrGuidePointTree> tree;
  };
  std::map<int, Tier> byLevel;
  for (size_t g = 0; g < guides.size(); ++g) {
    if (!roots.onSurface[g]) continue;
    const double r = guides[g].maxRadius();
    const int level = r > minReach ? std::ilogb(r / minReach) : 0;
    Tier& tier = byLevel[level];
    tier.guide.push_back(static_cast<int>(g));
    tier.points.push_back(roots.points[g]);
    tier.maxReach = std::max(tier.maxReach, r);
  }
  std::vector<Tier> tiers;
  for (auto& entry : byLevel) {
    entry.second.tree = std::make_unique<VrGuidePointTree>(std::move(entry.second.points));
    tiers.push_back(std::move(entry.second));
  }

  std::vector<std::vector<int>> lists(boxes.size());
  forEach(boxes.size(), [&](size_t b) {
    const FaceBox& box = boxes[b];
    const SgVec3T<double> centre = (box.lo + box.hi) * 0.5;
    const double halfDiagonal = (box.hi - box.lo).length() * 0.5;
    std::vector<std::pair<unsigned, double>> found;
    std::vector<int>& list = lists[b];
    for (const Tier& tier : tiers) {
      tier.tree->within(centre, halfDiagonal + tier.maxReach, found);
      for (const auto& f : found) {
        const int g = tier.guide[f.first];
        const SgVec3T<double>& P = roots.points[static_cast<size_t>(g)];
        double d2 = 0.0;
        for (int c = 0; c < 3; ++c) {
          const double out = std::max(0.0, std::max(box.lo[c] - P[c], P[c] - box.hi[c]));
          d2 += out * out;
        }
        const double r = guides[static_cast<size_t>(g)].maxRadius();
        if (d2 <= r * r) list.push_back(g);
      }
    }
    std::sort(list.begin(), list.end());
  });
  for (size_t b = 0; b < boxes.size(); ++b) table[boxes[b].patchName][boxes[b].face] = std::move(lists[b]);
}

double guideWeights(const std::vector<VrGuide>& guides, const std::vector<int>& candidates,
                    const SgVec3T<double>& P, const SgVec3T<double>& N, unsigned region, double mask,
                    std::vector<int>& active, std::vector<double>& weights) {
  double sum = 0.0;
  for (int index : candidates) {
    const VrGuide& g = guides[static_cast<size_t>(index)];
    double w = 1.0;
    if (g.region() != 0 && region != 0 && g.region() != region) w = mask;
    const double x = N.dot(g.cGuideN(true));
    if (x < 0.0)
      w = 0.0;
    else if (x < 0.173648178)
      w = w * x / 0.173648178;
    if (w <= 1e-5) continue;

    SgVec3T<double> d = P - g.cGuideP(true);
    const double dist = d.length();
    d.normalize();

    const std::vector<double>& radius = g.radius();
    const std::vector<double>& angle = g.angle();
    const std::vector<double>& delta = g.delta();
    double r = radius[0];
    if (!angle.empty()) {
      const double a = pseudoAngle(d, g.cGuideN(true), g.cGuideTangent(true));
      const size_t n = angle.size();
      const size_t k = static_cast<size_t>(std::upper_bound(angle.begin(), angle.end(), a) - angle.begin());
      if (k == 0 || k == n) {
        const double wrapped = k == 0 ? a + 4.0 - angle[n - 1] : a - angle[n - 1];
        const double f = delta[0] * wrapped;
        r = (1.0 - f) * radius[n] + f * radius[1];
      } else {
        const double f = (a - angle[k - 1]) * delta[k];
        r = (1.0 - f) * radius[k] + f * radius[k + 1];
      }
    }
    const double t = r > 0.0 ? std::min(1.0, std::max(0.0, dist / r)) : 1.0;
    w = (1.0 - t) * w;
    if (w > 1e-5) {
      active.push_back(index);
      weights.push_back(w);
      sum += w;
    }
  }
  return sum;
}

}  // namespace vrguide
