#include "base/vrutilString.h"

#include <cctype>
#include <cstdlib>

namespace vrutil {

namespace {
const char* const kWhitespace = " \t\v\n\r";
}

std::string stripWhitespace(const std::string& text, bool stripQuotes) {
  const size_t first = text.find_first_not_of(kWhitespace);
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(kWhitespace);
  std::string out = text.substr(first, last - first + 1);
  if (stripQuotes && out.size() >= 2 && out.front() == '"' && out.back() == '"')
    out = out.substr(1, out.size() - 2);
  return out;
}

std::string forwardSlashes(const std::string& text) {
  std::string out = text;
  for (char& c : out)
    if (c == '\\') c = '/';
  return out;
}

size_t replaceSubStrs(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return 0;
  size_t count = 0;
  size_t pos = 0;
  while ((pos = text.find(from, pos)) != std::string::npos) {
    text.replace(pos, from.size(), to);
    pos += to.size();
    ++count;
  }
  return count;
}

std::istream& safeGetline(std::istream& in, std::string& line) {
  line.clear();
  std::istream::sentry guard(in, true);
  if (!guard) return in;
  std::streambuf* buf = in.rdbuf();
  for (;;) {
    const int c = buf->sbumpc();
    if (c == std::char_traits<char>::eof()) {
      if (line.empty()) in.setstate(std::ios::eofbit | std::ios::failbit);
      else in.setstate(std::ios::eofbit);
      return in;
    }
    if (c == '\n') return in;
    if (c == '\r') {
      if (buf->sgetc() == '\n') buf->sbumpc();
      return in;
    }
    line += static_cast<char>(c);
  }
}

int arrayindex(const std::string& text) {
  const size_t open = text.find('[');
  const size_t close = text.find(']');
  if (open == std::string::npos || close == std::string::npos) return -1;
  const std::string inside = open < close ? text.substr(open + 1, close - open - 1) : std::string();
  const int n = std::atoi(inside.c_str());
  return n < 1 ? 0 : n;
}

std::string baseFileName(const std::string& text) {
  const size_t slash = text.find_last_of("/\\");
  std::string name = slash == std::string::npos ? text : text.substr(slash + 1);
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos) name.erase(dot);
  return name;
}

bool stoss(const std::string& text, std::vector<std::string>& out, const std::string& delimiters) {
  out.clear();
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find_first_of(delimiters, pos);
    if (end == std::string::npos) end = text.size();
    std::string piece = stripWhitespace(text.substr(pos, end - pos));
    if (!piece.empty()) out.push_back(piece);
    pos = end + 1;
  }
  return !out.empty();
}

bool stob(const std::string& text) {
  std::string lower;
  lower.reserve(text.size());
  for (char c : text) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower == "true" || lower == "on" || lower == "one" || lower == "1";
}

std::string prepForAttribute(const std::string& text) {
  std::string out = text;
  replaceSubStrs(out, "\\\\n", "\\\\\\n");
  replaceSubStrs(out, "\\\\t", "\\\\\\t");
  replaceSubStrs(out, "\n", "\\n");
  replaceSubStrs(out, "\t", "\\t");
  return out;
}

std::string prepForEditor(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const bool escaped = i > 0 && text[i - 1] == '\\';
    if (text[i] == '\\' && i + 1 < text.size() && !escaped) {
      if (text[i + 1] == 'n') {
        out += '\n';
        ++i;
        continue;
      }
      if (text[i + 1] == 't') {
        out += '\t';
        ++i;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

std::string escapeForDump(const std::string& text, bool escapeQuote) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\\') {
      out += "\\\\";
    } else if (c == '"' && escapeQuote) {
      out += "\\\"";
    } else if (byte < 32 || byte > 126) {
      out += "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 15];
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace vrutil
