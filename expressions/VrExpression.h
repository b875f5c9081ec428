#pragma once
// One attribute expression: its text, its type word ("float" or a vector word), the attribute it
// serves and the description it belongs to. Parsing and evaluation are added on top of this
// record; until then an expression is carried as text only. Main thread only.

#include <string>
#include <utility>
#include <vector>

class VrDescription;

class VrExpression {
 public:
  /// `objectWord` is the owner's `typeName()`.
  VrExpression(const std::string& name, const std::string& objectWord, VrDescription* description,
               const std::string& text, const std::string& type);

  const std::string& name() const { return attrName; }
  const std::string& expression() const { return text; }
  void setExpression(const std::string& newText);
  VrExpression& operator=(const std::string& newText) {
    setExpression(newText);
    return *this;
  }

  const std::string& type() const { return typeWord; }
  void setType(const std::string& type) { typeWord = type; }
  /// True for every type but "float".
  bool isVec() const { return typeWord != "float"; }

  VrDescription* description() const { return owner; }
  void setDescription(VrDescription* description) { owner = description; }

  /// True when the text calls the function `funcName`: the name followed by '(' outside
  /// comments and string literals.
  bool usesFunc(const std::string& funcName) const;

  /// Adds (prefix, path) for each file the expression reads; none while expressions are text.
  void getExternalContext(std::vector<std::pair<std::string, std::string>>& pairs,
                          const std::string& prefix) const;

 private:
  VrDescription* owner;
  std::string attrName;
  std::string objectWord;
  std::string text;
  std::string typeWord;
};
