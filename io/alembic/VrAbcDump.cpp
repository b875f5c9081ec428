#include "io/alembic/VrAbcDump.h"

#include "base/vrutilString.h"

#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcCamera.h"
#include "io/alembic/VrAbcCurves.h"
#include "io/alembic/VrAbcFaceSet.h"
#include "io/alembic/VrAbcNuPatch.h"
#include "io/alembic/VrAbcPoints.h"
#include "io/alembic/VrAbcPolyMesh.h"
#include "io/alembic/VrAbcSchema.h"
#include "io/alembic/VrAbcSubD.h"
#include "io/alembic/VrAbcXform.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace {

// Geometry values.
std::string g6(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.6g", v);
  return buf;
}

// Times and sums.
std::string g9(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.9g", v);
  return buf;
}

template <class T>
std::string list(const std::vector<T>& values, size_t limit, bool ellipsis, bool asFloat) {
  if (values.empty()) return "-";
  std::string text;
  for (size_t i = 0; i < values.size() && i < limit; ++i) {
    if (i) text += ' ';
    text += asFloat ? g6(static_cast<double>(values[i])) : std::to_string(values[i]);
  }
  if (ellipsis && values.size() > limit) text += " ...";
  return text;
}

template <class T>
int64_t sum(const std::vector<T>& values) {
  int64_t total = 0;
  for (T v : values) total += static_cast<int64_t>(v);
  return total;
}

std::string samplingLine(const VrAbcTimeSampling& ts) {
  const char* type = ts.type() == VrAbcTimeSampling::Type::Uniform  ? "uniform"
                     : ts.type() == VrAbcTimeSampling::Type::Cyclic ? "cyclic"
                                                                    : "acyclic";
  std::string line = std::string("type=") + type;
  line += " start=" + (ts.storedTimes().empty() ? std::string("0") : g9(ts.storedTimes()[0]));
  line += " tpc=" + (ts.type() == VrAbcTimeSampling::Type::Acyclic ? std::string("acyclic") : g9(ts.timePerCycle()));
  line += " spc=" + std::to_string(ts.samplesPerCycle());
  line += " stored_times=";
  for (size_t i = 0; i < ts.storedTimes().size(); ++i) {
    if (i) line += ',';
    line += g9(ts.storedTimes()[i]);
  }
  return line;
}

class Walker {
 public:
  Walker(const VrAbcArchive& archive, std::ostream& out, const VrAbcDump::Options& options)
      : archive(archive), out(out), options(options) {}

  void walk(const VrAbcObject& object, int depth);
  bool readAll(const VrAbcObject& object, int depth);
  bool readAllFromTop(const VrAbcObject& top) {
    ancestors.clear();
    return readAll(top, 0);
  }

  uint64_t objects = 0;
  uint64_t samplesRead = 0;
  bool failed = false;

 private:
  void line(const std::string& key, const std::string& value) { out << key << ": " << value << '\n'; }
  void error() {
    failed = true;
    line("error", VrAbcDump::escape(VrAbcArchive::lastError()));
  }

  bool listProperties(const VrAbcCompoundProperty& compound, const std::string& prefix, int depth,
                      std::vector<std::string>& lines);
  void schemaBlock(const VrAbcObject& object, VrAbcSchema::Kind kind);
  bool startSamples(const VrAbcObject& object, uint32_t numSamples);
  void sampleHeader(const VrAbcObject& object, const VrAbcTimeSampling& ts, uint32_t i);
  void points(const VrAbcGeomBase::Sample& p);
  void bounds(const VrAbcGeomBase::Sample& p);
  void param(const char* name, bool present, const VrAbcGeomParam::Sample& s);
  void samplingInfo(uint32_t numSamples, const VrAbcTimeSampling& ts);
  // The frame every schema block shares: the sampling lines and the schema's own `head` lines,
  // then one block per sample written by `body`. A schema or sample that cannot be read ends the
  // block with its error.
  template <class SchemaT, class SampleT, class HeadFn, class BodyFn>
  void dumpSchema(const VrAbcObject& object, SchemaT& schema, bool opened, SampleT& sample, HeadFn head,
                  BodyFn body) {
    if (!opened) {
      error();
      out << '\n';
      return;
    }
    samplingInfo(schema.numSamples(), schema.timeSampling());
    head();
    out << '\n';
    if (!startSamples(object, schema.numSamples())) return;
    for (uint32_t i = 0; i < schema.numSamples(); ++i) {
      sampleHeader(object, schema.timeSampling(), i);
      if (!schema.read(i, sample)) {
        error();
        out << '\n';
        return;
      }
      body();
      out << '\n';
    }
  }

  void xform(const VrAbcObject& object);
  void polyMesh(const VrAbcObject& object);
  void subD(const VrAbcObject& object);
  void curves(const VrAbcObject& object);
  void nuPatch(const VrAbcObject& object);
  void pointsSchema(const VrAbcObject& object);
  void camera(const VrAbcObject& object);
  void faceSet(const VrAbcObject& object);
  void light(const VrAbcObject& object);

  bool readCompound(const VrAbcCompoundProperty& compound, int depth);
  bool notAncestor(const VrAbcObject& child) const;

  const VrAbcArchive& archive;
  std::ostream& out;
  const VrAbcDump::Options& options;
  uint64_t readObjects = 0;
  uint64_t sampleBlocks = 0;
  std::vector<uint64_t> ancestors;  // groups of the objects above the one being walked
};

bool Walker::listProperties(const VrAbcCompoundProperty& compound, const std::string& prefix, int depth,
                            std::vector<std::string>& lines) {
  if (depth > options.maxDepth) return compound.fail(compound.path() + ": properties nest too deeply");
  for (size_t i = 0; i < compound.numProperties(); ++i) {
    const VrAbcPropertyHeader& h = compound.propertyHeader(i);
    const std::string path = prefix.empty() ? h.name : prefix + "/" + h.name;
    std::string text = VrAbcDump::escape(path);
    if (h.isCompound()) {
      text += " kind=compound";
      const std::string schema = h.metaData.get("schema");
      if (!schema.empty()) text += " schema=" + VrAbcDump::escape(schema);
      lines.push_back(text);
      VrAbcCompoundProperty child;
      if (!compound.compound(i, child) || !listProperties(child, path, depth + 1, lines)) return false;
      continue;
    }
    text += h.isScalar() ? " kind=scalar" : " kind=array";
    text += std::string(" type=") + vrabc::podName(h.dataType.pod);
    if (h.dataType.extent > 1) text += "[" + std::to_string(h.dataType.extent) + "]";
    const std::string interp = h.metaData.get("interpretation");
    text += " interp=" + (interp.empty() ? std::string("-") : VrAbcDump::escape(interp));
    const std::string scope = h.metaData.get("geoScope");
    if (!scope.empty()) text += " geoScope=" + VrAbcDump::escape(scope);
    text += " samples=" + std::to_string(h.numSamples) + " ts=" + std::to_string(h.timeSamplingIndex) +
            " constant=" + (h.isConstant() ? "1" : "0");
    lines.push_back(text);
  }
  return true;
}

void Walker::walk(const VrAbcObject& object, int depth) {
  if (objects >= options.maxObjects) {
    object.fail(object.fullName() + ": more than " + std::to_string(options.maxObjects) + " objects");
    error();
    return;
  }
  ++objects;
  line("object", VrAbcDump::escape(object.fullName()));
  line("name", VrAbcDump::escape(object.name()));
  const VrAbcMetaData& meta = object.metaData();
  VrAbcSchema::Kind kind = VrAbcSchema::strictKind(meta);
  const std::string title = meta.get("schema");
  line("schema", VrAbcSchema::kindName(kind));
  line("schema_title", title.empty() ? "-" : VrAbcDump::escape(title));

  bool objectOk = true;
  std::string serialized, badPair;
  if (meta.serialize(serialized, &badPair)) {
    line("metadata", serialized.empty() ? "-" : VrAbcDump::escape(serialized));
  } else {
    object.fail(object.fullName() + ": its metadata cannot be written back: the pair " + badPair +
                " holds ';' or '='");
    error();
    objectOk = false;
  }

  if (objectOk) {
    line("num_children", std::to_string(object.numChildren()));
    std::string names;
    for (size_t i = 0; i < object.numChildren(); ++i) {
      if (i) names += ' ';
      names += VrAbcDump::escape(object.childHeader(i).name);
    }
    line("children", names.empty() ? "-" : names);
    line("instance_root", object.isInstanceRoot() ? "1" : "0");
    line("instance_descendant", object.isInstanceDescendant() ? "1" : "0");
    if (object.isInstanceRoot()) line("instance_source", VrAbcDump::escape(object.instanceSource()));
    line("properties_hash", object.propertiesHash().hex());
    line("children_hash", object.childrenHash().hex());

    VrAbcCompoundProperty top;
    std::vector<std::string> lines;
    if (!object.properties(top) || !listProperties(top, "", 0, lines)) {
      error();
      objectOk = false;
    } else {
      for (size_t i = 0; i < lines.size(); ++i) line("property[" + std::to_string(i) + "]", lines[i]);
      line("num_properties_total", std::to_string(lines.size()));
    }
  }

  if (objectOk) {
    if (kind == VrAbcSchema::Kind::Other) {
      const VrAbcSchema::Kind byTitle = VrAbcSchema::titleKind(title);
      if (byTitle != VrAbcSchema::Kind::Other) {
        line("schema_title_match", VrAbcSchema::kindName(byTitle));
        kind = byTitle;
      }
    }
    if (kind == VrAbcSchema::Kind::Other || kind == VrAbcSchema::Kind::None) {
      line("num_samples", "0");
      out << '\n';
    } else {
      schemaBlock(object, kind);
    }
  } else {
    out << '\n';
  }

  if (depth >= options.maxDepth) {
    object.fail(object.fullName() + ": objects nest deeper than " + std::to_string(options.maxDepth));
    error();
    return;
  }
  ancestors.push_back(object.groupPosition());
  for (size_t i = 0; i < object.numChildren(); ++i) {
    VrAbcObject child;
    if (!object.child(i, child) || !notAncestor(child)) {
      error();
      out << '\n';
      continue;
    }
    walk(child, depth + 1);
  }
  ancestors.pop_back();
}

bool Walker::notAncestor(const VrAbcObject& child) const {
  for (uint64_t group : ancestors)
    if (group == child.groupPosition())
      return child.fail(child.fullName() + ": the object is one of its own ancestors");
  return true;
}

void Walker::samplingInfo(uint32_t numSamples, const VrAbcTimeSampling& ts) {
  line("num_samples", std::to_string(numSamples));
  line("time_sampling", samplingLine(ts));
  line("time_sampling_index", std::to_string(archive.findTimeSampling(ts)));
}

bool Walker::startSamples(const VrAbcObject& object, uint32_t numSamples) {
  if (numSamples <= options.maxSamplesPerObject && sampleBlocks + numSamples <= options.maxSamples) {
    sampleBlocks += numSamples;
    return true;
  }
  if (numSamples > options.maxSamplesPerObject) {
    object.fail(object.fullName() + ": the schema has " + std::to_string(numSamples) + " samples; only " +
                std::to_string(options.maxSamplesPerObject) + " are dumped per object");
  } else {
    object.fail(object.fullName() + ": more than " + std::to_string(options.maxSamples) +
                " samples in the archive; the rest are not dumped");
  }
  error();
  out << '\n';
  return false;
}

void Walker::sampleHeader(const VrAbcObject& object, const VrAbcTimeSampling& ts, uint32_t i) {
  line("sample", VrAbcDump::escape(object.fullName()) + " " + std::to_string(i));
  double time = 0.0;
  line("time", ts.sampleTime(i, time) ? g9(time) : std::string("-"));
}

void Walker::points(const VrAbcGeomBase::Sample& p) {
  const size_t n = p.positions.size() / 3;
  line("num_points", std::to_string(n));
  const auto point = [&](size_t i) {
    return g6(p.positions[3 * i]) + " " + g6(p.positions[3 * i + 1]) + " " + g6(p.positions[3 * i + 2]);
  };
  for (size_t i = 0; i < n && i < 3; ++i) line("p" + std::to_string(i), point(i));
  if (n) line("p_last", point(n - 1));
}

void Walker::bounds(const VrAbcGeomBase::Sample& p) {
  const double* b = p.bounds;
  if (b[3] < b[0] || b[4] < b[1] || b[5] < b[2]) {
    line("self_bounds", "empty");
  } else {
    line("self_bounds", g6(b[0]) + " " + g6(b[1]) + " " + g6(b[2]) + " " + g6(b[3]) + " " + g6(b[4]) + " " + g6(b[5]));
  }
  if (p.hasVelocities) line("velocities_count", std::to_string(p.velocities.size() / 3));
}

void Walker::param(const char* name, bool present, const VrAbcGeomParam::Sample& s) {
  const std::string n = name;
  line("has_" + n, present ? "1" : "0");
  if (!present) return;
  line(n + "_count", std::to_string(s.values.numValues()));
  line(n + "_indexed", s.indexed ? "1" : "0");
  if (s.indexed) line(n + "_index_count", std::to_string(s.indices.size()));
  line(n + "_scope", VrAbcGeomParam::scopeName(s.scope));
}

void Walker::schemaBlock(const VrAbcObject& object, VrAbcSchema::Kind kind) {
  switch (kind) {
    case VrAbcSchema::Kind::Xform: xform(object); break;
    case VrAbcSchema::Kind::PolyMesh: polyMesh(object); break;
    case VrAbcSchema::Kind::SubD: subD(object); break;
    case VrAbcSchema::Kind::Curves: curves(object); break;
    case VrAbcSchema::Kind::NuPatch: nuPatch(object); break;
    case VrAbcSchema::Kind::Points: pointsSchema(object); break;
    case VrAbcSchema::Kind::Camera: camera(object); break;
    case VrAbcSchema::Kind::FaceSet: faceSet(object); break;
    case VrAbcSchema::Kind::Light: light(object); break;
    default: break;
  }
}

void Walker::xform(const VrAbcObject& object) {
  VrAbcXform schema;
  VrAbcXform::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [&] {
        line("constant_identity", schema.isConstantIdentity() ? "1" : "0");
        line("is_constant", schema.isConstant() ? "1" : "0");
      },
      [&] {
        line("inherits", s.inherits ? "1" : "0");
        line("num_ops", std::to_string(s.ops.size()));
        std::string ops;
        for (const VrAbcXform::Op& op : s.ops) {
          if (!ops.empty()) ops += ' ';
          ops += std::string(VrAbcXform::opName(op.type)) + "(";
          for (size_t c = 0; c < op.channels.size(); ++c) ops += (c ? "," : "") + g6(op.channels[c]);
          ops += ")";
        }
        line("ops", ops.empty() ? "-" : ops);
        for (int r = 0; r < 4; ++r)
          line("matrix_row" + std::to_string(r), g6(s.matrix[r][0]) + " " + g6(s.matrix[r][1]) + " " +
                                                      g6(s.matrix[r][2]) + " " + g6(s.matrix[r][3]));
      });
}

void Walker::polyMesh(const VrAbcObject& object) {
  VrAbcPolyMesh schema;
  VrAbcPolyMesh::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [&] {
        line("topology_variance", VrAbcSchema::varianceName(schema.topologyVariance()));
        std::string sets;
        for (const std::string& name : schema.faceSetNames()) sets += (sets.empty() ? "" : " ") + VrAbcDump::escape(name);
        line("face_sets", sets.empty() ? "-" : sets);
      },
      [&] {
        points(s.points);
        line("num_faces", std::to_string(s.faceCounts.size()));
        line("face_counts_sum", std::to_string(sum(s.faceCounts)));
        line("face_indices_count", std::to_string(s.faceIndices.size()));
        line("face_indices_sum", std::to_string(sum(s.faceIndices)));
        bounds(s.points);
        param("uv", s.hasUvs, s.uvs);
        param("normals", s.hasNormals, s.normals);
      });
}

void Walker::subD(const VrAbcObject& object) {
  VrAbcSubD schema;
  VrAbcSubD::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [&] {
        line("topology_variance", VrAbcSchema::varianceName(schema.topologyVariance()));
        std::string sets;
        for (const std::string& name : schema.faceSetNames()) sets += (sets.empty() ? "" : " ") + VrAbcDump::escape(name);
        line("face_sets", sets.empty() ? "-" : sets);
      },
      [&] {
        points(s.points);
        line("num_faces", std::to_string(s.faceCounts.size()));
        line("face_counts_sum", std::to_string(sum(s.faceCounts)));
        line("face_indices_count", std::to_string(s.faceIndices.size()));
        line("face_indices_sum", std::to_string(sum(s.faceIndices)));
        line("subdivision_scheme", s.scheme.empty() ? "-" : VrAbcDump::escape(s.scheme));
        line("interpolate_boundary", std::to_string(s.interpolateBoundary));
        line("fv_interpolate_boundary", std::to_string(s.faceVaryingInterpolateBoundary));
        line("fv_propagate_corners", std::to_string(s.faceVaryingPropagateCorners));
        line("crease_indices_count", std::to_string(s.creaseIndices.size()));
        line("crease_lengths_count", std::to_string(s.creaseLengths.size()));
        line("crease_sharpnesses_count", std::to_string(s.creaseSharpnesses.size()));
        line("corner_indices_count", std::to_string(s.cornerIndices.size()));
        line("corner_sharpnesses_count", std::to_string(s.cornerSharpnesses.size()));
        line("holes_count", std::to_string(s.holes.size()));
        bounds(s.points);
        param("uv", s.hasUvs, s.uvs);
      });
}

void Walker::curves(const VrAbcObject& object) {
  VrAbcCurves schema;
  VrAbcCurves::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [&] {
        line("topology_variance", VrAbcSchema::varianceName(schema.topologyVariance()));
      },
      [&] {
        points(s.points);
        line("num_curves", std::to_string(s.numVertices.size()));
        line("nvertices_first10", list(s.numVertices, 10, false, false));
        line("nvertices_sum", std::to_string(sum(s.numVertices)));
        line("curve_type", VrAbcCurves::typeName(s.type));
        line("wrap", VrAbcCurves::wrapName(s.wrap));
        line("basis", VrAbcCurves::basisName(s.basis));
        bounds(s.points);
        std::vector<int> orders(s.orders.begin(), s.orders.end());
        line("orders_count", std::to_string(orders.size()));
        line("orders_first10", list(orders, 10, false, false));
        line("knots_count", std::to_string(s.knots.size()));
        line("knots", list(s.knots, 20, true, true));
        line("position_weights_count", std::to_string(s.weights.size()));
        param("widths", s.hasWidths, s.widths);
        param("uv", s.hasUvs, s.uvs);
        param("normals", s.hasNormals, s.normals);
      });
}

void Walker::nuPatch(const VrAbcObject& object) {
  VrAbcNuPatch schema;
  VrAbcNuPatch::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [&] {
        line("topology_variance", VrAbcSchema::varianceName(schema.topologyVariance()));
        line("has_trim_curve", schema.hasTrimCurve() ? "1" : "0");
      },
      [&] {
        points(s.points);
        line("nu", std::to_string(s.numU));
        line("nv", std::to_string(s.numV));
        line("u_order", std::to_string(s.uOrder));
        line("v_order", std::to_string(s.vOrder));
        line("u_knots_count", std::to_string(s.uKnots.size()));
        line("u_knots", list(s.uKnots, 64, false, true));
        line("v_knots_count", std::to_string(s.vKnots.size()));
        line("v_knots", list(s.vKnots, 64, false, true));
        line("position_weights_count", std::to_string(s.weights.size()));
        bounds(s.points);
        if (s.hasTrim) {
          line("trim_num_loops", std::to_string(s.trimNumLoops));
          line("trim_num_curves_count", std::to_string(s.trimNumCurves.size()));
          line("trim_num_vertices_count", std::to_string(s.trimNumVertices.size()));
          line("trim_u_count", std::to_string(s.trimU.size()));
        }
        param("uv", s.hasUvs, s.uvs);
        param("normals", s.hasNormals, s.normals);
      });
}

void Walker::pointsSchema(const VrAbcObject& object) {
  VrAbcPoints schema;
  VrAbcPoints::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [] {},
      [&] {
        points(s.points);
        line("ids_count", std::to_string(s.ids.size()));
        line("ids_first3", list(s.ids, 3, false, false));
        bounds(s.points);
        param("widths", s.hasWidths, s.widths);
      });
}

void Walker::camera(const VrAbcObject& object) {
  VrAbcCamera schema;
  VrAbcCamera::Sample s;
  dumpSchema(object, schema, schema.open(object), s,
      [] {},
      [&] {
        const double* v = s.values;
        line("focal_length", g6(v[VrAbcCamera::FocalLength]));
        line("horizontal_aperture", g6(v[VrAbcCamera::HorizontalAperture]));
        line("vertical_aperture", g6(v[VrAbcCamera::VerticalAperture]));
        line("horizontal_film_offset", g6(v[VrAbcCamera::HorizontalFilmOffset]));
        line("vertical_film_offset", g6(v[VrAbcCamera::VerticalFilmOffset]));
        line("lens_squeeze_ratio", g6(v[VrAbcCamera::LensSqueezeRatio]));
        line("near_clipping_plane", g6(v[VrAbcCamera::NearClippingPlane]));
        line("far_clipping_plane", g6(v[VrAbcCamera::FarClippingPlane]));
        line("f_stop", g6(v[VrAbcCamera::FStop]));
        line("focus_distance", g6(v[VrAbcCamera::FocusDistance]));
        line("shutter_open", g6(v[VrAbcCamera::ShutterOpen]));
        line("shutter_close", g6(v[VrAbcCamera::ShutterClose]));
        line("field_of_view", g6(s.fieldOfView()));
        line("num_film_back_ops", std::to_string(s.filmBackOps.size()));
      });
}

void Walker::faceSet(const VrAbcObject& object) {
  VrAbcFaceSet schema;
  uint32_t exclusive = 0;
  std::vector<int32_t> faces;
  dumpSchema(object, schema, schema.open(object) && schema.exclusive(exclusive), faces,
      [&] {
        line("exclusivity", exclusive == 1 ? "exclusive" : "nonexclusive");
      },
      [&] {
        line("num_faces", std::to_string(faces.size()));
        line("faces_first10", list(faces, 10, false, false));
        line("faces_sum", std::to_string(sum(faces)));
      });
}

void Walker::light(const VrAbcObject& object) {
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::Light, schema)) {
    error();
    out << '\n';
    return;
  }
  // A light is a camera-like compound; its samples follow its first sampled property.
  const uint32_t numSamples = VrAbcSchema::maxChildSamples(schema);
  static const VrAbcTimeSampling defaultSampling;
  const VrAbcTimeSampling* ts = &defaultSampling;
  for (size_t i = 0; i < schema.numProperties(); ++i) {
    const VrAbcPropertyHeader& h = schema.propertyHeader(i);
    if (!h.isCompound() && h.numSamples == numSamples) {
      ts = &archive.timeSampling(h.timeSamplingIndex);
      break;
    }
  }
  samplingInfo(numSamples, *ts);
  out << '\n';
  if (!startSamples(object, numSamples)) return;
  for (uint32_t i = 0; i < numSamples; ++i) {
    sampleHeader(object, *ts, i);
    out << '\n';
  }
}

bool Walker::readCompound(const VrAbcCompoundProperty& compound, int depth) {
  if (depth > options.maxDepth) return compound.fail(compound.path() + ": properties nest too deeply");
  VrAbcSample sample;
  for (size_t i = 0; i < compound.numProperties(); ++i) {
    const VrAbcPropertyHeader& h = compound.propertyHeader(i);
    // Samples that repeat a stored one are counted but read once.
    const uint32_t n = h.numSamples;
    const uint32_t stored = n == 0 ? 0 : h.storedIndex(n - 1) + 1;
    const auto indexOf = [&](uint32_t k) {
      if (k == 0) return uint32_t{0};
      const uint64_t at = uint64_t{h.firstChanged} + k - 1;
      return static_cast<uint32_t>(at < n ? at : n - 1);
    };
    if (h.isCompound()) {
      VrAbcCompoundProperty child;
      if (!compound.compound(i, child) || !readCompound(child, depth + 1)) return false;
    } else if (h.isScalar()) {
      VrAbcScalarProperty prop;
      if (!compound.scalar(i, prop)) return false;
      for (uint32_t k = 0; k < stored; ++k)
        if (!prop.read(indexOf(k), sample)) return false;
      samplesRead += n;
    } else {
      VrAbcArrayProperty prop;
      if (!compound.array(i, prop)) return false;
      for (uint32_t k = 0; k < stored; ++k)
        if (!prop.read(indexOf(k), sample)) return false;
      samplesRead += n;
    }
  }
  return true;
}

bool Walker::readAll(const VrAbcObject& object, int depth) {
  if (++readObjects > options.maxObjects)
    return object.fail(object.fullName() + ": more than " + std::to_string(options.maxObjects) + " objects");
  if (depth > options.maxDepth)
    return object.fail(object.fullName() + ": objects nest deeper than " + std::to_string(options.maxDepth));
  VrAbcCompoundProperty top;
  if (!object.properties(top) || !readCompound(top, 0)) return false;
  ancestors.push_back(object.groupPosition());
  for (size_t i = 0; i < object.numChildren(); ++i) {
    VrAbcObject child;
    if (!object.child(i, child) || !notAncestor(child) || !readAll(child, depth + 1)) return false;
  }
  ancestors.pop_back();
  return true;
}

}  // namespace

std::string VrAbcDump::escape(const std::string& text) { return vrutil::escapeForDump(text, false); }

VrAbcDump::Result VrAbcDump::write(const std::string& path, std::ostream& out, const Options& options) {
  VrAbcArchive archive;
  const bool opened = archive.open(path);
  out << "format: alembic-ref-v1\n";
  out << "file: " << escape(archive.fileName()) << '\n';
  const VrAbcOgawaFile::Kind kind = archive.kind();
  out << "core: " << (kind == VrAbcOgawaFile::Kind::Ogawa ? "ogawa" : kind == VrAbcOgawaFile::Kind::Hdf5 ? "hdf5" : "unknown")
      << '\n';
  if (!opened) {
    out << "open: error\n";
    out << "open_error: " << escape(VrAbcArchive::lastError()) << '\n';
    out << "exit_status: 1\n";
    return Result::Refused;
  }
  out << "open: ok\n";

  const VrAbcMetaData& meta = archive.metaData();
  const auto value = [&](const char* key) {
    const std::string v = meta.get(key);
    return v.empty() ? std::string("-") : escape(v);
  };
  out << "app_name: " << value("_ai_Application") << '\n';
  out << "library_version: " << value("_ai_AlembicVersion") << '\n';
  out << "api_version: " << archive.archiveVersion() << '\n';
  out << "date_written: " << value("_ai_DateWritten") << '\n';
  out << "user_description: " << value("_ai_Description") << '\n';
  out << "dcc_fps: " << g9(std::atof(meta.get("_ai_DCC_FPS").c_str())) << '\n';
  out << "archive_version: " << archive.archiveVersion() << '\n';
  double start = 0.0, end = 0.0;
  archive.startEndTime(start, end);
  out << "start_end_time: " << g9(start) << ' ' << g9(end) << '\n';
  out << "num_time_samplings: " << archive.numTimeSamplings() << '\n';
  for (size_t i = 0; i < archive.numTimeSamplings(); ++i)
    out << "time_sampling[" << i << "]: " << samplingLine(archive.timeSampling(i))
        << " max_samples=" << archive.maxSamples(i) << '\n';
  out << '\n';

  Walker walker(archive, out, options);
  walker.walk(archive.top(), 0);
  out << "objects_total: " << walker.objects << '\n';
  if (walker.readAllFromTop(archive.top())) {
    out << "read_all_samples: ok\n";
    out << "samples_read: " << walker.samplesRead << '\n';
  } else {
    walker.failed = true;
    out << "read_all_samples: error\n";
    out << "read_all_samples_error: " << escape(VrAbcArchive::lastError()) << '\n';
  }
  out << (walker.failed ? "end: error\n" : "end: ok\n");
  out << "exit_status: " << (walker.failed ? 1 : 0) << '\n';
  return walker.failed ? Result::Failed : Result::Ok;
}
