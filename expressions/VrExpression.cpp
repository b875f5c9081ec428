#include "expressions/VrExpression.h"

#include <cctype>

VrExpression::VrExpression(const std::string& name, const std::string& objectWord,
                           VrDescription* description, const std::string& text,
                           const std::string& type)
    : owner(description), attrName(name), objectWord(objectWord), typeWord(type) {
  setExpression(text);
}

void VrExpression::setExpression(const std::string& newText) { text = newText; }

void VrExpression::getExternalContext(std::vector<std::pair<std::string, std::string>>&,
                                      const std::string&) const {}

bool VrExpression::usesFunc(const std::string& funcName) const {
  auto isNameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const char c = text[i];
    if (c == '#') {  // a comment runs to the end of its line
      while (i < n && text[i] != '\n') ++i;
    } else if (c == '"' || c == '\'') {  // a string literal, with backslash escapes
      for (++i; i < n && text[i] != c; ++i)
        if (text[i] == '\\') ++i;
      ++i;
    } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
      const size_t start = i;
      while (i < n && isNameChar(text[i])) ++i;
      size_t next = i;
      while (next < n && std::isspace(static_cast<unsigned char>(text[next]))) ++next;
      const bool preceded = start > 0 && (text[start - 1] == '$');
      if (!preceded && next < n && text[next] == '(' && text.compare(start, i - start, funcName) == 0 &&
          i - start == funcName.size())
        return true;
    } else {
      ++i;
    }
  }
  return false;
}
