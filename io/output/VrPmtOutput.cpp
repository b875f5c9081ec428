#include "io/output/VrPmtOutput.h"

#include <sstream>

std::string VrPmtOutput::header() const {
  std::ostringstream text;
  VrWriteInstanceHeader(text);
  return text.str();
}

void VrPmtOutput::appendText(const std::string&, const VrOutputPrimitive& primitive, std::string& text) const {
  VrAppendInstanceRecord(text, instanceRecord(primitive));
}
