#pragma once
// A text dump of an Alembic archive in the "alembic-ref-v1" form: the archive's header and time
// samplings, then one block per object (depth first, children in stored order, instances
// followed) with its properties and schema, one block per schema sample, and a trailer that
// reads every sample of every property. Used by `vorn inspect` and by the tests, which compare
// it with dumps made by the format's reference library.
//
// A file that cannot be opened gives the header lines, "open: error" and "open_error: <reason>".
// A part of an opened archive that cannot be read gives "error: <reason>" where it would have
// been written; the walk goes on with the next object, and the dump ends with "end: error".

#include <cstdint>
#include <ostream>
#include <string>

class VrAbcDump {
 public:
  enum class Result {
    Ok,       ///< the whole archive was read
    Refused,  ///< the file could not be opened as an Ogawa archive ("open: error")
    Failed,   ///< it opened, but some part could not be read ("error:" lines in the dump)
  };

  struct Options {
    /// Sample blocks written per object at most; a schema with more samples is reported as an
    /// error instead of being written in full.
    uint64_t maxSamplesPerObject = 1000000;
    /// Sample blocks written in all; the dump stops writing samples past it.
    uint64_t maxSamples = 10000000;
    /// Objects visited at most (instances can make a small file describe a huge tree).
    uint64_t maxObjects = 1000000;
    /// Deepest object nesting followed.
    int maxDepth = 1000;
  };

  /// Writes the dump of the archive at `path` to `out`. Every failure is also an Error naming
  /// the file, sent through vrmessage. The last line is "exit_status: 0" for Ok, 1 otherwise.
  static Result write(const std::string& path, std::ostream& out, const Options& options);
  static Result write(const std::string& path, std::ostream& out) { return write(path, out, Options()); }

  /// The format's escaping of a string value: \n, \r, \t, \\ and \xNN for other bytes outside
  /// printable ASCII.
  static std::string escape(const std::string& text);
};
