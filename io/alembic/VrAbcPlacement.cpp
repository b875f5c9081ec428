#include "io/alembic/VrAbcPlacement.h"

#include "io/alembic/VrAbcSampleInterpolator.h"

namespace {

// One transform's sample at `time`: the channels of the samples around it blended linearly
// when both have the same operations, else the earlier sample.
bool sampleAt(const VrAbcXform& xform, double time, bool atFirst, bool interpolate, VrAbcXform::Sample& out) {
  const uint32_t count = xform.numSamples();
  if (count == 0 || atFirst) return xform.read(0, out);
  uint32_t first = 0, second = 0;
  double weight = 0.0;
  if (!VrAbcSampleInterpolator::bracket(xform.timeSampling(), count, time, first, second, weight)) return false;
  if (!xform.read(first, out)) return false;
  if (!interpolate || first == second || weight <= 0.0) return true;
  VrAbcXform::Sample next;
  if (!xform.read(second, next)) return false;
  if (next.ops.size() != out.ops.size()) return true;
  for (size_t i = 0; i < out.ops.size(); ++i) {
    VrAbcXform::Op& op = out.ops[i];
    const VrAbcXform::Op& to = next.ops[i];
    if (op.type != to.type || op.channels.size() != to.channels.size()) return true;
  }
  for (size_t i = 0; i < out.ops.size(); ++i)
    for (size_t c = 0; c < out.ops[i].channels.size(); ++c) {
      double& value = out.ops[i].channels[c];
      value += weight * (next.ops[i].channels[c] - value);
    }
  VrAbcXform::compose(out.ops, out.matrix);
  return true;
}

}  // namespace

bool VrAbcPlacement::below(const VrAbcPlacement& parent, const VrAbcObject& object, VrAbcPlacement& out) {
  out.xforms.clear();
  if (VrAbcSchema::strictKind(object.metaData()) == VrAbcSchema::Kind::Xform) {
    VrAbcXform xform;
    if (!xform.open(object)) return false;
    out.xforms.push_back(std::move(xform));
  }
  out.xforms.insert(out.xforms.end(), parent.xforms.begin(), parent.xforms.end());
  return true;
}

bool VrAbcPlacement::compose(double time, bool atFirst, bool interpolate, double out[4][4]) const {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) out[r][c] = r == c ? 1.0 : 0.0;
  for (const VrAbcXform& xform : xforms) {
    VrAbcXform::Sample sample;
    if (!sampleAt(xform, time, atFirst, interpolate, sample)) return false;
    VrAbcXform::multiply(out, sample.matrix, out);
    if (!sample.inherits) break;
  }
  return true;
}

bool VrAbcPlacement::worldMatrix(double time, bool interpolate, double out[4][4]) const {
  return compose(time, false, interpolate, out);
}

bool VrAbcPlacement::firstMatrix(double out[4][4]) const { return compose(0.0, true, false, out); }

bool VrAbcPlacement::isIdentity(const double m[4][4]) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      if (m[r][c] != (r == c ? 1.0 : 0.0)) return false;
  return true;
}

void VrAbcPlacement::transformPoints(const double m[4][4], std::vector<float>& xyz) {
  if (isIdentity(m)) return;
  for (size_t i = 0; i + 2 < xyz.size(); i += 3) {
    const double x = xyz[i], y = xyz[i + 1], z = xyz[i + 2];
    double p[4];
    for (int c = 0; c < 4; ++c) p[c] = x * m[0][c] + y * m[1][c] + z * m[2][c] + m[3][c];
    const double w = p[3] != 0.0 ? p[3] : 1.0;
    for (int c = 0; c < 3; ++c) xyz[i + static_cast<size_t>(c)] = static_cast<float>(p[c] / w);
  }
}
