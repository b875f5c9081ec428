#include "io/output/VrPmtOutput.h"

#include <locale>

bool VrPmtOutput::begin() {
  file = std::make_unique<VrAtomicFile>(path);
  if (!file->ok()) return fail("cannot be written");
  file->out().imbue(std::locale::classic());
  VrWriteInstanceHeader(file->out());
  return true;
}

bool VrPmtOutput::write(const std::string&, const VrOutputPrimitive* primitives, size_t count) {
  if (!file) return false;
  appendTexts(primitives, count, file->out(),
              [](const VrOutputPrimitive& prim, std::string& text) { VrAppendInstanceRecord(text, instanceRecord(prim)); });
  return file->ok() || fail("cannot be written");
}

bool VrPmtOutput::end() {
  const bool ok = file && file->commit();
  file.reset();
  return ok || fail("cannot be written");
}
