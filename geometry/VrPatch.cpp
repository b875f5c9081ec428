#include "geometry/VrPatch.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "geometry/vrutilMath.h"
#include "expressions/VrExpression.h"
#include "primitives/VrBasePrimitive.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <ostream>

void VrPatch::setFaceIds(std::vector<int> ids) {
  faces = std::move(ids);
  sortFaceIds();
}

void VrPatch::sortFaceIds() { std::sort(faces.begin(), faces.end()); }

bool VrPatch::hasFaceId(int face) const { return std::binary_search(faces.begin(), faces.end(), face); }

bool VrPatch::getAttrValue(const std::string& name, SgVec3T<double>& value) const {
  const SgVec3T<double>* found = customValues.find(name);
  if (!found) return false;
  value = *found;
  return true;
}

void VrPatch::unCullPrim(int face, unsigned id) {
  auto found = culled.find(face);
  if (found == culled.end()) return;
  found->second.erase(id);
  if (found->second.empty()) culled.erase(found);
}

bool VrPatch::isCulled(int face, unsigned id) const {
  auto found = culled.find(face);
  return found != culled.end() && found->second.count(id) != 0;
}

bool VrPatch::exportObj(std::ostream& out) const {
  const std::string type = typeName();
  out << "Patch\t" << type.substr(0, type.size() >= 5 ? type.size() - 5 : 0) << '\n';
  out << "\tname\t\t" << vrutil::stripNameSpace(patchName) << '\n';
  out << "\tfaceIds\t\t" << faces.size();
  for (int face : faces) out << ' ' << face;
  out << '\n';
  if (!culled.empty()) {
    out << "\tculledPrims\t" << culled.size();
    for (const auto& entry : culled) {
      out << '\t' << entry.first << ' ' << entry.second.size() << ' ';
      for (unsigned id : entry.second) out << ' ' << id;
    }
    out << '\n';
  }
  out << "\tanimCurves\t" << curves.size() << '\t';
  for (auto it = curves.begin(); it != curves.end(); ++it) out << ' ' << it.key();
  out << '\n';
  return out.good();
}

bool VrPatch::importObj(std::istream& in) {
  std::string token;
  while (in >> token) {
    if (token == "endObject") return true;
    VR_DEBUG(5, vrmsg::CatPatch, "   Patch Token: " + token);
    if (!processToken(token, in)) {
      VR_ERROR("Unrecognized token: " + token + " in Patch import.");
      return false;
    }
    if (in.fail()) {
      VR_ERROR("Unable to read the value of " + token + " in Patch import.");
      return false;
    }
  }
  VR_ERROR("The file ends inside the patch " + patchName + ".");
  return false;
}

bool VrPatch::processToken(const std::string& token, std::istream& in) {
  if (token == "name") {
    std::string value;
    in >> value;
    setName(value);
    return true;
  }
  if (token == "faceIds") {
    long count = 0;
    in >> count;
    std::vector<int> ids;
    int face = 0;
    for (long i = 0; i < count && in >> face; ++i) ids.push_back(face);
    setFaceIds(std::move(ids));
    return true;
  }
  if (token == "culledPrims") {
    culled.clear();
    long entries = 0;
    in >> entries;
    for (long e = 0; e < entries && in; ++e) {
      int face = 0;
      long n = 0;
      in >> face >> n;
      unsigned id = 0;
      for (long i = 0; i < n && in >> id; ++i) culled[face].insert(id);
    }
    return true;
  }
  if (token == "animCurves") {
    curves.clear();
    long count = 0;
    in >> count;
    std::string name;
    for (long i = 0; i < count && in >> name; ++i) curves[name];
    return true;
  }
  if (token == "Guides") {
    std::string word;
    in >> word;
    VrDescription* desc = description();
    auto* primitive = desc ? dynamic_cast<VrBasePrimitive*>(desc->getObject(word + "Primitive")) : nullptr;
    if (!primitive) {
      VR_ERROR(word + " guide has no associated primitive in " + patchName + "  Was primitive exported?");
      return false;
    }
    VR_DEBUG(2, vrmsg::CatPatch,
             VRImportFileVersion >= 15 ? "New style guide import." : "Old style guide import.");
    const bool ok = primitive->importGuides(in, this, VRImportFileVersion);
    VR_DEBUG(2, vrmsg::CatPatch, "Done importing guides.");
    return ok;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Geometry defaults: an unbound patch answers nothing.

void VrPatch::bindGeometry(SgSurface*, SgSurface*, bool) {}
SgBox3T<double> VrPatch::boundingBox(int, bool) const { return SgBox3T<double>(); }
SgBox3T<double> VrPatch::boundingBox(bool) const { return SgBox3T<double>(); }
void VrPatch::origToLogical(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  ids.push_back(face);
}
void VrPatch::logicalToOrig(int face, std::vector<int>& ids, bool clear) const {
  if (clear) ids.clear();
  ids.push_back(face);
}
double VrPatch::calculateSubAreas(int, int, int& nu, int& nv, std::vector<double>& areas) const {
  nu = nv = 0;
  areas.clear();
  return 0.0;
}
double VrPatch::area(int) const { return 0.0; }
double VrPatch::lengthU(double, int) const { return 0.0; }
double VrPatch::lengthV(double, int) const { return 0.0; }
bool VrPatch::evalUV(int, double, double, double&, double&) const { return false; }
unsigned VrPatch::computeFaceResolution(unsigned short& resU, unsigned short& resV, int, double) const {
  resU = resV = 0;
  return 0;
}
bool VrPatch::pureEvalGeom(double, double, int, SgVec3T<double>&, SgVec3T<double>&, SgVec3T<double>&,
                           SgVec3T<double>&, bool) const {
  return false;
}
bool VrPatch::pureEvalCurvature(double, double, int, double&, double&, bool) const { return false; }

double VrPatch::computeFaceResolution(std::vector<unsigned short>& res, const std::vector<int>& faceList,
                                      double density) const {
  double total = 0.0;
  for (int face : faceList) {
    unsigned short resU = 0, resV = 0;
    total += computeFaceResolution(resU, resV, face, density);
    res.push_back(resU);
    res.push_back(resV);
  }
  return total / 1e6;
}

void VrPatch::setName(const std::string& name) {
  const std::string stripped = vrutil::stripNameSpace(name);
  if (stripped == patchName) return;
  const std::string old = patchName;
  patchName = stripped;
  if (owner && owner->patch(old) == this) owner->changePatchName(old, stripped);
}

bool VrPatch::hasOrigFaceId(int face) const {
  std::vector<int> logical;
  origToLogical(face, logical, true);
  for (int id : logical)
    if (hasFaceId(id)) return true;
  return false;
}

// ---------------------------------------------------------------------------------------------
// Evaluation

namespace {

// The angle by which each tangent turns to make them perpendicular about N: half of the
// deviation from a right angle.
double halfCorrection(const SgVec3T<double>& dPdu, const SgVec3T<double>& dPdv) {
  SgVec3T<double> u = dPdu, v = dPdv;
  u.normalize();
  v.normalize();
  const double a = std::acos(std::min(1.0, std::max(-1.0, u.dot(v))));
  return (M_PI / 2.0 - a) / 2.0;
}

// The step of the finite differences: the float constant 0.01, held as a double.
constexpr double differenceStep = static_cast<double>(0.01f);

}  // namespace

// Turns dPdv by h and dPdu by -h about N. The two turns share one sine and cosine: cos(-h) is
// cos(h) and sin(-h) is -sin(h), bit for bit.
void VrPatch::squareTangents(const SgVec3T<double>& N, SgVec3T<double>& dPdu, SgVec3T<double>& dPdv) {
  const double h = halfCorrection(dPdu, dPdv);
  const double c = std::cos(h), s = std::sin(h);
  dPdv = vrutil::rotatedAbout(dPdv, N, c, s);
  dPdu = vrutil::rotatedAbout(dPdu, N, c, -s);
}

bool VrPatch::evalGeom(double u, double v, int face, SgVec3T<double>& P, bool ref) const {
  SgVec3T<double> N, dPdu, dPdv;
  return pureEvalGeom(u, v, face, P, N, dPdu, dPdv, ref);
}

bool VrPatch::evalGeom(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                       SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref, bool squared) const {
  if (!pureEvalGeom(u, v, face, P, N, dPdu, dPdv, ref)) return false;
  if (owner && owner->flipNormals()) {
    N = -N;
    dPdu = -dPdu;
  }
  if (squared) squareTangents(N, dPdu, dPdv);
  return true;
}

bool VrPatch::evalFrame(double u, double v, int face, SgVec3T<double>& P, SgVec3T<double>& N,
                        SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref) const {
  if (!pureEvalGeom(u, v, face, P, N, dPdu, dPdv, ref)) return false;
  if (owner && owner->flipNormals()) {
    N = -N;
    dPdu = -dPdu;
  }
  const double h = halfCorrection(dPdu, dPdv);
  dPdu.normalize();
  dPdv.normalize();
  dPdv = vrutil::rotatedAbout(dPdv, N, h);
  dPdu = dPdv.cross(N);
  return true;
}

bool VrPatch::evalCurvature(double u, double v, int face, double& k1, double& k2, bool ref) const {
  return pureEvalCurvature(u, v, face, k1, k2, ref);
}

bool VrPatch::evalGeom(double u, double v, int face, const VrExpression* dispExpr, bool vectorFlag,
                       const VrExpression* bumpExpr, const VrExpression* offsetExpr, SgVec3T<double>& P,
                       SgVec3T<double>& N, SgVec3T<double>& dPdu, SgVec3T<double>& dPdv, bool ref,
                       bool squared) const {
  if (!pureEvalGeom(u, v, face, P, N, dPdu, dPdv, ref)) {
    VR_ERROR("Tried to evaluate an unbound patch. " + typeName() + "," + patchName);
    return false;
  }
  const std::string* name = &patchName;
  auto valueOf = [&](const VrExpression* e, double uu, double vv) {
    return e ? e->eval(uu, vv, face, name) : SgVec3T<double>();
  };
  const SgVec3T<double> normal0 = N;
  const SgVec3T<double> displacement = valueOf(dispExpr, u, v);
  const double d = displacement.x;
  const double b = valueOf(bumpExpr, u, v).x;
  const bool displaced = vectorFlag || d != 0.0;

  if (displaced || b != 0.0) {
    const double uPlus = std::min(1.0, u + differenceStep), uMinus = std::max(0.0, u - differenceStep);
    const double vPlus = std::min(1.0, v + differenceStep), vMinus = std::max(0.0, v - differenceStep);
    const double du = uPlus - uMinus, dv = vPlus - vMinus;
    const double su[4] = {uPlus, uMinus, u, u};
    const double sv[4] = {v, v, vPlus, vMinus};
    SgVec3T<double> p[4], n[4];
    for (int i = 0; i < 4; ++i) {
      SgVec3T<double> tu, tv;  // only points and normals are read: left unsquared
      evalGeom(su[i], sv[i], face, p[i], n[i], tu, tv, ref, false);
    }
    // Points moved by an expression at the four neighbours, along their own normals (or by the
    // expression's vector).
    auto moved = [&](const VrExpression* e, bool asVector, SgVec3T<double> out[4]) {
      for (int i = 0; i < 4; ++i) {
        const SgVec3T<double> value = valueOf(e, su[i], sv[i]);
        out[i] = asVector ? p[i] + value : p[i] + n[i] * value.x;
      }
    };
    if (displaced) {
      SgVec3T<double> a[4];
      moved(dispExpr, vectorFlag, a);
      dPdu = (a[0] - a[1]) * (1.0 / du);
      dPdv = (a[2] - a[3]) * (1.0 / dv);
      N = dPdu.cross(dPdv);
      N.normalize();
    }
    if (b != 0.0) {
      SgVec3T<double> bumped[4];
      moved(bumpExpr, false, bumped);
      dPdu += (bumped[0] - bumped[1]) * (1.0 / du);
      dPdv += (bumped[2] - bumped[3]) * (1.0 / dv);
      N += dPdu.cross(dPdv);
      N.normalize();
    }
  }

  P += vectorFlag ? displacement : normal0 * d;
  P += N * valueOf(offsetExpr, u, v).x;
  if (squared) squareTangents(N, dPdu, dPdv);
  return true;
}
