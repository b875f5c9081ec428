#pragma once
// VrExpression: one attribute expression of the expression language, evaluated per location.
// It owns the parsed text, knows the attribute it serves and the description it belongs to, and
// seeds `rand` from both so that a primitive keeps its values across frames, machines and
// threads.
//
// Threads: construction, `setExpression`, `setType` and `setDescription` are for the main thread
// while nothing evaluates. `eval` may run on many threads at once while
// `VrTaskManager::setSeExprMultithreading(true)` is in force: each thread then evaluates its own
// parse of the text, and all per-call state lives in the thread's context.

#include "geometry/SgVec3T.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class VrDescription;
class VrPrimitiveContext;
class VrPtexTexture;
class VrSeExpr;
struct VrExprContext;

class VrExpression {
 public:
  /// `objectWord` is the owner's `typeName()`; `type` is "float" or a vector word.
  VrExpression(const std::string& name, const std::string& objectWord, VrDescription* description,
               const std::string& text, const std::string& type);
  ~VrExpression();
  VrExpression(const VrExpression&) = delete;
  VrExpression& operator=(const VrExpression&) = delete;

  /// @name Text
  /// @{
  const std::string& name() const { return attrName; }
  const std::string& expression() const { return text; }
  /// Replaces the text; the parse is made again at the next use, with `rand` call sites
  /// numbered from 0 again.
  void setExpression(const std::string& newText);
  VrExpression& operator=(const std::string& newText) {
    setExpression(newText);
    return *this;
  }
  const std::string& type() const { return typeWord; }
  void setType(const std::string& type);
  /// True for every type but "float".
  bool isVec() const { return typeWord != "float"; }
  /// @}

  /// @name Checks (parse on first use)
  /// @{
  /// True when the text parses and binds. Otherwise, with `error` given, the report
  /// "Error in expression \"<description>::<attribute>\". [<text>]\nError: <errors>" is stored
  /// there and sent as an Error.
  bool isValid(std::string* error = nullptr) const;
  /// The same for syntax only.
  bool syntaxOK(std::string* error = nullptr) const;
  /// True when the value is the same everywhere: no variable, no function of the system's table
  /// and no collection expression in it.
  bool isConstant() const;
  /// True once `eval` answers from the stored value of a constant text without evaluating it.
  bool isFoldedConstant() const { return foldState.load(std::memory_order_acquire) == Folded; }
  bool usesFunc(const std::string& funcName) const;
  bool usesVar(const std::string& varName) const;
  /// The main thread's parse.
  VrSeExpr* seExpr() const;
  /// @}

  /// @name Evaluation
  /// @{
  /// The value at (u, v) of `faceId` on the named patch; zero for an invalid text, zero with an
  /// Error (once per text) when the expression calls itself. A "float" expression gives its
  /// value in all three components.
  SgVec3T<double> eval(double u, double v, int faceId, const std::string* patchName = nullptr) const {
    // Constants answer inline: most attributes of a description are, and they are read per primitive.
    if (isFoldedConstant()) return folded;
    return evalAt(u, v, faceId, patchName);
  }
  /// The current location of the calling thread's evaluation.
  double u() const;
  double v() const;
  int faceId() const;
  const std::string* patchName() const;
  double faceSeed() const;
  /// `hashString(name + objectWord)`: separates attributes of the same name on other classes.
  double exprSeed() const { return seed; }
  /// While nested in another evaluation, the description of the outermost one (so a collection
  /// expression evaluates for the description that asks); otherwise the expression's own.
  VrDescription* description() const;
  void setDescription(VrDescription* description) { owner = description; }
  /// @}

  /// @name Call sites of `rand` in the main parse
  /// @{
  int randInstance() const;
  void setRandInstance(int n);
  int nextRandInstance();
  /// @}

  /// @name Process-wide state
  /// @{
  /// Resets the calling thread's evaluation state at the start of a parallel job and makes
  /// `context` (with its motion samples) the primitive that the primitive variables (`$P`,
  /// `$id`, ...) read on this thread while expression multithreading is on. Null: they read the
  /// active primitive of the evaluating description.
  static void initTLS(VrPrimitiveContext* context = nullptr);
  /// Resets the calling thread's state, primitive contexts included, when a parallel job ends.
  static void clearTLS();
  static void setCustomVariable(const std::string& name, double value);
  static void setCustomVariable(const std::string& name, const SgVec3T<double>& value);
  /// For the calling thread only (a worker's per-primitive or per-CV value); seen by that
  /// thread's evaluations and parses, before any process-wide value of the same name.
  static void setThreadVariable(const std::string& name, double value);
  static void setThreadVariable(const std::string& name, const SgVec3T<double>& value);
  /// Forgets the calling thread's own value; a process-wide value of the name stays.
  static void removeThreadVariable(const std::string& name);
  /// A thread variable's name looked up once: a worker that sets it per primitive or per CV
  /// through the handle touches no string.
  class ThreadVariable {
   public:
    explicit ThreadVariable(const std::string& name);
    /// The empty name, which no expression reads: a handle to be named later.
    ThreadVariable() : ThreadVariable(std::string()) {}
    int slot() const { return index; }

   private:
    int index;
  };
  static void setThreadVariable(const ThreadVariable& variable, double value);
  static void removeThreadVariable(const ThreadVariable& variable);
  static bool getCustomVariable(const std::string& name, SgVec3T<double>& value);
  static void removeCustomVariable(const std::string& name);
  static void removeAllCustomVariables();
  /// The collection expression `shortName` of the description's collection, or an empty
  /// pointer; Errors for a missing description or collection.
  static const std::shared_ptr<VrExpression>& paletteAttr(const std::string& shortName,
                                                          VrDescription* description);
  /// Registers a callback run by `clearPtexs`.
  static void registerClearCache(std::function<void()> callback);
  /// Drops cached textures: every thread's under expression multithreading, else the calling
  /// thread's; then runs the callbacks of `registerClearCache`. Only while nothing evaluates.
  static void clearPtexs();
  /// The texture at `path` from the calling thread's cache (opened on first use, no lock once
  /// the thread's cache exists), or null with an Error the first time the file fails. The
  /// texture stays valid while the pointer is held.
  static std::shared_ptr<VrPtexTexture> getPtex(const std::string& path);
  static bool shadowPass();
  static void setShadowPass(bool on);
  /// @}

  /// Adds (prefix, path) for each file the expression's `map` and `vmap` calls stand for: per
  /// map, the file resolved for each patch of the description, in name order.
  void getExternalContext(std::vector<std::pair<std::string, std::string>>& pairs,
                          const std::string& prefix) const;

 private:
  VrSeExpr& parseForThisThread() const;
  /// `eval` for a text not (yet) known to be constant.
  SgVec3T<double> evalAt(double u, double v, int faceId, const std::string* patchName) const;
  /// `evalAt` from inside another evaluation on the calling thread, loops already ruled out.
  SgVec3T<double> evalNested(VrExprContext& context, double u, double v, int faceId,
                             const std::string* patchName) const;
  /// The calling thread's parse, or null when the text is invalid; sets whether the value has
  /// three components.
  VrSeExpr* threadParse(VrExprContext& context, bool& threeComponents) const;
  /// Evaluates the parse at the context's location.
  SgVec3T<double> evalHere(VrExprContext& context, VrSeExpr& parsed, bool threeComponents) const;
  /// The value of a constant text, worked out on the first call; null when the text varies.
  const SgVec3T<double>* foldedValue() const;
  const SgVec3T<double>* fold() const;
  /// Whether the text asks for three components and the parse gives them; otherwise a float
  /// value is repeated in all three.
  bool hasThreeComponents(const VrSeExpr& parsed) const;
  void forgetParses();
  int desiredDim() const { return dimension; }
  void reportLoop() const;

  struct Parses;

  VrDescription* owner;
  std::string attrName;
  std::string objectWord;
  std::string text;
  std::string typeWord;
  int dimension;  ///< 3 for a vector type, 1 for "float"
  double seed;
  mutable bool looped = false;
  mutable std::mutex lock;
  std::unique_ptr<Parses> parses;
  enum FoldState { Unknown, Folded, Varies };
  mutable std::atomic<int> foldState{Unknown};
  mutable SgVec3T<double> folded;
  /// Set once the main parse is known to be valid, so that evaluations need not ask again.
  mutable std::atomic<bool> mainParseValid{false};
};
