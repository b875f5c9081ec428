#include "base/vrutilName.h"

#include <cctype>

#include "base/vrutilString.h"

namespace vrutil {

std::string sgObjName(const std::string& text) {
  const size_t bar = text.rfind('|');
  return bar == std::string::npos ? text : text.substr(bar + 1);
}

std::string sgXformToShape(const std::string& text, bool beforeDigits) {
  std::string name = sgObjName(text);
  if (!beforeDigits) return name + "Shape";
  size_t digits = name.size();
  while (digits > 0 && std::isdigit(static_cast<unsigned char>(name[digits - 1]))) --digits;
  name.insert(digits, "Shape");
  return name;
}

std::string objNameSpace(const std::string& text) {
  const std::string name = sgObjName(text);
  const size_t colon = name.rfind(':');
  return colon == std::string::npos ? std::string() : name.substr(0, colon + 1);
}

std::string objBaseNameSpace(const std::string& text) {
  std::string ns = objNameSpace(text);
  if (!ns.empty()) ns.pop_back();
  return ns;
}

std::string stripNameSpace(const std::string& text) {
  // Most names have no namespace, and renders strip a patch's name once per face.
  if (text.find(':') == std::string::npos) return text;
  std::string out = text;
  replaceSubStrs(out, objNameSpace(text), "");
  return out;
}

bool isBaseNameEmpty(const std::string& text) {
  return !text.empty() && !stripNameSpace(text).empty();
}

}  // namespace vrutil
