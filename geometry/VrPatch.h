#pragma once
// VrPatch: one bound piece of geometry of a description, identified by the geometry's name.
// Owned by its description. Surface binding and evaluation are added by the patch kinds.

#include <string>

class VrDescription;

class VrPatch {
 public:
  explicit VrPatch(VrDescription* description) : owner(description) {}
  virtual ~VrPatch() = default;
  VrPatch(const VrPatch&) = delete;
  VrPatch& operator=(const VrPatch&) = delete;

  /// "NurbsPatch" or "SubdPatch".
  virtual std::string typeName() const = 0;

  const std::string& name() const { return patchName; }
  void setName(const std::string& name) { patchName = name; }
  VrDescription* description() const { return owner; }
  /// The patch's place among its description's patches.
  unsigned index() const { return patchIndex; }
  void setIndex(unsigned index) { patchIndex = index; }

 private:
  std::string patchName = "Unnamed";
  VrDescription* owner;
  unsigned patchIndex = 0;
};
