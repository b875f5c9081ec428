// The system's expression functions. Each is one stateless object shared by all parsed texts;
// what belongs to one call site (the `rand` seed, a collection expression's name) is kept in the
// call's node data, made when the text is prepared on the main thread and only read while
// evaluating. The location comes from the evaluating thread's context.

#include "expressions/VrExprFunctions.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExprContext.h"
#include "expressions/VrExpression.h"
#include "expressions/VrMapFunctions.h"
#include "expressions/VrSeExpr.h"
#include "geometry/SgBox3T.h"
#include "geometry/VrPatch.h"

#include <KSeExpr/ExprBuiltins.h>
#include <KSeExpr/ExprFunc.h>
#include <KSeExpr/ExprFuncX.h>

#include <algorithm>
#include <cmath>
#include <unordered_map>

using KSeExpr::ErrorCode;
using KSeExpr::ExprFuncNode;
using KSeExpr::ExprFuncSimple;
using KSeExpr::ExprType;
using KSeExpr::ExprVarEnvBuilder;

namespace {

ExprType scalar() { return ExprType().FP(1).Varying(); }
ExprType vector3() { return ExprType().FP(3).Varying(); }
ExprType result() { return ExprType().FP(3).Varying(); }

const VrExpression* evaluating() {
  const VrExprContext& context = VrExprContext::current();
  return context.stack.empty() ? nullptr : context.stack.back();
}

void write(ExprFuncSimple::ArgHandle& args, double x, double y, double z) {
  auto out = args.outFpHandle<3>();
  out[0] = x;
  out[1] = y;
  out[2] = z;
}
void broadcast(ExprFuncSimple::ArgHandle& args, double x) { write(args, x, x, x); }
void failure(ExprFuncSimple::ArgHandle& args) { broadcast(args, vrexpr::failureValue); }

void nodeError(const ExprFuncNode* node, const std::string& text) { node->addError(ErrorCode::Unknown, {text}); }

// Prepares every child from `first` on as a number; false when one fails.
bool prepScalars(ExprFuncNode* node, ExprVarEnvBuilder& env, int first = 0) {
  bool ok = true;
  for (int i = first; i < node->numChildren(); ++i) ok = node->checkArg(i, scalar(), env) && ok;
  return ok;
}

// Node data owned by the node.
template <class T>
struct NodeData : ExprFuncNode::Data {
  explicit NodeData(T value) : Data(true), value(std::move(value)) {}
  T value;
};

// Base of functions without per-node data.
class PlainFunc : public ExprFuncSimple {
 public:
  PlainFunc() : ExprFuncSimple(true) {}
  ExprFuncNode::Data* evalConstant(const ExprFuncNode*, ArgHandle) const override { return nullptr; }
};

// Base of functions whose first argument names something: a string literal.
class StringArgFunc : public ExprFuncSimple {
 public:
  StringArgFunc() : ExprFuncSimple(true) {}
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    if (node->numChildren() < 1 || !node->isStrArg(0)) {
      nodeError(node, std::string("First arg must be a string for function ") + node->name());
      return ExprType().Error();
    }
    node->setData(new NodeData<std::string>(node->getStrArg(0)));
    const bool named = node->checkArg(0, ExprType().String().Constant(), env);
    return prepScalars(node, env, 1) && named ? result() : ExprType().Error();
  }
  ExprFuncNode::Data* evalConstant(const ExprFuncNode* node, ArgHandle) const override { return node->getData(); }

 protected:
  static const std::string& argName(ArgHandle& args) {
    return static_cast<NodeData<std::string>*>(args.data)->value;
  }
};

// rand([seed]) and rand(min, max[, seed]): a stable value per location and call site.
class RandFunc : public ExprFuncSimple {
 public:
  RandFunc() : ExprFuncSimple(true) {}
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    const bool ok = prepScalars(node, env);
    const VrSeExpr* parsed = VrSeExpr::of(node);
    double site[2] = {parsed && parsed->expression() ? parsed->expression()->exprSeed() : 0.0,
                      static_cast<double>(parsed ? parsed->nextRandInstance() : 0)};
    node->setData(new NodeData<double>(KSeExpr::hash(2, site)));
    return ok ? result() : ExprType().Error();
  }
  ExprFuncNode::Data* evalConstant(const ExprFuncNode* node, ArgHandle) const override { return node->getData(); }
  void eval(ArgHandle args) override {
    VrExprContext& context = VrExprContext::current();
    const int n = args.nargs();
    double key[5] = {context.u, context.v, context.currentFaceSeed(), static_cast<NodeData<double>*>(args.data)->value,
                     0.0};
    int count = 4;
    if (n == 1 || n == 3) key[count++] = args.inFp<1>(n - 1)[0];
    double value = KSeExpr::hash(count, key);
    if (n >= 2) value = KSeExpr::compress(value, args.inFp<1>(0)[0], args.inFp<1>(1)[0]);
    broadcast(args, value);
  }
};

// noise(...): the language's noise of the arguments, or of (u, v) without any.
class NoiseFunc : public PlainFunc {
 public:
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    return prepScalars(node, env) ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    KSeExpr::Vec3d points[3];
    int n = args.nargs();
    if (n == 0) {
      const VrExprContext& context = VrExprContext::current();
      points[0] = KSeExpr::Vec3d(context.u);
      points[1] = KSeExpr::Vec3d(context.v);
      n = 2;
    } else {
      for (int i = 0; i < n; ++i) points[i] = KSeExpr::Vec3d(args.inFp<1>(i)[0]);
    }
    broadcast(args, KSeExpr::noise(n, points));
  }
};

// frameArray(start, first, second, ...): the entry of the collection's frame.
class FrameArrayFunc : public PlainFunc {
 public:
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    const VrSeExpr* parsed = VrSeExpr::of(node);
    const VrExpression* expression = parsed ? parsed->expression() : nullptr;
    const VrDescription* description = expression ? expression->description() : nullptr;
    if (!description) {
      nodeError(node, (expression ? expression->name() : std::string()) +
                          ": No description is specified for frameArray expression. Aborting function prep.");
      return ExprType().Error();
    }
    if (node->numChildren() < 2) {
      nodeError(node, description->name() + "," + expression->name() +
                          ": Error in frameArray expression. Should have at least 2 elements. Aborting function prep.");
      return ExprType().Error();
    }
    // Every entry draws the same random numbers, so values do not jump between frames.
    bool ok = node->checkArg(0, scalar(), env);
    const int firstInstance = parsed->randInstance();
    int lastInstance = firstInstance;
    for (int i = 1; i < node->numChildren(); ++i) {
      parsed->setRandInstance(firstInstance);
      ok = node->checkArg(i, scalar(), env) && ok;
      lastInstance = std::max(lastInstance, parsed->randInstance());
    }
    parsed->setRandInstance(lastInstance);
    return ok ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    const VrExpression* expression = evaluating();
    const VrDescription* description = expression ? expression->description() : nullptr;
    const VrPalette* palette = description ? description->palette() : nullptr;
    const int frame = palette ? static_cast<int>(palette->frame()) : 0;
    const int entries = args.nargs() - 1;
    int index = frame - static_cast<int>(args.inFp<1>(0)[0]) + 1;
    index = std::min(std::max(index, 1), entries);
    broadcast(args, args.inFp<1>(index)[0]);
  }
};

// stray(): whether the location is a stray, from the description's stray expression.
class StrayFunc : public PlainFunc {
 public:
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    const VrSeExpr* parsed = VrSeExpr::of(node);
    const VrExpression* expression = parsed ? parsed->expression() : nullptr;
    if (!expression || !expression->description()) {
      nodeError(node, "No description is specified: '" + (expression ? expression->name() : std::string()) + "'");
      return ExprType().Error();
    }
    return prepScalars(node, env) ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    const VrExpression* expression = evaluating();
    VrDescription* description = expression ? expression->description() : nullptr;
    if (!description) return failure(args);
    const VrExprContext& context = VrExprContext::current();
    const SgVec3T<double> value =
        description->strayInternal().eval(context.u, context.v, context.faceId, context.patchName);
    broadcast(args, value.x);
  }
};

// A call of a collection expression by its name.
class CollectionExpressionFunc : public ExprFuncSimple {
 public:
  CollectionExpressionFunc() : ExprFuncSimple(true) {}
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    const VrSeExpr* parsed = VrSeExpr::of(node);
    const VrExpression* expression = parsed ? parsed->expression() : nullptr;
    const std::string name = node->name();
    const auto& global = expression ? VrExpression::paletteAttr(name, expression->description()) : nullptr;
    if (!global) {
      nodeError(node, "Unknown collection expression: '" + name + "'");
      return ExprType().Error();
    }
    if (global.get() != expression && !global->isValid()) {
      nodeError(node, "Invalid collection expression: '" + name + "'");
      return ExprType().Error();
    }
    node->setData(new NodeData<std::string>(name));
    return prepScalars(node, env) ? result() : ExprType().Error();
  }
  ExprFuncNode::Data* evalConstant(const ExprFuncNode* node, ArgHandle) const override { return node->getData(); }
  void eval(ArgHandle args) override {
    const VrExpression* expression = evaluating();
    VrDescription* description = expression ? expression->description() : nullptr;
    const VrPalette* palette = description ? description->palette() : nullptr;
    if (!palette) return failure(args);
    const auto& global = palette->namedAttr(static_cast<NodeData<std::string>*>(args.data)->value);
    if (!global) return failure(args);
    const VrExprContext& context = VrExprContext::current();
    const SgVec3T<double> value = global->eval(context.u, context.v, context.faceId, context.patchName);
    if (global->isVec())
      write(args, value.x, value.y, value.z);
    else
      broadcast(args, value.x);
  }
};

// shadow(x): x in the shadow pass, (1, 1, 1) otherwise.
class ShadowFunc : public PlainFunc {
 public:
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    return prepScalars(node, env) ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    if (VrExpression::shadowPass() && args.nargs() > 0)
      broadcast(args, args.inFp<1>(0)[0]);
    else
      write(args, 1.0, 1.0, 1.0);
  }
};

// alignU([dir]), alignV([dir]), alignN([dir]): how the primitive being built at the location
// would lean toward a direction ((0, 1, 0) by default): the share of dir along the surface's U
// or V, over (|along U| + |along V|) * 100, or the angle in degrees between dir and the normal.
class AlignFunc : public PlainFunc {
 public:
  enum class Axis { U, V, N };
  explicit AlignFunc(Axis axis) : axis(axis) {}
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    bool ok = true;
    for (int i = 0; i < node->numChildren(); ++i) ok = node->checkArg(i, vector3(), env) && ok;
    return ok ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    SgVec3T<double> dir(0.0, 1.0, 0.0);
    if (args.nargs() > 0) {
      const auto value = args.inFp<3>(0);
      dir = SgVec3T<double>(value[0], value[1], value[2]);
      dir.normalize();
    }
    const VrExpression* expression = evaluating();
    const VrExprContext& context = VrExprContext::current();
    SgVec3T<double> U, V, N;
    if (!expression || !expression->description() || !VrSeExpr::primitiveFrame(context.u, context.v, U, V, N))
      return failure(args);
    if (axis == Axis::N) {
      const double cosine = std::min(1.0, std::max(-1.0, dir.dot(N)));
      return broadcast(args, std::acos(cosine) * 180.0 / M_PI);
    }
    const double du = dir.dot(U), dv = dir.dot(V);
    // No guard: where both dots are zero the result is not a number.
    broadcast(args, (axis == Axis::U ? du : dv) / ((std::fabs(du) + std::fabs(dv)) * 100.0));
  }

 private:
  Axis axis;
};

// bboxdist(point): the distance from the point to the patch's (reference) bounding box, 0
// inside it.
class BBoxDistFunc : public PlainFunc {
 public:
  ExprType prep(ExprFuncNode* node, bool, ExprVarEnvBuilder& env) const override {
    bool ok = true;
    for (int i = 0; i < node->numChildren(); ++i) ok = node->checkArg(i, vector3(), env) && ok;
    return ok ? result() : ExprType().Error();
  }
  void eval(ArgHandle args) override {
    const VrExpression* expression = evaluating();
    const VrDescription* description = expression ? expression->description() : nullptr;
    const VrExprContext& context = VrExprContext::current();
    if (!description || !context.patchName) return failure(args);
    const VrPatch* patch = description->patch(*context.patchName);
    if (!patch) {
      VR_WARNING(3, "NULL patch! " + *context.patchName);
      return failure(args);
    }
    const SgBox3T<double> box = patch->boundingBox(true);
    const auto value = args.inFp<3>(0);
    const SgVec3T<double> point(value[0], value[1], value[2]);
    const SgVec3T<double> lo = box.min, hi = box.maxCorner();
    const SgVec3T<double> nearest(std::min(std::max(point.x, lo.x), hi.x), std::min(std::max(point.y, lo.y), hi.y),
                                  std::min(std::max(point.z, lo.z), hi.z));
    broadcast(args, (point - nearest).length());
  }
};

// patchAttr(name): a custom value of the patch at the location.
class PatchAttrFunc : public StringArgFunc {
 public:
  void eval(ArgHandle args) override {
    const std::string& name = argName(args);
    const VrExpression* expression = evaluating();
    const VrDescription* description = expression ? expression->description() : nullptr;
    const VrExprContext& context = VrExprContext::current();
    const VrPatch* patch = description && context.patchName ? description->patch(*context.patchName) : nullptr;
    SgVec3T<double> value;
    if (!patch) {
      VR_WARNING(3, "NULL patch! " + name);
      return failure(args);
    }
    if (!patch->getAttrValue(name, value)) {
      VR_WARNING(3, "Attribute doesn't exist! " + name);
      return failure(args);
    }
    write(args, value.x, value.y, value.z);
  }
};

// guidesAttr(name): an attribute of the guides, interpolated at the location.
class GuidesAttrFunc : public StringArgFunc {
 public:
  void eval(ArgHandle args) override {
    SgVec3T<double> value;
    if (!VrSeExpr::guidesAttr(argName(args), value)) {
      VR_WARNING(3, "Attribute doesn't exist! " + argName(args));
      return failure(args);
    }
    write(args, value.x, value.y, value.z);
  }
};

struct FunctionTable {
  RandFunc rand;
  NoiseFunc noise;
  FrameArrayFunc frameArray;
  StrayFunc stray;
  CollectionExpressionFunc pal;
  ShadowFunc shadow;
  AlignFunc alignU{AlignFunc::Axis::U};
  AlignFunc alignV{AlignFunc::Axis::V};
  AlignFunc alignN{AlignFunc::Axis::N};
  BBoxDistFunc bboxdist;
  PatchAttrFunc patchAttr;
  GuidesAttrFunc guidesAttr;
  std::unordered_map<std::string, KSeExpr::ExprFunc> functions;

  FunctionTable() {
    functions.emplace("map", KSeExpr::ExprFunc(vrexpr::mapFunction(vrexpr::MapKind::Map), 1, 4));
    functions.emplace("vmap", KSeExpr::ExprFunc(vrexpr::mapFunction(vrexpr::MapKind::VertexMap), 1, 4));
    functions.emplace("triplanar", KSeExpr::ExprFunc(vrexpr::mapFunction(vrexpr::MapKind::TriPlanar), 1, 5));
    functions.emplace("noise", KSeExpr::ExprFunc(noise, 0, 3));
    functions.emplace("frameArray", KSeExpr::ExprFunc(frameArray, 0, -1));
    functions.emplace("pal", KSeExpr::ExprFunc(pal, 0, -1));
    functions.emplace("stray", KSeExpr::ExprFunc(stray, 0, -1));
    functions.emplace("rand", KSeExpr::ExprFunc(rand, 0, 3));
    functions.emplace("shadow", KSeExpr::ExprFunc(shadow, 1, 1));
    functions.emplace("alignU", KSeExpr::ExprFunc(alignU, 0, 1));
    functions.emplace("alignV", KSeExpr::ExprFunc(alignV, 0, 1));
    functions.emplace("alignN", KSeExpr::ExprFunc(alignN, 0, 1));
    functions.emplace("bboxdist", KSeExpr::ExprFunc(bboxdist, 1, 1));
    functions.emplace("patchAttr", KSeExpr::ExprFunc(patchAttr, 1, 1));
    functions.emplace("guidesAttr", KSeExpr::ExprFunc(guidesAttr, 1, 1));
  }
};

FunctionTable& table() {
  static FunctionTable* t = new FunctionTable;  // referenced by parsed texts until exit
  return *t;
}

}  // namespace

namespace vrexpr {

KSeExpr::ExprFunc* findFunction(const std::string& name) {
  auto& functions = table().functions;
  auto found = functions.find(name);
  return found == functions.end() ? nullptr : &found->second;
}

KSeExpr::ExprFunc* collectionExpressionFunction() { return findFunction("pal"); }

}  // namespace vrexpr
