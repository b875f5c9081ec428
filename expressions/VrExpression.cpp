#include "expressions/VrExpression.h"

VrExpression::VrExpression(const std::string& name, const std::string& objectWord,
                           VrDescription* description, const std::string& text,
                           const std::string& type)
    : owner(description), attrName(name), objectWord(objectWord), typeWord(type) {
  setExpression(text);
}

void VrExpression::setExpression(const std::string& newText) { text = newText; }

void VrExpression::getExternalContext(std::vector<std::pair<std::string, std::string>>&,
                                      const std::string&) const {}
