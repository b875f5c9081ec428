// The summary of point and primitive files printed by `vorn inspect`.

#include "io/vpd/VpdDump.h"

#include "io/vpd/VpdReader.h"

#include <cstdio>

namespace {

constexpr size_t FacesWithRecords = 10;  ///< faces whose first records are printed
constexpr size_t RecordsShown = 3;       ///< records printed per block of those faces
constexpr size_t ValuesShown = 16;       ///< values printed per record

const char* primTypeName(unsigned type) {
  static const char* names[] = {"PointPrimitive", "SplinePrimitive", "CardPrimitive", "SpherePrimitive", "ArchivePrimitive"};
  return type < 5 ? names[type] : "unknown";
}

const char* coordSpaceName(unsigned space) {
  static const char* names[] = {"WorldSpace", "ObjectSpace", "SurfaceSpace", "ReservedSpace"};
  return space < 4 ? names[space] : "unknown";
}

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

std::string baseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool VpdDump::write(const std::string& path, std::ostream& out, std::string* error) {
  out << "format: vpd-summary-v1\nfile: " << baseName(path) << "\n";
  std::string why;
  std::unique_ptr<VpdReader> reader = VpdReader::open(path, &why);
  if (!reader) {
    out << "open: error\nopen_error: " << why << "\nend: error\n";
    if (error) *error = why;
    return false;
  }
  const Vpd::Header& h = reader->header();
  out << "open: ok\nversion: " << Vpd::FormatMajor << "." << reader->formatMinor() << "\n"
      << "prim_type: " << unsigned(h.primType) << " " << primTypeName(h.primType) << "\n"
      << "cv_count: " << unsigned(h.cvCount) << "\n"
      << "coord_space: " << unsigned(h.coordSpace) << " " << coordSpaceName(h.coordSpace) << "\n"
      << "time: " << number(h.time) << "\nattr_version: " << h.attrVersion << "\n"
      << "num_face_ids: " << h.faceIds.size() << "\nnum_blocks: " << h.blockNames.size() << "\n";
  for (size_t b = 0; b < h.blockNames.size(); ++b) out << "block[" << b << "]: " << h.blockNames[b] << "\n";
  out << "num_keys: " << h.keyNames.size() << "\n";
  for (size_t k = 0; k < h.keyNames.size(); ++k) {
    const auto id = reader->keyToId().find(h.keyNames[k]);
    out << "key[" << k << "]: id=" << (id == reader->keyToId().end() ? -1 : id->second) << " name=" << h.keyNames[k] << "\n";
  }
  const std::vector<int>& faces = reader->facesInFile();
  out << "num_faces_with_records: " << faces.size() << "\n";
  for (size_t f = 0; f < faces.size(); ++f) {
    out << "face[" << f << "]: id=" << faces[f];
    for (size_t b = 0; b < h.blockNames.size(); ++b)
      out << " " << h.blockNames[b] << "=" << reader->numPrims(faces[f], static_cast<int>(b));
    out << "\n";
  }
  // Every run is read to its end; the first faces print their first records.
  std::uint32_t id = 0;
  std::vector<float> values;
  for (size_t f = 0; f < faces.size(); ++f) {
    for (size_t b = 0; b < h.blockNames.size(); ++b) {
      if (reader->numPrims(faces[f], static_cast<int>(b)) == 0) continue;
      bool ok = reader->findFace(faces[f]) && reader->findBlock(static_cast<int>(b));
      for (size_t r = 0; ok && reader->readPrim(id, values); ++r) {
        if (f >= FacesWithRecords || r >= RecordsShown) continue;
        out << "record: face=" << faces[f] << " block=" << h.blockNames[b] << " id=" << id;
        out << " u=" << (values.size() > 0 ? number(values[0]) : "-") << " v=" << (values.size() > 1 ? number(values[1]) : "-");
        out << " values=";
        for (size_t i = 2; i < values.size() && i < 2 + ValuesShown; ++i) out << (i > 2 ? "," : "") << number(values[i]);
        if (values.size() <= 2) out << "-";
        if (values.size() > 2 + ValuesShown) out << ",... (" << values.size() - 2 << ")";
        out << "\n";
      }
      if (!ok || !reader->error().empty()) {
        why = reader->error().empty() ? "face " + std::to_string(faces[f]) + " cannot be read" : reader->error();
        out << "error: " << why << "\nend: error\n";
        if (error) *error = why;
        return false;
      }
    }
  }
  out << "end: ok\n";
  return true;
}
