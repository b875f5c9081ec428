// The bounding tree is an Embree scene of one triangle geometry. Embree works in single
// precision; it only finds the triangles, and the answers are computed again on the double
// precision copy of the mesh kept here, so that they do not depend on the tree's layout.

#include "geometry/TzBoundingTree.h"

#include "base/VrMessage.h"
#include "geometry/TzGeometry.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <mutex>

namespace {

using Vec = SgVec3T<double>;

// One device for the process, made at the first build; Embree devices are thread-safe.
RTCDevice device() {
  static RTCDevice shared = nullptr;
  static std::once_flag once;
  std::call_once(once, [] {
    shared = rtcNewDevice(nullptr);
    if (!shared) VR_ERROR("The collision library could not be started.");
  });
  return shared;
}

// Skewed directions, so that rays from points of a regular mesh's grid miss its edges.
Vec unit(double x, double y, double z) {
  Vec v(x, y, z);
  v.normalize();
  return v;
}
const std::array<Vec, 3>& rayDirections() {
  static const std::array<Vec, 3> directions = {unit(0.5377, 0.6917, 0.4823), unit(-0.6329, 0.2113, -0.7447),
                                                unit(0.1935, -0.8577, 0.4762)};
  return directions;
}

void setRay(RTCRay& ray, const Vec& origin, const Vec& direction, float tnear, float tfar) {
  ray.org_x = static_cast<float>(origin.x);
  ray.org_y = static_cast<float>(origin.y);
  ray.org_z = static_cast<float>(origin.z);
  ray.dir_x = static_cast<float>(direction.x);
  ray.dir_y = static_cast<float>(direction.y);
  ray.dir_z = static_cast<float>(direction.z);
  ray.tnear = tnear;
  ray.tfar = tfar;
  ray.time = 0.0f;
  ray.mask = 0xFFFFFFFFu;
  ray.id = 0;
  ray.flags = 0;
}

}  // namespace

struct TzBoundingTree::Impl {
  RTCScene scene = nullptr;
  std::vector<Vec> points;
  std::vector<std::array<unsigned, 3>> triangles;
  SgBox3T<double> box;
  float step = 1e-6f;  // how far a parity ray moves past each crossing

  ~Impl() {
    if (scene) rtcReleaseScene(scene);
  }

  void corners(unsigned triangle, Vec& a, Vec& b, Vec& c) const {
    const std::array<unsigned, 3>& t = triangles[triangle];
    a = points[t[0]];
    b = points[t[1]];
    c = points[t[2]];
  }

  // The first hit of the ray from `origin` along `direction` within (tnear, tfar).
  bool cast(const Vec& origin, const Vec& direction, float tnear, float tfar, RTCRayHit& rayHit) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    setRay(rayHit.ray, origin, direction, tnear, tfar);
    rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rayHit.hit.primID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &rayHit);
    return rayHit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }

  bool oddCrossings(const Vec& p, const Vec& direction) const {
    RTCRayHit rayHit;
    float tnear = 0.0f;
    unsigned crossings = 0;
    // Each crossing moves the ray's start past it; the bound only guards against a stuck ray.
    for (size_t guard = 0; guard <= triangles.size(); ++guard) {
      if (!cast(p, direction, tnear, std::numeric_limits<float>::infinity(), rayHit)) break;
      ++crossings;
      tnear = rayHit.ray.tfar + step;
    }
    return (crossings & 1u) != 0;
  }
};

// ---------------------------------------------------------------------------------------------

void TzCurves::refit(const std::vector<SgVec3T<double>>& source, size_t start) {
  first = start;
  points.assign(source.begin() + static_cast<std::ptrdiff_t>(std::min(start, source.size())), source.end());
  box = SgBox3T<double>();
  for (const SgVec3T<double>& p : points) box.extend(p);
}

TzBoundingTree::TzBoundingTree() = default;
TzBoundingTree::~TzBoundingTree() = default;

bool TzBoundingTree::build(const std::vector<Vec>& points, const std::vector<int>& faceCounts,
                           const std::vector<int>& faceIndices, std::string* error) {
  impl.reset();
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  auto made = std::make_unique<Impl>();
  made->points = points;
  size_t at = 0;
  for (int count : faceCounts) {
    if (count < 0 || at + static_cast<size_t>(count) > faceIndices.size())
      return fail("the face vertex counts run past the face vertex list");
    for (int k = 0; k < count; ++k) {
      const int index = faceIndices[at + static_cast<size_t>(k)];
      if (index < 0 || static_cast<size_t>(index) >= points.size()) return fail("a face names a missing point");
    }
    for (int k = 1; k + 1 < count; ++k)
      made->triangles.push_back({static_cast<unsigned>(faceIndices[at]),
                                 static_cast<unsigned>(faceIndices[at + static_cast<size_t>(k)]),
                                 static_cast<unsigned>(faceIndices[at + static_cast<size_t>(k) + 1])});
    at += static_cast<size_t>(count);
  }
  if (made->triangles.empty()) return fail("the mesh has no triangles");
  for (const std::array<unsigned, 3>& t : made->triangles)
    for (unsigned index : t) made->box.extend(points[index]);

  RTCDevice shared = device();
  if (!shared) return fail("the collision library is not available");
  RTCGeometry geometry = rtcNewGeometry(shared, RTC_GEOMETRY_TYPE_TRIANGLE);
  // Buffers made by the library carry the padding its vector loads read past the last vertex.
  auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                               RTC_FORMAT_FLOAT3, 3 * sizeof(float), points.size()));
  auto* indices = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), made->triangles.size()));
  if (!vertices || !indices) {
    rtcReleaseGeometry(geometry);
    return fail("the collision library could not hold the mesh");
  }
  for (size_t i = 0; i < points.size(); ++i) {
    vertices[3 * i] = static_cast<float>(points[i].x);
    vertices[3 * i + 1] = static_cast<float>(points[i].y);
    vertices[3 * i + 2] = static_cast<float>(points[i].z);
  }
  for (size_t i = 0; i < made->triangles.size(); ++i)
    std::copy(made->triangles[i].begin(), made->triangles[i].end(), indices + 3 * i);
  rtcCommitGeometry(geometry);
  made->scene = rtcNewScene(shared);
  rtcSetSceneFlags(made->scene, RTC_SCENE_FLAG_ROBUST);
  rtcAttachGeometry(made->scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(made->scene);
  if (rtcGetDeviceError(shared) != RTC_ERROR_NONE) return fail("the collision library could not build the tree");

  const Vec& size = made->box.size;
  made->step = static_cast<float>(1e-6 * std::max({size.x, size.y, size.z, 1e-3}));
  impl = std::move(made);
  return true;
}

bool TzBoundingTree::isBuilt() const { return impl != nullptr; }

size_t TzBoundingTree::numTriangles() const { return impl ? impl->triangles.size() : 0; }

const SgBox3T<double>& TzBoundingTree::bounds() const {
  static const SgBox3T<double> empty;
  return impl ? impl->box : empty;
}

bool TzBoundingTree::inside(const Vec& p) const {
  if (!impl || !impl->box.contains(p)) return false;
  const std::array<Vec, 3>& directions = rayDirections();
  const bool first = impl->oddCrossings(p, directions[0]);
  if (first == impl->oddCrossings(p, directions[1])) return first;
  return impl->oddCrossings(p, directions[2]);
}

namespace {

struct NearestSearch {
  const TzBoundingTree::Vec* p;
  const std::vector<Vec>* points;
  const std::vector<std::array<unsigned, 3>>* triangles;
  double best = std::numeric_limits<double>::infinity();  // squared distance
  Vec nearest;
  unsigned triangle = std::numeric_limits<unsigned>::max();
};

// Called by the tree for each triangle whose box the query sphere reaches: keeps the nearest
// point and shrinks the sphere to it, so that farther triangles are not visited. Equal
// distances go to the lower triangle index, whatever order the tree visits them in.
bool visitTriangle(RTCPointQueryFunctionArguments* args) {
  auto* search = static_cast<NearestSearch*>(args->userPtr);
  const std::array<unsigned, 3>& t = (*search->triangles)[args->primID];
  const std::vector<Vec>& points = *search->points;
  const Vec q = TzGeometry::closestPointOnTri(*search->p, points[t[0]], points[t[1]], points[t[2]]);
  const double distance = (q - *search->p).lengthSquared();
  if (distance > search->best || (distance == search->best && args->primID > search->triangle)) return false;
  search->best = distance;
  search->nearest = q;
  search->triangle = args->primID;
  args->query->radius =
      std::nextafter(static_cast<float>(std::sqrt(distance)), std::numeric_limits<float>::infinity());
  return true;
}

}  // namespace

bool TzBoundingTree::nearestPoint(const Vec& p, Vec& nearest, int* triangle) const {
  if (!impl) return false;
  NearestSearch search;
  search.p = &p;
  search.points = &impl->points;
  search.triangles = &impl->triangles;
  RTCPointQuery query;
  query.x = static_cast<float>(p.x);
  query.y = static_cast<float>(p.y);
  query.z = static_cast<float>(p.z);
  query.time = 0.0f;
  query.radius = std::numeric_limits<float>::infinity();
  RTCPointQueryContext context;
  rtcInitPointQueryContext(&context);
  rtcPointQuery(impl->scene, &query, &context, visitTriangle, &search);
  if (search.triangle == std::numeric_limits<unsigned>::max()) return false;
  nearest = search.nearest;
  if (triangle) *triangle = static_cast<int>(search.triangle);
  return true;
}

bool TzBoundingTree::intersect(const TzCurves& curves, std::vector<TzInsideInfo>& list) const {
  if (!impl) return false;
  const SgBox3T<double> mine = curves.bounds();
  const Vec lo = impl->box.min, hi = impl->box.maxCorner();
  const Vec clo = mine.min, chi = mine.maxCorner();
  if (!mine.valid || chi.x < lo.x || chi.y < lo.y || chi.z < lo.z || clo.x > hi.x || clo.y > hi.y || clo.z > hi.z)
    return false;
  bool any = false;
  for (size_t k = 0; k < curves.size(); ++k) {
    if (!inside(curves.point(k))) continue;
    TzInsideInfo info;
    info.index = curves.index(k);
    nearestPoint(curves.point(k), info.nearest);
    list.push_back(info);
    any = true;
  }
  return any;
}

bool TzBoundingTree::firstHit(const Vec& a, const Vec& b, TzFirstSegmentIntersection& hit) const {
  if (!impl) return false;
  RTCRayHit rayHit;
  const Vec direction = b - a;
  if (!impl->cast(a, direction, 0.0f, 1.0f, rayHit)) return false;
  Vec ta, tb, tc;
  impl->corners(rayHit.hit.primID, ta, tb, tc);
  // The tree settled which triangle is met; where is worked out on its plane in double.
  double t = rayHit.ray.tfar;
  const Vec normal = (tb - ta).cross(tc - ta);
  const double along = direction.dot(normal);
  if (along != 0.0) t = (ta - a).dot(normal) / along;
  t = std::clamp(t, 0.0, 1.0);
  hit.segment = 0;
  hit.t = t;
  hit.point = a + direction * t;
  hit.triangle = static_cast<int>(rayHit.hit.primID);
  return true;
}

bool TzSegmentMeshIntersector::first(const std::vector<SgVec3T<double>>& polyline,
                                     TzFirstSegmentIntersection& hit) const {
  for (size_t i = 0; i + 1 < polyline.size(); ++i) {
    if (!tree.firstHit(polyline[i], polyline[i + 1], hit)) continue;
    hit.segment = static_cast<int>(i);
    return true;
  }
  return false;
}
