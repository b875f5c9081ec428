#pragma once
// A readable summary of a point or primitive file (.vuv, .vpd): the header's fields, the block
// and key names, every face with its record count per block, and the first records of the first
// faces (id, u, v and the values after them). Every record of the file is read on the way, so a
// damaged run is found. Used by `vorn inspect`.

#include <ostream>
#include <string>

class VpdDump {
 public:
  /// Writes the summary of the file at `path` to `out`. False, with an "error: ..." line in the
  /// summary and the reason in `error`, when the file cannot be opened or a run is damaged; the
  /// last line is "end: ok" or "end: error".
  static bool write(const std::string& path, std::ostream& out, std::string* error = nullptr);
};
