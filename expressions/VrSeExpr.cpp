#include "expressions/VrSeExpr.h"

#include "base/VrTaskManager.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExprContext.h"
#include "expressions/VrExprFunctions.h"
#include "expressions/VrExpression.h"
#include "expressions/VrSeExprHash.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"
#include "renderers/VrRenderer.h"

#include <KSeExpr/ExprBuiltins.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

using KSeExpr::ExprType;
using KSeExpr::ExprVarRef;

double vrSeExprHash(int n, double* args) { return KSeExpr::hash(n, args); }
double vrSeExprCompress(double x, double lo, double hi) { return KSeExpr::compress(x, lo, hi); }

namespace {

ExprType scalarType() { return ExprType().FP(1).Varying(); }
ExprType vectorType() { return ExprType().FP(3).Varying(); }

// The expression evaluating on this thread, or null outside any evaluation.
const VrExpression* currentExpression() {
  const VrExprContext& context = VrExprContext::current();
  return context.stack.empty() ? nullptr : context.stack.back();
}

// A variable whose value is computed from the thread's evaluation context.
class ContextVar : public ExprVarRef {
 public:
  using Reader = double (*)(const VrExprContext&);
  explicit ContextVar(Reader reader) : ExprVarRef(scalarType()), reader(reader) {}
  void eval(double* result) override {
    result[0] = reader(VrExprContext::current());
  }
  void eval(const char**) override {}

 private:
  Reader reader;
};

// A variable of the evaluating expression's description or collection.
class DescriptionVar : public ExprVarRef {
 public:
  using Reader = double (*)(const VrDescription&);
  explicit DescriptionVar(Reader reader) : ExprVarRef(scalarType()), reader(reader) {}
  void eval(double* result) override {
    const VrExpression* expression = currentExpression();
    const VrDescription* description = expression ? expression->description() : nullptr;
    result[0] = description ? reader(*description) : 0.0;
  }
  void eval(const char**) override {}

 private:
  Reader reader;
};

// The primitive being built where the current expression evaluates. Under expression
// multithreading with primitive contexts given to the thread (`VrExpression::initTLS`), the one
// of the expression's description: the main context or a motion sample's; otherwise the context
// of the description's active primitive. Null outside an evaluation or without a primitive.
VrPrimitiveContext* currentPrimitiveContext() {
  const VrExprContext& context = VrExprContext::current();
  if (context.stack.empty()) return nullptr;
  const VrDescription* description = context.stack.back()->description();
  if (!description) return nullptr;
  if (VrTaskManager::seExprMultithreading() && !context.primitives.empty()) {
    for (VrPrimitiveContext* primitive : context.primitives)
      if (primitive->description() == description) return primitive;
    return nullptr;  // never another thread's serial context
  }
  VrPrimitive* primitive = description->activePrimitive();
  return primitive ? &primitive->context() : nullptr;
}

// The collection's world transform of the evaluating description, or null.
const SgXform3T<double>* worldTransform() {
  const VrExpression* expression = currentExpression();
  const VrDescription* description = expression ? expression->description() : nullptr;
  const VrPalette* palette = description ? description->palette() : nullptr;
  return palette ? &palette->world() : nullptr;
}

// A number of the primitive being built: id, length, width, depth, curvature, patch number.
// Zero where no primitive is being built.
class PrimScalarVar : public ExprVarRef {
 public:
  using Reader = double (*)(VrPrimitiveContext&, const VrExprContext&);
  explicit PrimScalarVar(Reader reader) : ExprVarRef(scalarType()), reader(reader) {}
  void eval(double* result) override {
    VrPrimitiveContext* primitive = currentPrimitiveContext();
    result[0] = primitive ? reader(*primitive, VrExprContext::current()) : 0.0;
  }
  void eval(const char**) override {}

 private:
  Reader reader;
};

// A vector of the primitive's surface frame at the expression's (u, v): the accessor of the
// context on the reference or the animated surface, optionally moved through the collection's
// world transform (points only). Zero where no primitive is being built or it has no patch.
class PrimVectorVar : public ExprVarRef {
 public:
  using Accessor = const SgVec3T<double>& (VrBasePrimitiveContext::*)(double, double, bool);
  PrimVectorVar(Accessor accessor, bool ref, bool world)
      : ExprVarRef(vectorType()), accessor(accessor), ref(ref), world(world) {}
  void eval(double* result) override {
    SgVec3T<double> value;
    VrPrimitiveContext* primitive = currentPrimitiveContext();
    if (primitive && primitive->cPatch()) {
      const VrExprContext& context = VrExprContext::current();
      value = (primitive->*accessor)(context.u, context.v, ref);
      if (world)
        if (const SgXform3T<double>* xform = worldTransform()) value = xform->transformed(value);
    }
    result[0] = value.x;
    result[1] = value.y;
    result[2] = value.z;
  }
  void eval(const char**) override {}

 private:
  Accessor accessor;
  bool ref;
  bool world;
};

// The render camera's position through the collection's world transform; for an orthographic
// camera a far point behind it along its view direction. Zero without an active renderer.
class CameraVar : public ExprVarRef {
 public:
  CameraVar() : ExprVarRef(vectorType()) {}
  void eval(double* result) override {
    SgVec3T<double> value;
    const VrExpression* expression = currentExpression();
    const VrDescription* description = expression ? expression->description() : nullptr;
    if (description && description->activeRenderer()) {
      value = VrRenderer::camIsOrtho() ? VrRenderer::camDir() * -100000.0 : VrRenderer::camPosition();
      if (const SgXform3T<double>* xform = worldTransform()) value = xform->transformed(value);
    }
    result[0] = value.x;
    result[1] = value.y;
    result[2] = value.z;
  }
  void eval(const char**) override {}
};

// The surface colour of the active primitive (`CsExpr`, or its guides' colours blended) at the
// expression's location. Zero where no primitive is being built or it has no patch.
class ColorVar : public ExprVarRef {
 public:
  ColorVar() : ExprVarRef(vectorType()) {}
  void eval(double* result) override {
    SgVec3T<double> value;
    VrPrimitiveContext* primitive = currentPrimitiveContext();
    const VrDescription* description = primitive ? primitive->description() : nullptr;
    const VrPrimitive* owner = description ? description->activePrimitive() : nullptr;
    if (owner && primitive->cPatch()) {
      const VrExprContext& context = VrExprContext::current();
      value = owner->evalColorInParallel(*primitive, context.u, context.v, primitive->cFaceId(),
                                         &primitive->cPatch()->name());
    }
    result[0] = value.x;
    result[1] = value.y;
    result[2] = value.z;
  }
  void eval(const char**) override {}
};

// Custom variables set on the calling thread. A worker that sets "t" per CV must not see
// another worker's value, so a thread's own value wins over the process-wide one. Each name is
// given a slot once, process-wide; a thread keeps its values in a row by slot, so that a
// variable set or read through its slot (per primitive, per CV) looks no name up.
class ThreadVariableSlots {
 public:
  int slotOf(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    return slots.emplace(name, static_cast<int>(slots.size())).first->second;
  }

 private:
  std::mutex mutex;
  std::unordered_map<std::string, int> slots;
};

ThreadVariableSlots& threadVariableSlots() {
  static ThreadVariableSlots* slots = new ThreadVariableSlots;  // outlives every thread's use
  return *slots;
}

class ThreadCustomValues {
 public:
  const SgVec3T<double>* find(int slot) const {
    const size_t at = static_cast<size_t>(slot);
    return at < values.size() && values[at].set ? &values[at].value : nullptr;
  }
  void set(int slot, const SgVec3T<double>& value) {
    const size_t at = static_cast<size_t>(slot);
    if (at >= values.size()) values.resize(at + 1);
    values[at] = {value, true};
  }
  void erase(int slot) {
    if (static_cast<size_t>(slot) < values.size()) values[static_cast<size_t>(slot)].set = false;
  }
  void clear() { values.clear(); }

  // The slot of a name, from the names this thread has used: the process-wide table (and its
  // lock) only for a name new to the thread. A thread uses a handful of names.
  int slotOf(const std::string& name) {
    for (const auto& known : names)
      if (known.first == name) return known.second;
    names.emplace_back(name, threadVariableSlots().slotOf(name));
    return names.back().second;
  }

 private:
  struct Value {
    SgVec3T<double> value;
    bool set = false;
  };
  std::vector<Value> values;
  std::vector<std::pair<std::string, int>> names;
};
thread_local ThreadCustomValues threadCustomValues;

// A custom variable, read by value at each evaluation: the calling thread's value, else the
// process-wide one (set by any thread, typically the main thread before parallel work).
class CustomVar : public ExprVarRef {
 public:
  CustomVar(int slot, std::shared_ptr<SgVec3T<double>> value)
      : ExprVarRef(vectorType()), slot(slot), value(std::move(value)) {}
  void eval(double* result) override {
    const SgVec3T<double>* own = threadCustomValues.find(slot);
    const SgVec3T<double>& v = own ? *own : *value;
    result[0] = v.x;
    result[1] = v.y;
    result[2] = v.z;
  }
  void eval(const char**) override {}

 private:
  int slot;
  std::shared_ptr<SgVec3T<double>> value;
};

// The curvature of the plain surface at the expression's (u, v): along v when `alongV`.
double curvature(VrPrimitiveContext& p, const VrExprContext& c, bool alongV, bool ref) {
  if (!p.cPatch()) return 0.0;
  return alongV ? p.cKv(c.u, c.v, ref) : p.cKu(c.u, c.v, ref);
}

double frameOf(const VrDescription& d) { return d.palette() ? d.palette()->frame() : 0.0; }
double idOf(const VrDescription& d) { return d.descriptionId(); }

// The fixed vocabulary of variables. Made once and never destroyed: parsed texts refer to the
// variables until the process ends.
struct VariableTable {
  std::vector<std::unique_ptr<ExprVarRef>> variables;
  std::unordered_map<std::string, ExprVarRef*> byName;

  ExprVarRef* add(ExprVarRef* variable, std::initializer_list<std::string> names) {
    variables.emplace_back(variable);
    for (const std::string& name : names) byName[name] = variable;
    return variable;
  }

  void addPrimitiveVariables() {
    using Ctx = VrPrimitiveContext;
    using Loc = VrExprContext;
    add(new PrimScalarVar([](Ctx& p, const Loc&) { return static_cast<double>(p.id()); }), {"id"});
    add(new PrimScalarVar([](Ctx& p, const Loc&) { return p.cLength(); }), {"cLength"});
    add(new PrimScalarVar([](Ctx& p, const Loc&) { return p.cWidth(); }), {"cWidth"});
    add(new PrimScalarVar([](Ctx& p, const Loc&) { return p.cDepth(); }), {"cDepth"});
    add(new PrimScalarVar([](Ctx& p, const Loc& c) { return curvature(p, c, false, false); }), {"ku"});
    add(new PrimScalarVar([](Ctx& p, const Loc& c) { return curvature(p, c, false, true); }), {"kuref"});
    add(new PrimScalarVar([](Ctx& p, const Loc& c) { return curvature(p, c, true, false); }), {"kv"});
    add(new PrimScalarVar([](Ctx& p, const Loc& c) { return curvature(p, c, true, true); }), {"kvref"});
    add(new PrimScalarVar([](Ctx& p, const Loc&) { return p.cPatch() ? double(p.cPatch()->index()) : 0.0; }),
        {"patchId", "objectId"});

    // Each family: the displaced surface and the plain one ("g"), animated and reference ("ref").
    struct Family {
      const char* name;
      PrimVectorVar::Accessor displaced;
      PrimVectorVar::Accessor plain;
    };
    using Base = VrBasePrimitiveContext;
    const Family families[] = {{"P", &Base::cP, &Base::cPg},         {"N", &Base::cN, &Base::cNg},
                               {"dPdu", &Base::cdPdu, &Base::cdPdug}, {"dPdv", &Base::cdPdv, &Base::cdPdvg},
                               {"U", &Base::cU, &Base::cUg},         {"V", &Base::cV, &Base::cVg}};
    for (const Family& f : families) {
      const std::string name = f.name;
      add(new PrimVectorVar(f.displaced, false, false), {name});
      add(new PrimVectorVar(f.plain, false, false), {name + "g"});
      add(new PrimVectorVar(f.displaced, true, false), {name + "ref"});
      add(new PrimVectorVar(f.plain, true, false), {name + "refg"});
    }
    add(new PrimVectorVar(&Base::cP, false, true), {"Pw"});
    add(new PrimVectorVar(&Base::cPg, false, true), {"Pgw"});
    add(new PrimVectorVar(&Base::cP, true, true), {"Prefw"});
    add(new PrimVectorVar(&Base::cPg, true, true), {"Prefgw"});
  }

  VariableTable() {
    add(new ContextVar([](const VrExprContext& c) { return c.u; }), {"u"});
    add(new ContextVar([](const VrExprContext& c) { return c.v; }), {"v"});
    add(new ContextVar([](const VrExprContext& c) { return static_cast<double>(c.faceId); }), {"faceid", "faceId"});
    add(new DescriptionVar(frameOf), {"frame"});
    add(new DescriptionVar(idOf), {"descId"});
    addPrimitiveVariables();
    add(new CameraVar, {"cam"});
    add(new ColorVar, {"Cs"});
  }
};

const std::unordered_map<std::string, ExprVarRef*>& variableTable() {
  static const VariableTable* table = new VariableTable;
  return table->byName;
}

// One value slot and one variable reference per name, kept for the life of the process:
// parsed texts hold the reference, so removing a variable only hides it from new parses.
struct CustomVariables {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<SgVec3T<double>>> values;
  std::set<std::string> active;
  std::map<std::string, std::unique_ptr<CustomVar>> refs;
};

CustomVariables& customVariables() {
  static CustomVariables* variables = new CustomVariables;
  return *variables;
}

// English texts for the expression library's error codes.
std::string errorMessage(KSeExpr::ErrorCode code, const std::vector<std::string>& ids) {
  using KSeExpr::ErrorCode;
  auto id = [&ids](size_t i) { return i < ids.size() ? ids[i] : std::string(); };
  switch (code) {
    case ErrorCode::None: return "";
    case ErrorCode::ExpectedStringOrFloatAnyD: return "Expected a string or a number.";
    case ErrorCode::ExpectedFloatAnyD: return "Expected a number.";
    case ErrorCode::ExpectedFloatD: return "Expected a number of " + id(0) + " components.";
    case ErrorCode::TypeMismatch12: return "Type mismatch: " + id(0) + " and " + id(1) + ".";
    case ErrorCode::ExpectedFloatOrFloat3: return "Expected a number or a vector.";
    case ErrorCode::ArgumentTypeMismatch: return "Argument type mismatch: expected " + id(0) + ", got " + id(1) + ".";
    case ErrorCode::WrongNumberOfArguments: return "Wrong number of arguments.";
    case ErrorCode::WrongNumberOfArgumentsMultiple3Plus1: return "Wrong number of arguments: a multiple of three plus one is needed.";
    case ErrorCode::WrongNumberOfArguments1Plus: return "Wrong number of arguments: at least one is needed.";
    case ErrorCode::FirstArgumentNotString: return "The first argument must be a string.";
    case ErrorCode::IncompleteFormatSpecifier: return "Incomplete format specifier.";
    case ErrorCode::UndeclaredVariable: return "No variable named $" + id(0) + ".";
    case ErrorCode::UndeclaredFunction: return "No function named " + id(0) + ".";
    case ErrorCode::BadAssignmentOperator: return "Bad assignment operator.";
    case ErrorCode::ConditionalTypesNotCompatible: return "The branches of a conditional have incompatible types.";
    case ErrorCode::InconsistentDefinition: return "Variable " + id(0) + " is defined inconsistently in conditionals.";
    case ErrorCode::FunctionTooFewArguments: return "Too few arguments for function " + id(0) + ".";
    case ErrorCode::FunctionTooManyArguments: return "Too many arguments for function " + id(0) + ".";
    case ErrorCode::ExpressionIncompatibleTypes: return "The expression gives " + id(0) + " where " + id(1) + " is wanted.";
    case ErrorCode::SyntaxError: return "Syntax error near '" + id(0) + "'.";
    case ErrorCode::UnexpectedEndOfExpression: return "Unexpected end of expression near '" + id(0) + "'.";
    case ErrorCode::UnexpectedEndOfFormatString: return "Unexpected end of format string.";
    case ErrorCode::InvalidFormatString: return "Invalid format string.";
    case ErrorCode::WrongNumberOfArgumentsForFormatString: return "Wrong number of arguments for the format string.";
    case ErrorCode::Unknown: break;
  }
  std::string text;
  for (const std::string& part : ids) text += part;
  return text;
}

}  // namespace

// Attribute texts keep newlines and tabs escaped (an attribute is one line of a file); the
// language needs them real, so that a range comment such as "#-1.0,1.0\n" ends its line.
VrSeExpr::VrSeExpr(VrExpression* owner, const std::string& text, int desiredDim)
    : KSeExpr::Expression(vrutil::prepForEditor(text), ExprType().FP(desiredDim)), owner(owner) {}

VrSeExpr::~VrSeExpr() = default;

const VrSeExpr* VrSeExpr::of(const KSeExpr::ExprNode* node) {
  return node ? dynamic_cast<const VrSeExpr*>(node->expr()) : nullptr;
}

KSeExpr::ExprVarRef* VrSeExpr::resolveVar(const std::string& name) const {
  const auto& table = variableTable();
  auto found = table.find(name);
  if (found != table.end()) return found->second;
  CustomVariables& custom = customVariables();
  std::lock_guard<std::mutex> lock(custom.mutex);
  const int threadSlot = threadCustomValues.slotOf(name);
  if (!custom.active.count(name) && !threadCustomValues.find(threadSlot)) return nullptr;
  auto& shared = custom.values[name];
  if (!shared) shared = std::make_shared<SgVec3T<double>>();
  auto& ref = custom.refs[name];
  if (!ref) ref.reset(new CustomVar(threadSlot, shared));
  return ref.get();
}

bool VrSeExpr::primitiveFrame(double u, double v, SgVec3T<double>& U, SgVec3T<double>& V, SgVec3T<double>& N) {
  VrPrimitiveContext* primitive = currentPrimitiveContext();
  if (!primitive || !primitive->cPatch()) return false;
  U = primitive->cU(u, v, false);
  V = primitive->cV(u, v, false);
  N = primitive->cN(u, v, false);
  return true;
}

bool VrSeExpr::guidesAttr(const std::string& name, SgVec3T<double>& value) {
  VrPrimitiveContext* context = currentPrimitiveContext();
  const VrDescription* description = context ? context->description() : nullptr;
  const VrPrimitive* primitive = description ? description->activePrimitive() : nullptr;
  return primitive && primitive->getAttrValueInParallel(*context, name, value);
}

KSeExpr::ExprFunc* VrSeExpr::resolveFunc(const std::string& name) const {
  if (KSeExpr::ExprFunc* function = vrexpr::findFunction(name)) {
    systemCalls = true;
    return function;
  }
  if (owner && owner->description() && VrExpression::paletteAttr(name, owner->description())) {
    systemCalls = true;
    return vrexpr::collectionExpressionFunction();
  }
  return nullptr;
}

std::string VrSeExpr::errorText() const {
  std::vector<std::string> lines;
  auto add = [&lines](const std::string& line) {
    // The library lists a syntax error both as the parse error and among the errors.
    if (!line.empty() && std::find(lines.begin(), lines.end(), line) == lines.end()) lines.push_back(line);
  };
  add(errorMessage(parseError(), parseErrorArgs()));
  for (const auto& error : getErrors()) {
    // Type errors that follow from an earlier error name the error type; they add nothing.
    bool followsEarlier = false;
    if (error.error == KSeExpr::ErrorCode::TypeMismatch12 ||
        error.error == KSeExpr::ErrorCode::ExpressionIncompatibleTypes ||
        error.error == KSeExpr::ErrorCode::ArgumentTypeMismatch)
      for (const std::string& id : error.ids) followsEarlier = followsEarlier || id.find("Error") != std::string::npos;
    if (!followsEarlier) add(errorMessage(error.error, error.ids));
  }
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

namespace vrexpr {

void setCustomVariable(const std::string& name, const SgVec3T<double>& value) {
  threadCustomValues.set(threadCustomValues.slotOf(name), value);
  CustomVariables& custom = customVariables();
  std::lock_guard<std::mutex> lock(custom.mutex);
  auto& slot = custom.values[name];
  if (slot)
    *slot = value;
  else
    slot = std::make_shared<SgVec3T<double>>(value);
  custom.active.insert(name);
}

int threadVariableSlot(const std::string& name) { return threadCustomValues.slotOf(name); }

void setThreadCustomVariable(int slot, const SgVec3T<double>& value) { threadCustomValues.set(slot, value); }

void removeThreadCustomVariable(int slot) { threadCustomValues.erase(slot); }

void setThreadCustomVariable(const std::string& name, const SgVec3T<double>& value) {
  threadCustomValues.set(threadCustomValues.slotOf(name), value);
}

void removeThreadCustomVariable(const std::string& name) { threadCustomValues.erase(threadCustomValues.slotOf(name)); }

bool getCustomVariable(const std::string& name, SgVec3T<double>& value) {
  if (const SgVec3T<double>* own = threadCustomValues.find(threadCustomValues.slotOf(name))) {
    value = *own;
    return true;
  }
  CustomVariables& custom = customVariables();
  std::lock_guard<std::mutex> lock(custom.mutex);
  if (!custom.active.count(name)) return false;
  value = *custom.values[name];
  return true;
}

void removeCustomVariable(const std::string& name) {
  threadCustomValues.erase(threadCustomValues.slotOf(name));
  CustomVariables& custom = customVariables();
  std::lock_guard<std::mutex> lock(custom.mutex);
  custom.active.erase(name);
}

void removeAllCustomVariables() {
  threadCustomValues.clear();
  CustomVariables& custom = customVariables();
  std::lock_guard<std::mutex> lock(custom.mutex);
  custom.active.clear();
}

}  // namespace vrexpr
