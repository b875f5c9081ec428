#pragma once
// VrExprContext: the evaluation state of one thread. Expressions push themselves while they
// evaluate, so that variables and functions (which the expression library calls without telling
// them which expression they belong to) can find the current location, and so that an
// expression that calls itself through collection expressions is caught. One per thread; only
// its own thread touches it.

#include <string>
#include <vector>

class VrDescription;
class VrExpression;
class VrPrimitiveContext;
class VrSeExpr;

struct VrExprContext {
  /// Expressions being evaluated on this thread, innermost last.
  std::vector<const VrExpression*> stack;
  /// Expressions being parsed or checked on this thread: the library reads variables while it
  /// builds its interpreter, and a variable can lead back to the expression being built.
  std::vector<const VrExpression*> validating;

  /// @name The location of the innermost evaluation
  /// @{
  double u = 0.0;
  double v = 0.0;
  int faceId = 0;
  const std::string* patchName = nullptr;
  VrDescription* description = nullptr;
  double faceSeed = 0.0;  ///< as of the last `currentFaceSeed`
  /// @}

  /// @name Cache key of the face seed
  /// @{
  int lastFace = -1;
  int lastDescriptionId = -1;
  std::string lastPatch;
  /// @}

  /// The thread's own parse of an expression it evaluated lately, with what evaluating it needs
  /// to know of the parse. Keyed by the serial number of the expression's set of parses, which is
  /// never given out twice: a slot left by parses since forgotten or freed never matches again.
  struct ParseSlot {
    unsigned long long serial = 0;
    VrSeExpr* parse = nullptr;
    bool valid = false;
    bool threeComponents = false;
  };
  static constexpr unsigned parseSlotCount = 32;
  ParseSlot parseSlots[parseSlotCount];

  /// The primitive contexts of the thread's current work, set by `VrExpression::initTLS`: the
  /// main one first, then those of its motion samples (not owned). Empty outside parallel work.
  std::vector<VrPrimitiveContext*> primitives;

  /// The context of the calling thread. Expressions ask for it several times per primitive: a
  /// pointer in the thread's static block is one load, where the context itself, an object with
  /// a destructor in a shared library, would cost two look-ups of the thread's block and a guard.
  static VrExprContext& current() {
    VrExprContext* context = threadContext;
    return context ? *context : makeCurrent();
  }

  /// The seed of the current location's face, description and patch, worked out again only when
  /// one of them changed since it last was: only `rand` needs it, so an evaluation without a call
  /// of it never compares the patch name.
  double currentFaceSeed();

  /// Forgets the location and the face seed cache (not the primitive contexts).
  void reset();

 private:
  static VrExprContext& makeCurrent();
  static __thread VrExprContext* threadContext __attribute__((tls_model("initial-exec")));
};
