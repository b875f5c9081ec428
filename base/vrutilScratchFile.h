#pragma once
// Scratch files: read-write temporary files for data too large to hold in memory.

#include <cstdio>
#include <string>

namespace vrutil {

/// Makes a read-write binary file in `directory` (TMPDIR, else /tmp, when empty) and unlinks it
/// at once, so that nothing is left on disk whatever happens to the process. The caller closes
/// it with `fclose`. Null with the reason in `error` when it cannot be made.
std::FILE* openScratchFile(const std::string& directory, std::string& error);

}  // namespace vrutil
