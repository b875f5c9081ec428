// Ownership: a VrExpression owns its main parse and one parse per thread that evaluated it with
// expression multithreading on. The per-thread parses are made under one process-wide mutex (the
// expression library's parser is not known to be reentrant) and dropped when the text changes,
// which happens only on the main thread while nothing evaluates.
//
// Threading: `eval` touches no member of the expression except through the thread's own parse;
// location and nesting live in the thread's VrExprContext. The mutex `lock` guards only the
// once-per-text infinite-loop report.

#include "expressions/VrExpression.h"

#include "base/VrMessage.h"
#include "base/VrProfiler.h"
#include "base/VrTaskManager.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "expressions/VrExprContext.h"
#include "expressions/VrPtexCache.h"
#include "expressions/VrSeExpr.h"
#include "primitives/VrPrimitiveContext.h"

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <atomic>

namespace {

// A result in all three components: a float text's value is repeated.
SgVec3T<double> resultFrom(const double* value, bool threeComponents) {
  return threeComponents ? SgVec3T<double>(value[0], value[1], value[2]) : SgVec3T<double>(value[0], value[0], value[0]);
}

unsigned long long newParsesSerial() {
  static std::atomic<unsigned long long> last{0};
  return ++last;
}

}  // namespace

struct VrExpression::Parses {
  std::unique_ptr<VrSeExpr> main;
  tbb::enumerable_thread_specific<std::unique_ptr<VrSeExpr>> perThread;
  /// Changes whenever the per-thread parses are dropped; see VrExprContext::ParseSlot.
  unsigned long long serial = newParsesSerial();
};

namespace {

// Recursive: preparing a text can evaluate variables that lead to another expression's first
// parse or fold on the same thread.
std::recursive_mutex& parseMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

std::atomic<bool>& shadowPassFlag() {
  static std::atomic<bool> flag{false};
  return flag;
}

std::vector<std::function<void()>>& clearCallbacks() {
  static std::vector<std::function<void()>> callbacks;
  return callbacks;
}

// Expressions being validated on this thread: collection expressions that call each other are
// checked once each, and the loop is reported when they are evaluated.
std::vector<const VrExpression*>& validating() { return VrExprContext::current().validating; }

bool onStack(const std::vector<const VrExpression*>& stack, const VrExpression* expression) {
  return std::find(stack.begin(), stack.end(), expression) != stack.end();
}

}  // namespace

VrExpression::VrExpression(const std::string& name, const std::string& objectWord,
                           VrDescription* description, const std::string& text,
                           const std::string& type)
    : owner(description),
      attrName(name),
      objectWord(objectWord),
      typeWord(type),
      dimension(isVec() ? 3 : 1),
      seed(static_cast<double>(vrutil::hashString(name + objectWord))),
      parses(new Parses) {
  setExpression(text);
}

VrExpression::~VrExpression() = default;

void VrExpression::forgetParses() {
  parses->main.reset();
  parses->perThread.clear();
  parses->serial = newParsesSerial();
  foldState.store(Unknown, std::memory_order_release);
  mainParseValid.store(false, std::memory_order_release);
}

void VrExpression::setExpression(const std::string& newText) {
  text = newText;
  looped = false;
  forgetParses();
}

void VrExpression::setType(const std::string& type) {
  if (type == typeWord) return;
  typeWord = type;
  dimension = isVec() ? 3 : 1;
  forgetParses();
}

VrSeExpr* VrExpression::seExpr() const {
  if (!parses->main) parses->main.reset(new VrSeExpr(const_cast<VrExpression*>(this), text, desiredDim()));
  return parses->main.get();
}

VrSeExpr& VrExpression::parseForThisThread() const {
  if (!VrTaskManager::seExprMultithreading()) return *seExpr();
  std::unique_ptr<VrSeExpr>& local = parses->perThread.local();
  if (!local) {
    std::lock_guard<std::recursive_mutex> guard(parseMutex());
    local.reset(new VrSeExpr(const_cast<VrExpression*>(this), text, desiredDim()));
    validating().push_back(this);
    local->isValid();
    validating().pop_back();
  }
  return *local;
}

bool VrExpression::isValid(std::string* error) const {
  if (onStack(validating(), this)) return true;
  VrSeExpr* parsed = seExpr();
  validating().push_back(this);
  const bool valid = parsed->isValid();
  validating().pop_back();
  if (valid) mainParseValid.store(true, std::memory_order_release);
  if (valid || !error) return valid;
  const std::string descriptionName = owner ? owner->name() : std::string();
  *error = "Error in expression \"" + descriptionName + "::" + attrName + "\". [" + text + "]\n" +
           "Error: " + parsed->errorText();
  VR_ERROR(*error);
  return false;
}

bool VrExpression::syntaxOK(std::string* error) const {
  VrSeExpr* parsed = seExpr();
  const bool ok = parsed->syntaxOK();
  if (ok || !error) return ok;
  const std::string descriptionName = owner ? owner->name() : std::string();
  *error = "Error in expression \"" + descriptionName + "::" + attrName + "\". [" + text + "]\n" +
           "Error: " + parsed->errorText();
  VR_ERROR(*error);
  return false;
}

bool VrExpression::isConstant() const {
  // The library takes calls of functions without arguments (`rand()`) for constants: a call of
  // any function of the system's table, or of a collection expression, makes the text vary.
  if (!isValid()) return false;
  const VrSeExpr* parsed = seExpr();
  return parsed->isConstant() && !parsed->callsSystemFunction();
}

bool VrExpression::usesFunc(const std::string& funcName) const { return seExpr()->usesFunc(funcName); }

bool VrExpression::usesVar(const std::string& varName) const { return seExpr()->usesVar(varName); }

void VrExpression::reportLoop() const {
  std::lock_guard<std::mutex> guard(lock);
  if (looped) return;
  looped = true;
  VR_ERROR("Expression \"" + attrName + "\" has an infinite loop. [" + text + "]");
}

const SgVec3T<double>* VrExpression::foldedValue() const {
  const int state = foldState.load(std::memory_order_acquire);
  if (state == Folded) return &folded;
  if (state == Varies) return nullptr;
  return fold();
}

const SgVec3T<double>* VrExpression::fold() const {
  // Under the parse lock: the first evaluations of a text may come from several workers at once,
  // and the main parse is made here. A constant reads no variable and calls nothing of the
  // system's, so evaluating the main parse needs no location.
  std::lock_guard<std::recursive_mutex> guard(parseMutex());
  const int state = foldState.load(std::memory_order_acquire);
  if (state != Unknown) return state == Folded ? &folded : nullptr;
  if (onStack(validating(), this) || !isConstant()) {
    foldState.store(Varies, std::memory_order_release);
    return nullptr;
  }
  const VrSeExpr& parsed = *seExpr();
  folded = resultFrom(parsed.evalFP(), hasThreeComponents(parsed));
  foldState.store(Folded, std::memory_order_release);
  return &folded;
}

bool VrExpression::hasThreeComponents(const VrSeExpr& parsed) const {
  return desiredDim() == 3 && parsed.returnType().isFP(3);
}

// Helpers of evalAt and evalNested, their only callers: defined inline for the compiler to fold in.
inline VrSeExpr* VrExpression::threadParse(VrExprContext& context, bool& threeComponents) const {
  // Under threads the thread's parse, its validity and its result type are kept in the thread's
  // slots after the first evaluation: no look-up in the per-thread table, no call to ask again.
  if (VrTaskManager::seExprMultithreading()) {
    VrExprContext::ParseSlot& slot = context.parseSlots[parses->serial % VrExprContext::parseSlotCount];
    if (slot.serial != parses->serial) {
      // Made before the slot is written: preparing a parse can evaluate other expressions.
      VrSeExpr& own = parseForThisThread();
      const bool valid = own.isValid();
      const bool three = valid && hasThreeComponents(own);
      slot = {parses->serial, &own, valid, three};
    }
    threeComponents = slot.threeComponents;
    return slot.valid ? slot.parse : nullptr;
  }
  // The main parse is made lazily, and its validity asked until it is known to be valid.
  VrSeExpr* parsed = seExpr();
  if (!mainParseValid.load(std::memory_order_acquire) && !isValid()) return nullptr;
  threeComponents = hasThreeComponents(*parsed);
  return parsed;
}

inline SgVec3T<double> VrExpression::evalHere(VrExprContext& context, VrSeExpr& parsed, bool threeComponents) const {
  VR_DEBUG(5, vrmsg::CatExpression, "Eval expression \"" + attrName + "\" [" + text + "]");
  context.stack.push_back(this);
  const double* value = parsed.evalFP();
  context.stack.pop_back();
  const SgVec3T<double> result = resultFrom(value, threeComponents);
  VR_DEBUG(5, vrmsg::CatExpression,
           "Done eval \"" + attrName + "\" [" + text + "] = " + vrutil::vtoa(result));
  return result;
}

SgVec3T<double> VrExpression::evalAt(double u, double v, int faceId, const std::string* patchName) const {
  // The same value at every location: no context to set up, nothing to evaluate.
  if (const SgVec3T<double>* constant = foldedValue()) return *constant;
  VrExprContext& context = VrExprContext::current();
  // A loop: this expression is already evaluating on this thread, or is being prepared (the
  // library reads variables while it builds its interpreter, and a variable can lead back here).
  // The usual call, from a primitive, has neither stack to look through.
  if ((!context.stack.empty() || !context.validating.empty()) &&
      (onStack(context.stack, this) || onStack(context.validating, this))) {
    reportLoop();
    return SgVec3T<double>();
  }
  if (!context.stack.empty()) return evalNested(context, u, v, faceId, patchName);
  bool threeComponents;
  VrSeExpr* parsed = threadParse(context, threeComponents);
  if (!parsed) return SgVec3T<double>();
  context.u = u;
  context.v = v;
  context.faceId = faceId;
  context.patchName = patchName;
  context.description = owner;
  const SgVec3T<double> result = evalHere(context, *parsed, threeComponents);
  context.patchName = nullptr;
  return result;
}

SgVec3T<double> VrExpression::evalNested(VrExprContext& context, double u, double v, int faceId,
                                         const std::string* patchName) const {
  bool threeComponents;
  VrSeExpr* parsed = threadParse(context, threeComponents);
  if (!parsed) return SgVec3T<double>();
  // The caller's location comes back afterwards. The description stays the caller's, for whom a
  // collection expression evaluates; the face seed is keyed by the location it was worked out
  // for, so it needs no saving.
  const double savedU = context.u, savedV = context.v;
  const int savedFace = context.faceId;
  const std::string* savedPatch = context.patchName;
  context.u = u;
  context.v = v;
  context.faceId = faceId;
  context.patchName = patchName;
  const SgVec3T<double> result = evalHere(context, *parsed, threeComponents);
  context.u = savedU;
  context.v = savedV;
  context.faceId = savedFace;
  context.patchName = savedPatch;
  return result;
}

double VrExpression::u() const { return VrExprContext::current().u; }
double VrExpression::v() const { return VrExprContext::current().v; }
int VrExpression::faceId() const { return VrExprContext::current().faceId; }
const std::string* VrExpression::patchName() const { return VrExprContext::current().patchName; }
double VrExpression::faceSeed() const { return VrExprContext::current().currentFaceSeed(); }

VrDescription* VrExpression::description() const {
  const VrExprContext& context = VrExprContext::current();
  return context.stack.size() > 1 ? context.description : owner;
}

int VrExpression::randInstance() const { return seExpr()->randInstance(); }
void VrExpression::setRandInstance(int n) { seExpr()->setRandInstance(n); }
int VrExpression::nextRandInstance() { return seExpr()->nextRandInstance(); }

void VrExpression::initTLS(VrPrimitiveContext* primitiveContext) {
  VrExprContext& context = VrExprContext::current();
  context.reset();
  context.primitives.clear();
  if (!primitiveContext) return;
  context.primitives.push_back(primitiveContext);
  for (unsigned i = 0; i < primitiveContext->numSamples(); ++i)
    if (VrPrimitiveContext* sample = primitiveContext->sample(i)) context.primitives.push_back(sample);
}

void VrExpression::clearTLS() {
  VrExprContext& context = VrExprContext::current();
  context.reset();
  context.primitives.clear();
}

void VrExpression::setCustomVariable(const std::string& name, double value) {
  vrexpr::setCustomVariable(name, SgVec3T<double>(value, value, value));
}
void VrExpression::setCustomVariable(const std::string& name, const SgVec3T<double>& value) {
  vrexpr::setCustomVariable(name, value);
}
void VrExpression::setThreadVariable(const std::string& name, double value) {
  vrexpr::setThreadCustomVariable(name, SgVec3T<double>(value, value, value));
}
void VrExpression::setThreadVariable(const std::string& name, const SgVec3T<double>& value) {
  vrexpr::setThreadCustomVariable(name, value);
}
void VrExpression::removeThreadVariable(const std::string& name) { vrexpr::removeThreadCustomVariable(name); }
VrExpression::ThreadVariable::ThreadVariable(const std::string& name) : index(vrexpr::threadVariableSlot(name)) {}
void VrExpression::setThreadVariable(const ThreadVariable& variable, double value) {
  vrexpr::setThreadCustomVariable(variable.slot(), SgVec3T<double>(value, value, value));
}
void VrExpression::removeThreadVariable(const ThreadVariable& variable) {
  vrexpr::removeThreadCustomVariable(variable.slot());
}
bool VrExpression::getCustomVariable(const std::string& name, SgVec3T<double>& value) {
  return vrexpr::getCustomVariable(name, value);
}
void VrExpression::removeCustomVariable(const std::string& name) { vrexpr::removeCustomVariable(name); }
void VrExpression::removeAllCustomVariables() { vrexpr::removeAllCustomVariables(); }

const std::shared_ptr<VrExpression>& VrExpression::paletteAttr(const std::string& shortName,
                                                               VrDescription* description) {
  static const std::shared_ptr<VrExpression> none;
  if (!description) {
    VR_ERROR("No description given in global expression reference.");
    return none;
  }
  VrPalette* palette = description->palette();
  if (!palette) {
    VR_ERROR("No collection for given description in global expression reference.");
    return none;
  }
  const std::shared_ptr<VrExpression>& found = palette->namedAttr(shortName);
  if (found && found->owner != description) found->setDescription(description);
  return found;
}

void VrExpression::registerClearCache(std::function<void()> callback) {
  clearCallbacks().push_back(std::move(callback));
}

void VrExpression::clearPtexs() {
  vrutil::VrProfileScope profile("clearPtexs");
  if (VrTaskManager::seExprMultithreading())
    VrPtexCache::clearAll();
  else
    VrPtexCache::clearThisThread();
  for (const auto& callback : clearCallbacks()) callback();
}

std::shared_ptr<VrPtexTexture> VrExpression::getPtex(const std::string& path) {
  return VrPtexCache::forThisThread().get(path);
}

bool VrExpression::shadowPass() { return shadowPassFlag(); }
void VrExpression::setShadowPass(bool on) { shadowPassFlag() = on; }

void VrExpression::getExternalContext(std::vector<std::pair<std::string, std::string>>& pairs,
                                      const std::string& prefix) const {
  if (!owner || !isValid()) return;
  for (const std::string& map : seExpr()->mapNames())
    for (const auto& patch : owner->patches())
      pairs.emplace_back(prefix, vrutil::resolveFileInVrDataPath(map, patch.first, owner, ""));
}
