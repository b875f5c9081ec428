#include "fxmodules/VrClumpCurves.h"

#include "base/VrAtomicFile.h"
#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrClumpGuides.h"
#include "fxmodules/VrFXModule.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

bool VrParseFaceList(const std::string& text, std::vector<int>& faces) {
  faces.clear();
  const char* p = text.c_str();
  auto number = [&p](long& value) {
    char* end = nullptr;
    value = std::strtol(p, &end, 10);
    if (end == p || value < 0 || value > 100000000) return false;
    p = end;
    return true;
  };
  while (*p) {
    if (*p == ',' || *p == ' ' || *p == '\t') {
      ++p;
      continue;
    }
    long first = 0, last = 0;
    if (!number(first)) return faces.clear(), false;
    last = first;
    if (*p == '-') {
      ++p;
      if (!number(last) || last < first || last - first > 10000000) return faces.clear(), false;
    }
    for (long f = first; f <= last; ++f) faces.push_back(static_cast<int>(f));
  }
  std::sort(faces.begin(), faces.end());
  faces.erase(std::unique(faces.begin(), faces.end()), faces.end());
  return true;
}

bool VrExportClumpCurves(VrFXModule& module, const std::vector<VrClumpGuide>& guides) {
  VrDescription* description = module.description();
  std::string dir, faceText;
  module.getAttr("exportDir", dir);
  module.getAttr("exportFaces", faceText);
  std::vector<int> faces;
  if (!VrParseFaceList(faceText, faces)) {
    VR_ERROR("Unreadable face list \"" + faceText + "\" in exportFaces. " + module.messageTag());
    return false;
  }
  if (!dir.empty() && dir.back() != '/') dir += '/';
  std::string path = dir + (description ? description->name() : std::string()) + "_" + module.name() + ".orm";
  const bool placed = vrutil::expandOutputFileName(path, "", description, module.name(), true);
  VrAtomicFile file(path);
  if (!placed || !file.ok()) {
    VR_ERROR("Unable to open orm file " + path + " for writing. " + module.messageTag());
    return false;
  }
  VR_STATS(1, "Writing curves file " + path);
  std::ostream& out = file.out();
  out << "orm 1\n"
      << "note Set the two attachment attributes of the animated wire modules to these curves. "
         "Do not use the \"Attach Wires\" button.\n"
      << "group " << module.name() << "Curves\n";
  char number[32];
  for (size_t g = 0; g < guides.size(); ++g) {
    const VrClumpGuide& guide = guides[g];
    if (!guide.valid || guide.cvs.empty()) continue;
    if (!faces.empty() && !std::binary_search(faces.begin(), faces.end(), guide.face)) continue;
    out << "curve " << guide.face << ' ' << g + 1 << ' ' << guide.cvs.size();
    for (const SgVec3T<double>& cv : guide.cvs)
      for (double value : {cv.x, cv.y, cv.z}) {
        std::snprintf(number, sizeof number, " %12.10f", value);
        out << number;
      }
    out << '\n';
  }
  out << "end\n";
  if (!file.commit()) {
    VR_ERROR("Unable to open orm file " + path + " for writing. " + module.messageTag());
    return false;
  }
  return true;
}
