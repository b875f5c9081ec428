#pragma once
// Collision geometry: a triangle mesh with a bounding tree over it (`TzBoundingTree`), built
// once per mesh, and the queries the FX modules ask of it: whether points are inside the mesh
// (with the nearest surface point of each that is), the nearest surface point, and the first
// place a segment or a polyline meets the surface. The tree's library stays behind this
// interface; answers are settled in double precision on the triangles it finds.
//
// Inside means inside a closed mesh: a ray from the point crosses the surface an odd number of
// times (two rays of fixed, skewed directions, a third deciding when they disagree).
//
// Threads: `build` runs once, on one thread; every query of a built tree may run on any number
// of threads at once. `TzCurves` is a per-thread work set.

#include "geometry/SgBox3T.h"
#include "geometry/SgVec3T.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// A point found inside the mesh: its index, and the surface point nearest to it.
struct TzInsideInfo {
  int index = -1;
  SgVec3T<double> nearest;
};

/// The first meeting of a segment (or a polyline) with the surface.
struct TzFirstSegmentIntersection {
  int segment = -1;  ///< the polyline segment met (0 for a single segment)
  double t = 0.0;    ///< where along that segment, 0 at its start and 1 at its end
  SgVec3T<double> point;
  int triangle = -1;
};

/// A set of moving curve points to test against a tree; `refit` takes their new positions.
class TzCurves {
 public:
  explicit TzCurves(size_t count = 0) : points(count) {}
  /// Takes points[first..] as the set, point k standing for index first + k of the caller.
  void refit(const std::vector<SgVec3T<double>>& source, size_t first = 0);
  size_t size() const { return points.size(); }
  const SgVec3T<double>& point(size_t k) const { return points[k]; }
  int index(size_t k) const { return static_cast<int>(first + k); }
  const SgBox3T<double>& bounds() const { return box; }

 private:
  std::vector<SgVec3T<double>> points;
  SgBox3T<double> box;
  size_t first = 0;
};

class TzBoundingTree {
 public:
  using Vec = SgVec3T<double>;

  TzBoundingTree();
  ~TzBoundingTree();
  TzBoundingTree(const TzBoundingTree&) = delete;
  TzBoundingTree& operator=(const TzBoundingTree&) = delete;

  /// Builds over polygons given as vertex counts and vertex lists (each polygon a fan of
  /// triangles). False, with `error` set, when there is no triangle, an index is out of range or
  /// the tree cannot be made; the tree is then empty.
  bool build(const std::vector<Vec>& points, const std::vector<int>& faceCounts, const std::vector<int>& faceIndices,
             std::string* error = nullptr);
  bool isBuilt() const;
  size_t numTriangles() const;
  const SgBox3T<double>& bounds() const;

  /// Whether p lies inside the closed mesh.
  bool inside(const Vec& p) const;
  /// The surface point nearest to p; false on an empty tree.
  bool nearestPoint(const Vec& p, Vec& nearest, int* triangle = nullptr) const;
  /// True when any curve point is inside; appends a record for each one that is, in order.
  bool intersect(const TzCurves& curves, std::vector<TzInsideInfo>& list) const;
  /// The first meeting of segment a-b with the surface (t from a); false when it meets none.
  bool firstHit(const Vec& a, const Vec& b, TzFirstSegmentIntersection& hit) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

/// The first meeting of a polyline with the surface of a tree, segment by segment from the
/// polyline's first point.
class TzSegmentMeshIntersector {
 public:
  explicit TzSegmentMeshIntersector(const TzBoundingTree& tree) : tree(tree) {}
  bool first(const std::vector<SgVec3T<double>>& polyline, TzFirstSegmentIntersection& hit) const;

 private:
  const TzBoundingTree& tree;
};
