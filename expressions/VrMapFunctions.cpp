// Map functions. Each call site keeps a MapData block made at prep: the name as written, and
// the file it resolved to for the last patch and data path. Under expression multithreading
// every thread evaluates its own parse, so the block's mutex is uncontended; it is held only
// while the name is compared or resolved, never while texels are read. Textures come from the
// calling thread's cache, so the steady-state lookup takes no shared lock.

#include "expressions/VrMapFunctions.h"

#include "base/VrMessage.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "expressions/VrExprContext.h"
#include "expressions/VrExprFunctions.h"
#include "expressions/VrExpression.h"
#include "expressions/VrSeExpr.h"
#include "geometry/VrPatch.h"
#include "io/ptex/VrPtexTexture.h"

#include <KSeExpr/ExprFuncX.h>

#include <algorithm>
#include <cmath>
#include <mutex>

using KSeExpr::ErrorCode;
using KSeExpr::ExprFuncNode;
using KSeExpr::ExprFuncSimple;
using KSeExpr::ExprType;
using KSeExpr::ExprVarEnvBuilder;
using vrexpr::MapKind;

namespace {

ExprType scalar() { return ExprType().FP(1).Varying(); }
ExprType vector3() { return ExprType().FP(3).Varying(); }

struct MapData : ExprFuncNode::Data {
  MapData() : Data(true) {}
  std::string name;
  bool dynamic = false;
  std::mutex lock;  ///< guards the four below
  std::string lastDataPath;
  std::string lastPatch;
  std::string resolved;
  bool found = false;
};

// What a resolve gives the lookup. The path is the calling thread's buffer, so that the steady
// state allocates nothing.
struct Resolved {
  Resolved() : path(buffer()) {}
  static std::string& buffer() {
    static thread_local std::string text;
    return text;
  }
  std::string& path;
  bool flipV = false;
  const VrPatch* patch = nullptr;
};

void write(ExprFuncSimple::ArgHandle& args, double x, double y, double z) {
  auto out = args.outFpHandle<3>();
  out[0] = x;
  out[1] = y;
  out[2] = z;
}
void failure(ExprFuncSimple::ArgHandle& args) {
  write(args, vrexpr::failureValue, vrexpr::failureValue, vrexpr::failureValue);
}

// The file of the map for the patch being evaluated; false gives the failure value.
bool resolve(MapData& data, Resolved& out) {
  const VrExprContext& context = VrExprContext::current();
  const VrExpression* expression = context.stack.empty() ? nullptr : context.stack.back();
  VrDescription* description = expression ? expression->description() : nullptr;
  const VrPalette* palette = description ? description->palette() : nullptr;
  if (!palette || !context.patchName) return false;
  const std::string& patchName = *context.patchName;
  out.patch = description->patch(patchName);
  {
    std::lock_guard<std::mutex> guard(data.lock);
    const std::string& dataPath = palette->vrDataPathStr();
    if (data.dynamic || patchName != data.lastPatch || dataPath != data.lastDataPath) {
      data.found = vrutil::findFileInVrDataPath(data.resolved, data.name, patchName, description, "", false, 0, 0, 0);
      data.lastPatch = patchName;
      data.lastDataPath = dataPath;
    }
    if (!data.found) return false;
    out.path.assign(data.resolved);
  }
  out.flipV = out.patch && out.patch->typeName() == "NurbsPatch";
  return true;
}

// Up to three channels of a texel, spread over x, y, z by the channel rule: a chosen channel
// (clamped to the last) or a single channel in all three; two channels as (first, second,
// second); three or more as the first three.
void spread(const float* texel, int channels, int channel, double* xyz) {
  if (channel >= 0 || channels == 1) {
    const double value = texel[std::min(channels - 1, std::max(channel, 0))];
    xyz[0] = xyz[1] = xyz[2] = value;
  } else if (channels == 2) {
    xyz[0] = texel[0];
    xyz[1] = xyz[2] = texel[1];
  } else {
    for (int k = 0; k < 3; ++k) xyz[k] = texel[k];
  }
}

int texelIndex(double t, int size) {
  const double scaled = std::trunc(static_cast<double>(size) * t);
  if (!(scaled > 0.0)) return 0;  // negative and NaN go to the first texel
  return scaled >= size - 1 ? size - 1 : static_cast<int>(scaled);
}

// The texel of `texture` nearest to (u, v) on `face`, spread over xyz by the channel rule; false
// where the face has none.
bool readNearestTexel(const VrPtexTexture& texture, int face, double u, double v, int channel, double* xyz) {
  const vrptex::Res res = texture.getFaceInfo(face).res;
  const int channels = std::min(texture.numChannels(), 3 + std::max(channel, 0));
  float texel[64];
  if (!texture.getPixel(face, texelIndex(u, res.u()), texelIndex(v, res.v()), texel, 0, channels)) return false;
  spread(texel, channels, channel, xyz);
  return true;
}

// The file name `map("written")` looks for: a name without ".ptx" is a folder holding one file
// per patch.
std::string mapFileName(const std::string& written, MapKind kind) {
  std::string name = vrutil::stripWhitespace(written);
  if (kind != MapKind::TriPlanar && name.find(".ptx") == std::string::npos)
    name = vrutil::validPath(name) + "$g.ptx";  // a folder: the patch's own file
  return name;
}

// A name with a collection macro resolves anew at every call.
bool isDynamicMapName(const std::string& name) { return name.find("${PAL,") != std::string::npos; }

class MapFuncBase : public ExprFuncSimple {
 public:
  explicit MapFuncBase(MapKind kind) : ExprFuncSimple(true), kind(kind) {}

  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    if (node->numChildren() < 1 || !node->isStrArg(0)) {
      node->addError(ErrorCode::Unknown, {std::string("First arg must be a string for function ") + node->name()});
      return ExprType().Error();
    }
    MapData* data = new MapData;
    data->name = mapFileName(node->getStrArg(0), kind);
    data->dynamic = isDynamicMapName(data->name);
    node->setData(data);
    bool ok = node->checkArg(0, ExprType().String().Constant(), env);
    for (int i = 1; i < node->numChildren(); ++i) {
      // triplanar(file, scale, blend, rotate, offset): vectors but for the blend.
      const bool vector = kind == MapKind::TriPlanar && i != 2;
      ok = node->checkArg(i, vector ? vector3() : scalar(), env) && ok;
    }
    if (const VrSeExpr* parsed = VrSeExpr::of(node))
      if (kind != MapKind::TriPlanar) parsed->addMapName(data->name);
    return ok ? vector3() : ExprType().Error();
  }
  ExprFuncNode::Data* evalConstant(const ExprFuncNode* node, ArgHandle) const override { return node->getData(); }

 protected:
  MapKind kind;
};

// map(file[, channel]) and map(file, u, v[, channel]); vmap with the same arguments.
class FaceMapFunc : public MapFuncBase {
 public:
  using MapFuncBase::MapFuncBase;
  void eval(ArgHandle args) override {
    MapData& data = *static_cast<MapData*>(args.data);
    Resolved file;
    if (!resolve(data, file)) return failure(args);
    const std::shared_ptr<VrPtexTexture> texture = VrExpression::getPtex(file.path);
    if (!texture) return failure(args);
    const VrExprContext& context = VrExprContext::current();
    const int n = args.nargs();
    double u = n >= 3 ? args.inFp<1>(1)[0] : context.u;
    double v = n >= 3 ? args.inFp<1>(2)[0] : context.v;
    const int channel = n == 2 || n == 4 ? static_cast<int>(args.inFp<1>(n - 1)[0]) : -1;
    if (file.flipV) v = 1.0 - v;

    const int face = context.faceId;
    double xyz[3];
    if (kind == MapKind::Map) {
      if (!readNearestTexel(*texture, face, u, v, channel, xyz)) return failure(args);
    } else {
      // Vertex values: the four corners of a 2 by 2 face, blended bilinearly at (u, v).
      const vrptex::Res res = texture->getFaceInfo(face).res;
      const int channels = std::min(texture->numChannels(), 3 + std::max(channel, 0));
      float texel[64];
      if (res.ulog2 != 1 || res.vlog2 != 1) return failure(args);
      float corners[4][64];
      for (int k = 0; k < 4; ++k)
        if (!texture->getPixel(face, k & 1, k >> 1, corners[k], 0, channels)) return failure(args);
      for (int c = 0; c < channels; ++c)
        texel[c] = static_cast<float>((1.0 - u) * (1.0 - v) * corners[0][c] + u * (1.0 - v) * corners[1][c] +
                                      (1.0 - u) * v * corners[2][c] + u * v * corners[3][c]);
      spread(texel, channels, channel, xyz);
    }
    write(args, xyz[0], xyz[1], xyz[2]);
  }
};

// triplanar(file[, scale[, blend[, rotate[, offset]]]]).
class TriPlanarFunc : public MapFuncBase {
 public:
  TriPlanarFunc() : MapFuncBase(MapKind::TriPlanar) {}
  void eval(ArgHandle args) override {
    failure(args);
    MapData& data = *static_cast<MapData*>(args.data);
    Resolved file;
    if (!resolve(data, file)) return;
    const VrExprContext& context = VrExprContext::current();
    SgVec3T<double> P, N, dPdu, dPdv;
    if (!file.patch || !file.patch->evalGeom(context.u, context.v, context.faceId, P, N, dPdu, dPdv, true)) {
      VR_ERROR("triplanar(): Failed to evaulate geometry for " + *context.patchName + ". Aborting evaulation. ");
      return;
    }
    const int n = args.nargs();
    const auto vec = [&](int i, double fallback) {
      if (n <= i) return SgVec3T<double>(fallback, fallback, fallback);
      const auto value = args.inFp<3>(i);
      return SgVec3T<double>(value[0], value[1], value[2]);
    };
    const SgVec3T<double> scale = vec(1, 1.0), rotate = vec(3, 0.0), offset = vec(4, 0.0);
    double blend = n > 2 ? args.inFp<1>(2)[0] : 0.001;
    if (!(scale.x >= 0.0001 && scale.y >= 0.0001 && scale.z >= 0.0001)) {
      VR_ERROR("Error in triplanar(): scale cannot be zero or negative. Evaluation aborted.");
      return;
    }
    const std::shared_ptr<VrPtexTexture> texture = VrExpression::getPtex(file.path);
    if (!texture) return;
    blend = std::min(1.0, std::max(0.001, blend));
    double q[3] = {P.x / scale.x, P.y / scale.y, P.z / scale.z};
    double normal[3] = {N.x, N.y, N.z};
    const double angles[3] = {-rotate.x * 0.017453292519943295, -rotate.y * 0.017453292519943295,
                              -rotate.z * 0.017453292519943295};
    for (int axis = 0; axis < 3; ++axis) {
      if (std::fabs(angles[axis]) <= 0.0001) continue;
      const int a = (axis + 1) % 3, b = (axis + 2) % 3;
      const double c = std::cos(angles[axis]), s = std::sin(angles[axis]);
      for (double* p : {q, normal}) {
        const double pa = p[a], pb = p[b];
        p[a] = pa * c - pb * s;
        p[b] = pa * s + pb * c;
      }
    }
    const double shift[3] = {offset.x / scale.x, offset.y / scale.y, offset.z / scale.z};
    for (int k = 0; k < 3; ++k) {
      q[k] -= shift[k];
      q[k] -= std::floor(q[k]);
    }
    const double wx = std::pow(std::fabs(normal[0]), blend), wy = std::pow(std::fabs(normal[1]), blend),
                 wz = std::pow(std::fabs(normal[2]), blend);
    double sx[3], sy[3], sz[3];
    if (!sample(*texture, q[2], 1.0 - q[1], sx) || !sample(*texture, q[2], 1.0 - q[0], sy) ||
        !sample(*texture, q[0], 1.0 - q[1], sz))
      return;
    const double sum = wx + wy + wz;  // no guard: all weights zero gives a non-number
    write(args, (sx[0] * wx + sy[0] * wy + sz[0] * wz) / sum, (sx[1] * wx + sy[1] * wy + sz[1] * wz) / sum,
          (sx[2] * wx + sy[2] * wy + sz[2] * wz) / sum);
  }

 private:
  // The nearest texel of face 0 at (u, v): one channel in all three, two as (x, y, 0).
  static bool sample(const VrPtexTexture& texture, double u, double v, double* out) {
    const vrptex::Res res = texture.getFaceInfo(0).res;
    const int channels = std::min(texture.numChannels(), 3);
    float texel[3] = {0, 0, 0};
    if (!texture.getPixel(0, texelIndex(u, res.u()), texelIndex(v, res.v()), texel, 0, channels)) return false;
    if (channels == 1) texel[1] = texel[2] = texel[0];
    for (int k = 0; k < 3; ++k) out[k] = texel[k];
    return true;
  }
};

}  // namespace

namespace vrexpr {

MapReader::MapReader(const std::string& written)
    : name(mapFileName(written, MapKind::Map)), dynamic(isDynamicMapName(name)) {}

MapReader::~MapReader() = default;

SgVec3T<double> MapReader::at(VrDescription* description, const std::string* patchName, int face, double u,
                              double v) {
  const SgVec3T<double> failed(failureValue, failureValue, failureValue);
  const VrPalette* palette = description ? description->palette() : nullptr;
  if (!palette || !patchName) return failed;
  if (patchName != lastPatch || description != lastDescription || dynamic) {
    // As the expression's map resolves it: the file along the data path, the thread's texture.
    std::string path;
    texture.reset();
    if (vrutil::findFileInVrDataPath(path, name, *patchName, description, "", false, 0, 0, 0))
      texture = VrExpression::getPtex(path);
    const VrPatch* patch = description->patch(*patchName);
    flipV = patch && patch->typeName() == "NurbsPatch";
    lastPatch = patchName;
    lastDescription = description;
  }
  double xyz[3];
  if (!texture || !readNearestTexel(*texture, face, u, flipV ? 1.0 - v : v, -1, xyz)) return failed;
  return SgVec3T<double>(xyz[0], xyz[1], xyz[2]);
}

KSeExpr::ExprFuncSimple& mapFunction(MapKind kind) {
  static FaceMapFunc* map = new FaceMapFunc(MapKind::Map);
  static FaceMapFunc* vmap = new FaceMapFunc(MapKind::VertexMap);
  static TriPlanarFunc* triplanar = new TriPlanarFunc;
  switch (kind) {
    case MapKind::Map: return *map;
    case MapKind::VertexMap: return *vmap;
    case MapKind::TriPlanar: return *triplanar;
  }
  return *map;
}

}  // namespace vrexpr
