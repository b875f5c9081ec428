#pragma once
// Bytes made in pieces on every thread and stored in order: a window of a few pieces per thread
// is made at once, then handed on piece after piece, so that the result does not depend on the
// number of threads and memory holds only the window.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vrutil {

/// Makes pieces 0..count-1 on the threads of the calling arena and stores them in order.
/// `make(k, bytes)` appends piece k to an empty `bytes`, from several threads at once, each with a
/// piece of its own; `store(k, bytes)` takes it and answers false to stop. `window` holds the
/// pieces being made, kept by the caller so that its buffers serve call after call. False when a
/// store said so.
bool makeAndStoreInOrder(size_t count, const std::function<void(size_t, std::string&)>& make,
                         const std::function<bool(size_t, const std::string&)>& store,
                         std::vector<std::string>& window);

}  // namespace vrutil
