#include "io/alembic/VrAbcTypes.h"

namespace vrabc {

const char* podName(VrAbcPod pod) {
  switch (pod) {
    case VrAbcPod::Bool: return "bool_t";
    case VrAbcPod::Uint8: return "uint8_t";
    case VrAbcPod::Int8: return "int8_t";
    case VrAbcPod::Uint16: return "uint16_t";
    case VrAbcPod::Int16: return "int16_t";
    case VrAbcPod::Uint32: return "uint32_t";
    case VrAbcPod::Int32: return "int32_t";
    case VrAbcPod::Uint64: return "uint64_t";
    case VrAbcPod::Int64: return "int64_t";
    case VrAbcPod::Float16: return "float16_t";
    case VrAbcPod::Float32: return "float32_t";
    case VrAbcPod::Float64: return "float64_t";
    case VrAbcPod::String: return "string";
    case VrAbcPod::Wstring: return "wstring";
  }
  return "unknown";
}

}  // namespace vrabc

std::string VrAbcDigest::hex() const {
  static const char digits[] = "0123456789abcdef";
  std::string out(32, '0');
  for (int i = 0; i < 16; ++i) {
    out[2 * i] = digits[bytes[i] >> 4];
    out[2 * i + 1] = digits[bytes[i] & 15];
  }
  return out;
}
