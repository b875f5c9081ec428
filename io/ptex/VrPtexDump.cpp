// The "ptex-ref-v1" dump of per-face texture files.

#include "io/ptex/VrPtexDump.h"

#include "base/vrutilString.h"

#include "base/VrMessage.h"
#include "io/ptex/VrPtexTexture.h"

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace vrptex;

namespace {

std::string number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string texels(const std::vector<float>& values) {
  std::string line;
  for (size_t c = 0; c < values.size(); ++c) line += (c ? " " : "") + number("%.6g", values[c]);
  return line;
}

std::string sums(const std::vector<double>& values) {
  std::string line;
  for (size_t c = 0; c < values.size(); ++c) line += (c ? " " : "") + number("%.9g", values[c]);
  return line;
}

// The format's escaping of a quoted value.
std::string escape(const std::string& text) { return vrutil::escapeForDump(text, true); }

std::string metaLine(const VrPtexMetaData::Entry& e) {
  std::string line = "key=\"" + escape(e.key) + "\" type=" + metaDataTypeName(e.type);
  if (e.type == MetaDataType::String) return line + " value=\"" + escape(std::string(e.bytes.begin(), e.bytes.end())) + "\"";
  VrPtexMetaData single;
  single.set(e.key, e.type, e.bytes);
  std::vector<double> values;
  single.getNumbers(e.key, values);
  line += " count=" + std::to_string(values.size()) + " values=";
  const bool integer = e.type == MetaDataType::Int8 || e.type == MetaDataType::Int16 || e.type == MetaDataType::Int32;
  for (size_t i = 0; i < values.size(); ++i)
    line += (i ? "," : "") + (integer ? std::to_string(static_cast<long long>(values[i])) : number("%.9g", values[i]));
  return line;
}

struct FaceSums {
  std::vector<double> channels;
  bool ok = true;
};

// Sum per channel over every full-resolution texel of a face, in row order.
FaceSums faceSums(const VrPtexTexture& texture, int face) {
  FaceSums sums;
  const int n = texture.numChannels();
  sums.channels.assign(static_cast<size_t>(n), 0.0);
  const Res res = texture.getFaceInfo(face).res;
  std::vector<float> texel(static_cast<size_t>(n));
  if (texture.isOneTexel(face)) {
    // Adding one float value texel by texel in double is exact up to 2^29 texels: the product
    // is the same sum, without walking a huge face.
    sums.ok = texture.getPixel(face, 0, 0, texel.data(), 0, n);
    for (int c = 0; c < n; ++c)
      sums.channels[static_cast<size_t>(c)] = static_cast<double>(texel[static_cast<size_t>(c)]) * static_cast<double>(res.size());
    return sums;
  }
  for (int v = 0; v < res.v(); ++v)
    for (int u = 0; u < res.u(); ++u) {
      if (!texture.getPixel(face, u, v, texel.data(), 0, n)) {
        sums.ok = false;
        return sums;
      }
      for (int c = 0; c < n; ++c) sums.channels[static_cast<size_t>(c)] += texel[static_cast<size_t>(c)];
    }
  return sums;
}

}  // namespace

VrPtexDump::Result VrPtexDump::write(const std::string& path, std::ostream& out) {
  const size_t slash = path.find_last_of('/');
  out << "format: ptex-ref-v1\nfile: " << (slash == std::string::npos ? path : path.substr(slash + 1)) << "\n";
  std::string error;
  const std::shared_ptr<VrPtexTexture> texture = VrPtexTexture::open(path, error);
  if (!texture) {
    VR_ERROR(error);
    out << "open: error\nopen_error: " << escape(error) << "\nexit_status: 1\n";
    return Result::Refused;
  }
  const VrPtexTexture& t = *texture;
  const int n = t.numChannels();
  out << "open: ok\n";
  out << "mesh_type: " << meshTypeName(t.meshType()) << "\n";
  out << "data_type: " << dataTypeName(t.dataType()) << "\n";
  out << "alpha_channel: " << t.alphaChannel() << "\n";
  out << "num_channels: " << n << "\n";
  out << "num_faces: " << t.numFaces() << "\n";
  out << "u_border_mode: " << borderModeName(t.uBorderMode()) << "\n";
  out << "v_border_mode: " << borderModeName(t.vBorderMode()) << "\n";
  out << "edge_filter_mode: " << edgeFilterModeName(t.edgeFilterMode()) << "\n";
  out << "has_edits: " << (t.hasEdits() ? 1 : 0) << "\n";
  out << "has_mipmaps: " << (t.hasMipMaps() ? 1 : 0) << "\n";
  out << "num_meta_keys: " << t.metaData().numKeys() << "\n";
  for (int i = 0; i < t.metaData().numKeys(); ++i) out << "meta[" << i << "]: " << metaLine(t.metaData().entry(i)) << "\n";

  bool ok = true;
  int64_t totalTexels = 0;
  std::vector<double> total(static_cast<size_t>(n), 0.0);
  std::vector<FaceSums> faceTotals;
  std::vector<int> nonzero;
  int maxFace = 0;
  double maxSum = -1.0;
  for (int f = 0; f < t.numFaces(); ++f) {
    totalTexels += t.getFaceInfo(f).res.size();
    faceTotals.push_back(faceSums(t, f));
    const FaceSums& s = faceTotals.back();
    ok = ok && s.ok;
    double all = 0.0;
    for (int c = 0; c < n; ++c) {
      total[static_cast<size_t>(c)] += s.channels[static_cast<size_t>(c)];
      all += s.channels[static_cast<size_t>(c)];
    }
    if (all != 0.0) nonzero.push_back(f);
    if (all > maxSum) {
      maxSum = all;
      maxFace = f;
    }
  }
  out << "total_texels: " << totalTexels << "\n";
  out << "texel_sum_all_faces: " << sums(total) << "\n";
  out << "nonzero_face_count: " << nonzero.size() << "\n";
  out << "nonzero_faces_first50:";
  if (nonzero.empty()) out << " -";
  for (size_t i = 0; i < nonzero.size() && i < 50; ++i) out << " " << nonzero[i];
  out << "\n";
  out << "max_sum_face: " << maxFace << "\n";
  const int dumped = std::min(20, t.numFaces());
  out << "faces_dumped: " << dumped << "\n";

  std::vector<float> texel(static_cast<size_t>(n));
  for (int f = 0; f < dumped; ++f) {
    const FaceInfo& info = t.getFaceInfo(f);
    out << "\nface: " << f << "\n";
    out << "res_log2: " << int(info.res.ulog2) << " " << int(info.res.vlog2) << "\n";
    out << "res: " << info.res.u() << " " << info.res.v() << "\n";
    out << "is_constant: " << (info.isConstant() ? 1 : 0) << "\n";
    out << "is_subface: " << (info.isSubface() ? 1 : 0) << "\n";
    out << "is_neighborhood_constant: " << (info.isNeighborhoodConstant() ? 1 : 0) << "\n";
    out << "has_edits: " << (info.hasEdits() ? 1 : 0) << "\n";
    out << "adj_faces:";
    for (int e = 0; e < 4; ++e) out << " " << info.adjFaces[e];
    out << "\nadj_edges:";
    for (int e = 0; e < 4; ++e) out << " " << info.adjEdge(e);
    out << "\n";
    if (!faceTotals[static_cast<size_t>(f)].ok || !t.getPixel(f, 0, 0, texel.data(), 0, n)) {
      out << "error: face " << f << " could not be read\n";
      ok = false;
      continue;
    }
    out << "texel_0_0: " << texels(texel) << "\n";
    const int cu = info.res.u() / 2, cv = info.res.v() / 2;
    out << "center_texel_uv: " << cu << " " << cv << "\n";
    t.getPixel(f, cu, cv, texel.data(), 0, n);
    out << "texel_center: " << texels(texel) << "\n";
    out << "texel_sum: " << sums(faceTotals[static_cast<size_t>(f)].channels) << "\n";
    if (info.res.ulog2 >= 1 && info.res.vlog2 >= 1) {
      const Res reduced(info.res.ulog2 - 1, info.res.vlog2 - 1);
      out << "reduced_res_log2: " << int(reduced.ulog2) << " " << int(reduced.vlog2) << "\n";
      if (t.getPixel(f, 0, 0, texel.data(), 0, n, reduced)) out << "reduced_texel_0_0: " << texels(texel) << "\n";
    }
  }
  out << "\nend: " << (ok ? "ok" : "error") << "\nexit_status: " << (ok ? 0 : 1) << "\n";
  if (!ok) VR_ERROR((slash == std::string::npos ? path : path.substr(slash + 1)) + ": some face data could not be read");
  return ok ? Result::Ok : Result::Failed;
}
