#pragma once
// Small text helpers shared by the whole library.

#include <istream>
#include <string>
#include <vector>

namespace vrutil {

/// Trims blank, tab, vertical tab, newline and carriage return from both ends; with
/// `stripQuotes`, then removes one pair of surrounding double quotes.
std::string stripWhitespace(const std::string& text, bool stripQuotes = false);

/// Every backslash becomes '/'.
std::string forwardSlashes(const std::string& text);

/// Replaces every occurrence of `from` (non-overlapping, left to right) with `to`; returns the
/// number of replacements. An empty `from` changes nothing.
size_t replaceSubStrs(std::string& text, const std::string& from, const std::string& to);

/// Reads one line ending in "\n", "\r" or "\r\n" (the end is not stored); stream semantics as
/// std::getline.
std::istream& safeGetline(std::istream& in, std::string& line);

/// The number between the first '[' and the first ']' read with atoi; 0 when it is below 1;
/// -1 when either bracket is missing.
int arrayindex(const std::string& text);

/// The file name without its directory part ('/' or '\\') and without the part from its last '.'.
std::string baseFileName(const std::string& text);

/// Splits `text` at any character of `delimiters` into `out` (cleared first), each piece
/// stripped with stripWhitespace; empty pieces are dropped. False when nothing came out.
bool stoss(const std::string& text, std::vector<std::string>& out,
           const std::string& delimiters = " ");

/// True for "true", "on", "one" and "1" in any case; false for everything else.
bool stob(const std::string& text);

/// Escapes text for a one-line attribute: an escaped "\\n" or "\\t" gains one more backslash,
/// then real newlines and tabs become "\\n" and "\\t".
std::string prepForAttribute(const std::string& text);

/// Turns "\\n" and "\\t" that have no backslash before them into a real newline and tab.
std::string prepForEditor(const std::string& text);

/// The escaping of texts in the reference dumps of file formats: newline, carriage return, tab
/// and backslash become `\n`, `\r`, `\t` and `\\`, every other byte outside printable ASCII
/// `\xNN` (lower-case hex), and with `escapeQuote` the double quote `\"`.
std::string escapeForDump(const std::string& text, bool escapeQuote);

}  // namespace vrutil
