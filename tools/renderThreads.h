#pragma once
// How many threads a render or a bake of `vorn` uses, and how its summary line names them.

#include <iosfwd>
#include <string>

namespace vorncli {

/// Every core when `requested` is 0, else `requested`, capped by the library's thread count when
/// VORN_THREAD_LIMIT is set; at least 1. Declares patch multithreading, as a host would, since
/// the surface evaluators are read-only once built: even one worker then evaluates unlocked.
unsigned renderWorkers(int requested);

/// "2 threads", or "1 thread (serial)".
std::string workersText(unsigned workers);

/// Readies the stream of a summary line: C-locale numbers, seconds with 3 decimals.
void startSummary(std::ostringstream& summary);

}  // namespace vorncli
