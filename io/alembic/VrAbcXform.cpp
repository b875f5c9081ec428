#include "io/alembic/VrAbcXform.h"

#include <cmath>
#include <cstring>

namespace {

void identity(double m[4][4]) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) m[r][c] = r == c ? 1.0 : 0.0;
}

void axisAngle(double x, double y, double z, double degrees, double m[4][4]) {
  const double length = std::sqrt(x * x + y * y + z * z);
  if (length > 0.0) {
    x /= length;
    y /= length;
    z /= length;
  } else {
    x = y = z = 0.0;
  }
  const double angle = degrees * M_PI / 180.0;
  const double s = std::sin(angle), c = std::cos(angle), t = 1.0 - c;
  identity(m);
  m[0][0] = x * x * t + c;
  m[0][1] = x * y * t + z * s;
  m[0][2] = x * z * t - y * s;
  m[1][0] = x * y * t - z * s;
  m[1][1] = y * y * t + c;
  m[1][2] = y * z * t + x * s;
  m[2][0] = x * z * t + y * s;
  m[2][1] = y * z * t - x * s;
  m[2][2] = z * z * t + c;
}

const VrAbcTimeSampling& defaultSampling() {
  static const VrAbcTimeSampling sampling;
  return sampling;
}

}  // namespace

size_t VrAbcXform::channelCount(uint8_t type) {
  switch (type) {
    case Scale:
    case Translate: return 3;
    case Rotate: return 4;
    case Matrix: return 16;
    case RotateX:
    case RotateY:
    case RotateZ: return 1;
    default: return 0;
  }
}

const char* VrAbcXform::opName(uint8_t type) {
  switch (type) {
    case Scale: return "scale";
    case Translate: return "translate";
    case Rotate: return "rotate";
    case Matrix: return "matrix";
    case RotateX: return "rotateX";
    case RotateY: return "rotateY";
    case RotateZ: return "rotateZ";
    default: return "unknown";
  }
}

void VrAbcXform::multiply(const double a[4][4], const double b[4][4], double out[4][4]) {
  double tmp[4][4];
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      double sum = 0.0;
      for (int k = 0; k < 4; ++k) sum += a[r][k] * b[k][c];
      tmp[r][c] = sum;
    }
  std::memcpy(out, tmp, sizeof tmp);
}

void VrAbcXform::compose(const std::vector<Op>& ops, double out[4][4]) {
  identity(out);
  for (const Op& op : ops) {
    double m[4][4];
    identity(m);
    const auto ch = [&](size_t i) { return i < op.channels.size() ? op.channels[i] : 0.0; };
    switch (op.type) {
      case Matrix:
        for (int r = 0; r < 4; ++r)
          for (int c = 0; c < 4; ++c) m[r][c] = ch(static_cast<size_t>(4 * r + c));
        break;
      case Scale:
        m[0][0] = ch(0);
        m[1][1] = ch(1);
        m[2][2] = ch(2);
        break;
      case Translate:
        m[3][0] = ch(0);
        m[3][1] = ch(1);
        m[3][2] = ch(2);
        break;
      case Rotate: axisAngle(ch(0), ch(1), ch(2), ch(3), m); break;
      case RotateX: axisAngle(1, 0, 0, ch(0), m); break;
      case RotateY: axisAngle(0, 1, 0, ch(0), m); break;
      case RotateZ: axisAngle(0, 0, 1, ch(0), m); break;
      default: break;
    }
    multiply(m, out, out);
  }
}

bool VrAbcXform::open(const VrAbcObject& object) {
  *this = VrAbcXform();
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::Xform, schema)) return false;
  if (schema.findHeader(".inherits") &&
      !VrAbcSchema::typedScalar(schema, ".inherits", VrAbcPod::Bool, 1, nullptr, inheritsProp))
    return false;

  const VrAbcPropertyHeader* valsHeader = schema.findHeader(".vals");
  if (valsHeader) {
    hasVals = true;
    valsAreArray = !valsHeader->isScalar();
    if (valsHeader->dataType.pod != VrAbcPod::Float64)
      return schema.fail(schema.path() + "/.vals: the channel values are not doubles");
    if (valsAreArray ? !schema.array(".vals", valsArray) : !schema.scalar(".vals", valsScalar)) return false;
  }
  constantIdentity = schema.findHeader("isNotConstantIdentity") == nullptr;
  constant = !hasVals || (valsAreArray ? valsArray.isConstant() : valsScalar.isConstant());
  constant = constant && (!inheritsProp.valid() || inheritsProp.isConstant());

  // Animated channels are read as the format's readers do, though only their presence matters.
  if (schema.findHeader(".animChans")) {
    VrAbcArrayProperty chans;
    std::vector<uint32_t> values;
    if (!VrAbcSchema::typedArray(schema, ".animChans", VrAbcPod::Uint32, 1, nullptr, chans)) return false;
    if (chans.numSamples() > 0 && !chans.readAs(chans.numSamples() - 1, values)) return false;
  }

  if (schema.findHeader(".ops")) {
    VrAbcScalarProperty opsProp;
    if (!schema.scalar(".ops", opsProp)) return false;
    if (opsProp.numSamples() > 0) {
      VrAbcSample sample;
      if (!opsProp.read(0, sample)) return false;
      if (vrabc::podBytes(sample.dataType.pod) != 1)
        return schema.fail(schema.path() + "/.ops: the operations are not stored as bytes");
      for (uint8_t code : sample.bytes) {
        Op op;
        op.type = static_cast<uint8_t>((code >> 4) & 0xf);
        op.hint = static_cast<uint8_t>(code & 0xf);
        op.channels.assign(channelCount(op.type), 0.0);
        opStack.push_back(std::move(op));
      }
    }
  }
  return true;
}

uint32_t VrAbcXform::numSamples() const { return inheritsProp.valid() ? inheritsProp.numSamples() : 0; }

const VrAbcTimeSampling& VrAbcXform::timeSampling() const {
  return inheritsProp.valid() ? inheritsProp.timeSampling() : defaultSampling();
}

bool VrAbcXform::read(uint32_t index, Sample& out) const {
  out.inherits = true;
  out.ops = opStack;
  if (inheritsProp.valid() && inheritsProp.numSamples() > 0) {
    uint32_t at = 0;
    VrAbcSample sample;
    if (!VrAbcSchema::clampIndex(schema, inheritsProp.path(), index, inheritsProp.numSamples(), at) ||
        !inheritsProp.read(at, sample))
      return false;
    out.inherits = sample.bytes[0] != 0;
  }
  const uint32_t valsSamples = !hasVals ? 0 : valsAreArray ? valsArray.numSamples() : valsScalar.numSamples();
  if (valsSamples > 0) {
    const uint32_t at = index < valsSamples ? index : valsSamples - 1;
    VrAbcSample sample;
    if (!(valsAreArray ? valsArray.read(at, sample) : valsScalar.read(at, sample))) return false;
    // Channels beyond the stored values stay 0.
    uint64_t next = 0;
    const uint64_t stored = sample.bytes.size() / 8;
    for (Op& op : out.ops)
      for (double& value : op.channels) {
        if (next < stored) std::memcpy(&value, sample.bytes.data() + 8 * next, 8);
        ++next;
      }
  }
  compose(out.ops, out.matrix);
  return true;
}
