#pragma once
// VrObject: the attribute bag every document object derives from. Attribute values are text,
// kept in declaration order; subclasses parse the text into typed members in their `setAttr`,
// which first calls the base. Unknown attributes are stored all the same, so they survive a
// round trip through files. A second bag holds user-added custom attributes as expressions,
// keyed by their short name. Attributes are read and written on the main thread only.

#include "base/VrDict.h"

#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

class VrDescription;
class VrExpression;

/// One attribute: its text, declared type word, enum labels and an optional texture link.
struct VrAttribute {
  std::string value;
  std::string type;
  std::string enumStrings;  ///< labels of an "enum" attribute, joined with ':'
  bool hasTexture = false;
  std::string texture;      ///< the linked texture's text, valid when hasTexture is set
};

class VrObject {
 public:
  using ExternalContext = std::vector<std::pair<std::string, std::string>>;
  using CustomAttrs = VrDict<std::shared_ptr<VrExpression>>;

  explicit VrObject(VrDescription* description);
  virtual ~VrObject();
  VrObject(const VrObject&) = delete;
  VrObject& operator=(const VrObject&) = delete;

  /// @name Overridable behaviour
  /// @{
  virtual const std::string& name() const { return objName; }
  /// Stores the value (creating the record with `type` and `enumStrings` on first use, which
  /// clears any texture link) and handles "name" and "custom_*" names. Returns false when the
  /// name still needs a subclass to interpret it; the value is stored either way.
  virtual bool setAttr(const std::string& name, const std::string& value,
                       const std::string& type = "float", const std::string& enumStrings = "");
  /// The class's word, which is also its token in files.
  virtual std::string typeName() const = 0;
  /// Writes the object as a preset block: no extra attributes, "endAttrs" always written,
  /// "groom" without its name space, and without the attributes that depend on the scene (a
  /// "string" that is no valid expression unless `attrIsForcedInPreset`, an "expr" calling
  /// `map` or `patchAttr`).
  virtual bool exportObjAsPreset(std::ostream& out) const;
  /// True for a "string" attribute that a preset keeps whatever its text.
  virtual bool attrIsForcedInPreset(const std::string&) const { return false; }
  /// Writes attributes that are not stored in the object; false leaves the block unterminated.
  virtual bool exportExtraAttr(std::ostream&) const { return true; }
  /// True for names that `importObj` must skip (written by `exportExtraAttr`).
  virtual bool isExtraAttr(const std::string&) const { return false; }
  /// True for a stored attribute whose value a saved block leaves empty (a description's
  /// "groom" when its groom is written elsewhere).
  virtual bool attrWrittenEmpty(const std::string&) const { return false; }
  /// Adds (prefix + short name, file) for each file the custom expressions read.
  virtual void getExternalContext(ExternalContext& pairs, const std::string& prefix) const;
  /// @}

  /// @name Attributes
  /// @{
  VrDescription* description() const { return ownerDescription; }
  unsigned numAttrs() const { return static_cast<unsigned>(attrOrder.size()); }
  /// The i-th attribute name in declaration order; an index past the end gives the last name.
  /// Not defined on an object without attributes.
  const std::string& attr(unsigned i) const;
  const std::vector<std::string>& attrNames() const { return attrOrder; }
  bool hasAttr(const std::string& name) const { return attrs.contains(name); }
  /// False for an unknown name, leaving the outputs alone.
  bool getAttr(const std::string& name, std::string& value) const;
  bool getAttr(const std::string& name, std::string& value, std::string& type) const;
  /// The labels of an enum attribute; empty for an unknown name.
  std::vector<std::string> getEnumStrings(const std::string& name) const;
  /// Erases the attribute (and its custom expression); false when a custom name is malformed.
  bool remAttr(const std::string& name);
  void remAttrs(const std::set<std::string>& names);
  /// False (with an Error) for an unknown short name; false when the text begins with "##".
  bool enabledCustomAttr(const std::string& shortName) const;
  const CustomAttrs& customAttrs() const { return customs; }
  /// @}

  /// @name Texture links
  /// @{
  /// False for an unknown name; `text` is empty when no texture is linked.
  bool getTexture(const std::string& name, std::string& text) const;
  /// Links a texture; false for an unknown name.
  bool setTexture(const std::string& name, const std::string& text);
  /// Links a texture, creating a default record for an unknown name.
  void setTexMap(const std::string& name, const std::string& text);
  /// Appends "owner<TAB>attribute<TAB>texture" for each linked attribute, in dictionary order.
  void getTexMap(std::vector<std::string>& lines) const;
  /// @}

  /// @name Object blocks
  /// @{
  /// Writes a line break, the type word, one line per attribute and "endAttrs".
  bool exportObj(std::ostream& out) const;
  /// Reads attribute lines up to "endAttrs"; "name" and "parent" values get `nameSpace`.
  /// Returns the stream's good state.
  bool importObj(std::istream& in, const std::string& nameSpace);
  /// @}

  /// @name Parsers for subclasses' setAttr
  /// On failure each writes its canonical value ("false", "0", "0", "0.0") back into the
  /// attribute, clears its texture link and returns false.
  /// @{
  bool boolAttr(const std::string& name, const std::string& value, bool& out);
  bool intAttr(const std::string& name, const std::string& value, int& out);
  bool uintAttr(const std::string& name, const std::string& value, unsigned& out);
  bool floatAttr(const std::string& name, const std::string& value, double& out);
  /// @}

  /// The tab run written between an attribute's name and its value.
  static const char* tabsFor(const std::string& attrName);

 protected:
  /// Stores `vrutil::sgObjName(value)` as the name.
  virtual void setName(const std::string& value);
  /// Removes a custom expression by its full attribute name; false with an Error when the name
  /// has no type part, false when the short name is unknown.
  bool removeCustomAttr(const std::string& name);

  std::string objName;

 private:
  void resetToCanonical(const std::string& name, const char* canonical);
  void setCustomAttr(const std::string& name, const std::string& value);
  void writeBlockBody(std::ostream& out, bool preset) const;
  /// True for an attribute that reaches for the scene a preset leaves behind: a "string" that
  /// is no valid expression (a path, unless forced), or an "expr" reading maps or patch data.
  bool leftOutOfPreset(const std::string& name, const VrAttribute& record) const;

  VrDescription* ownerDescription;
  VrDict<VrAttribute> attrs;
  std::vector<std::string> attrOrder;
  CustomAttrs customs;
};
