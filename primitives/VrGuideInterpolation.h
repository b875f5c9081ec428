#pragma once
// Guide reach maps and the weights of guides at a location.
//
// Setup, once per pass (all in reference space):
//  1. gatherNeighbors: a k-d tree of the guide roots; for every face of every bound patch, the
//     spacing of the face's guides sets an n x n sample grid (n in [16, 1000]); the guides
//     nearest each sample become neighbours of each other, and the samples give the face's
//     padded bounding box.
//  2. processGuides: every guide's reach in each direction, to its neighbours.
//  3. associateCandidates: for every sampled face, the guides whose reach can touch its box.
//     Guides are grouped in tiers of reach (a factor of two each, one tree per tier); a face
//     makes one radius query per tier, then an exact sphere-box test. The cost is
//     O(F T log G + C) for F faces, T tiers, G guides and C candidate entries (within a small
//     factor), so a face with many candidates costs in proportion to them, never G squared.
// Each step writes per-item results into slots of its own and merges in index order, so the
// outcome does not depend on the thread count.
//
// Weights: `guideWeights` walks one candidate list; every list is sorted by guide number so a
// location's weights and their sum are the same whichever way the list was found.

#include "geometry/SgVec3T.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class VrDescription;
class VrGuide;

/// Patch name -> face id -> guide numbers (ascending) that may reach that face.
using VrGuideCandidates = std::map<std::string, std::map<int, std::vector<int>>>;

/// A k-nearest and radius search over points. Answers are sorted by (distance, index).
class VrGuidePointTree {
 public:
  explicit VrGuidePointTree(std::vector<SgVec3T<double>> points);
  ~VrGuidePointTree();
  VrGuidePointTree(const VrGuidePointTree&) = delete;
  VrGuidePointTree& operator=(const VrGuidePointTree&) = delete;

  size_t size() const { return pts.size(); }
  /// The k nearest points: (index, distance).
  void nearest(const SgVec3T<double>& P, size_t k, std::vector<std::pair<unsigned, double>>& out) const;
  /// The points within `radius` of P: (index, distance).
  void within(const SgVec3T<double>& P, double radius, std::vector<std::pair<unsigned, double>>& out) const;

 private:
  struct Impl;
  std::vector<SgVec3T<double>> pts;
  std::unique_ptr<Impl> impl;
};

namespace vrguide {

/// Sample box of one face, padded by the largest step between neighbouring samples.
struct FaceBox {
  std::string patchName;
  int face = 0;
  SgVec3T<double> lo, hi;
};

/// Reference roots and normals of the guides; `onSurface` false leaves a guide out of everything.
struct GuideRoots {
  std::vector<SgVec3T<double>> points;
  std::vector<SgVec3T<double>> normals;
  std::vector<char> onSurface;
};

GuideRoots collectRoots(const std::vector<VrGuide>& guides);

/// Fills `neighbourSets` (one ascending list per guide) and `boxes` (one per sampled face, in
/// patch-name then face-list order).
void gatherNeighbors(const std::vector<VrGuide>& guides, const VrDescription& description,
                     const GuideRoots& roots, std::vector<std::vector<int>>& neighbourSets,
                     std::vector<FaceBox>& boxes);

/// Builds every guide's reach map from its neighbours and stores it with `setInterpolation`.
/// A non-empty `connectivityFile` receives the reach maps as text.
void processGuides(std::vector<VrGuide>& guides, const GuideRoots& roots,
                   const std::vector<std::vector<int>>& neighbourSets,
                   const std::string& connectivityFile);

/// The candidate lists of the faces in `boxes`.
void associateCandidates(const std::vector<VrGuide>& guides, const GuideRoots& roots,
                         const std::vector<FaceBox>& boxes, VrGuideCandidates& table);

/// The pseudo-angle in [0, 4) of direction d about a frame (N, tangent): d is projected into the
/// tangent plane; no trigonometry.
double pseudoAngle(SgVec3T<double> d, const SgVec3T<double>& N, const SgVec3T<double>& tangent);

/// Weights of the listed guides at P with normal N: appends (guide, weight) for every weight
/// above 1e-5 and answers their sum. `region` 0 means none; `mask` is the weight of a guide of
/// another region.
double guideWeights(const std::vector<VrGuide>& guides, const std::vector<int>& candidates,
                    const SgVec3T<double>& P, const SgVec3T<double>& N, unsigned region, double mask,
                    std::vector<int>& active, std::vector<double>& weights);

}  // namespace vrguide
