#pragma once
// Splitting the stored form of string samples: each string followed by a terminating zero, in
// bytes for strings and in 32-bit code points for wide strings (kept here as UTF-8).

#include <cstdint>
#include <string>
#include <vector>

namespace vrabc {

/// Fills `out` in order from the zero-terminated strings in the bytes; strings beyond the size
/// of `out` are dropped, and slots left over stay as they are. A final unterminated string is
/// dropped, as the format's reader does.
void splitStrings(const uint8_t* data, uint64_t size, bool wide, std::vector<std::string>& out);

/// Number of terminated strings in the bytes.
uint64_t countStrings(const uint8_t* data, uint64_t size, bool wide);

}  // namespace vrabc
