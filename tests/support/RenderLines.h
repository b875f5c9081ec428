#pragma once
// The JSON lines `vorn render` writes for splines, read back: where each primitive grows, its
// CVs (x, y, z after one another), the CVs of its motion samples and its widths.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace vrtest {

/// The numbers of a JSON array of numbers (nested or not) between `at` and `end`.
inline std::vector<double> numbersIn(const std::string& text, size_t at, size_t end) {
  std::vector<double> out;
  std::string token;
  for (size_t i = at; i < end; ++i) {
    const char c = text[i];
    if (c == '[' || c == ']' || c == ',') {
      if (!token.empty()) out.push_back(std::stod(token));
      token.clear();
    } else {
      token += c;
    }
  }
  if (!token.empty()) out.push_back(std::stod(token));
  return out;
}

struct RenderLine {
  std::string patch;
  int face = 0;
  int id = 0;
  std::vector<double> cvs;
  std::vector<std::vector<double>> samples;  // CVs of motion samples 1, 2, ...
  std::vector<double> widths;
};

/// The lines of a JSON lines text of splines; a line of another layout is a test failure.
inline std::vector<RenderLine> parseRenderLines(const std::string& text) {
  std::vector<RenderLine> lines;
  std::istringstream in(text);
  for (std::string row; std::getline(in, row);) {
    RenderLine line;
    const size_t patch = row.find("{\"patch\":\"");
    const size_t face = row.find("\",\"face\":");
    const size_t id = row.find(",\"id\":");
    const size_t cvs = row.find(",\"cvs\":[");
    const size_t samples = row.find("],\"samples\":[");
    const size_t widths = row.find("],\"widths\":[");
    if (patch != 0 || face == std::string::npos || id == std::string::npos || cvs == std::string::npos ||
        widths == std::string::npos || row.substr(row.size() - 2) != "]}") {
      ADD_FAILURE() << "not a line of the render output: " << row;
      return lines;
    }
    line.patch = row.substr(10, face - 10);
    line.face = std::stoi(row.substr(face + 9));
    line.id = std::stoi(row.substr(id + 6));
    line.cvs = numbersIn(row, cvs + 8, samples == std::string::npos ? widths : samples);
    if (samples != std::string::npos) {
      // Every sample has as many CVs as sample 0.
      const std::vector<double> all = numbersIn(row, samples + 13, widths);
      for (size_t at = 0; !line.cvs.empty() && at + line.cvs.size() <= all.size(); at += line.cvs.size())
        line.samples.emplace_back(all.begin() + static_cast<long>(at),
                                  all.begin() + static_cast<long>(at + line.cvs.size()));
      if (line.samples.empty() || line.samples.size() * line.cvs.size() != all.size())
        ADD_FAILURE() << "motion samples of another size than sample 0: " << row;
    }
    line.widths = numbersIn(row, widths + 12, row.size() - 2);
    lines.push_back(line);
  }
  return lines;
}

}  // namespace vrtest
