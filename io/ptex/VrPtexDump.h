#pragma once
// A text dump of a per-face texture file in the "ptex-ref-v1" form: header keys, meta data, texel
// totals, then one block per face (the first 20) with its record, a few texels and one texel a
// resolution level down. Used by `vorn inspect` and by the tests, which compare it with dumps
// made by the format's reference library. Texels are read nearest only, so the reference's
// filter lines are not written.
//
// A file that cannot be opened gives "open: error" and "open_error: <reason>"; a face whose data
// is damaged gives "error: <reason>" in its place and the dump ends with "end: error".

#include <ostream>
#include <string>

class VrPtexDump {
 public:
  enum class Result {
    Ok,       ///< the whole file was read
    Refused,  ///< the file could not be opened
    Failed,   ///< it opened, but some face data could not be read
  };

  /// Writes the dump of the file at `path` to `out`; every failure is also an Error naming the
  /// file. The last line is "exit_status: 0" for Ok, 1 otherwise.
  static Result write(const std::string& path, std::ostream& out);
};
