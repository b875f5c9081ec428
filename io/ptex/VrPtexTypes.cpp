// Sizes, names and texel conversions of the per-face texture format.

#include "io/ptex/VrPtexTypes.h"

#include <Imath/half.h>

#include <algorithm>
#include <cstring>

namespace vrptex {

int dataSize(DataType type) {
  switch (type) {
    case DataType::UInt8: return 1;
    case DataType::UInt16: return 2;
    case DataType::Half: return 2;
    case DataType::Float: return 4;
  }
  return 0;
}

int metaDataSize(MetaDataType type) {
  switch (type) {
    case MetaDataType::String: return 1;
    case MetaDataType::Int8: return 1;
    case MetaDataType::Int16: return 2;
    case MetaDataType::Int32: return 4;
    case MetaDataType::Float: return 4;
    case MetaDataType::Double: return 8;
  }
  return 0;
}

const char* meshTypeName(MeshType type) { return type == MeshType::Triangle ? "triangle" : "quad"; }

const char* dataTypeName(DataType type) {
  switch (type) {
    case DataType::UInt8: return "uint8";
    case DataType::UInt16: return "uint16";
    case DataType::Half: return "float16";
    case DataType::Float: return "float32";
  }
  return "unknown";
}

const char* borderModeName(BorderMode mode) {
  switch (mode) {
    case BorderMode::Clamp: return "clamp";
    case BorderMode::Black: return "black";
    case BorderMode::Periodic: return "periodic";
  }
  return "unknown";
}

const char* edgeFilterModeName(EdgeFilterMode mode) {
  return mode == EdgeFilterMode::TangentVector ? "tanvec" : "none";
}

const char* metaDataTypeName(MetaDataType type) {
  switch (type) {
    case MetaDataType::String: return "string";
    case MetaDataType::Int8: return "int8";
    case MetaDataType::Int16: return "int16";
    case MetaDataType::Int32: return "int32";
    case MetaDataType::Float: return "float";
    case MetaDataType::Double: return "double";
  }
  return "unknown";
}

void toFloat(const void* stored, DataType type, int count, float* out) {
  const uint8_t* bytes = static_cast<const uint8_t*>(stored);
  switch (type) {
    case DataType::UInt8: {
      const float scale = 1.0f / 255.0f;
      for (int i = 0; i < count; ++i) out[i] = static_cast<float>(bytes[i]) * scale;
      break;
    }
    case DataType::UInt16: {
      const float scale = 1.0f / 65535.0f;
      for (int i = 0; i < count; ++i) {
        uint16_t value;
        std::memcpy(&value, bytes + 2 * i, 2);
        out[i] = static_cast<float>(value) * scale;
      }
      break;
    }
    case DataType::Half:
      for (int i = 0; i < count; ++i) {
        uint16_t bits;
        std::memcpy(&bits, bytes + 2 * i, 2);
        Imath::half h;
        h.setBits(bits);
        out[i] = static_cast<float>(h);
      }
      break;
    case DataType::Float: std::memcpy(out, bytes, 4 * static_cast<size_t>(count)); break;
  }
}

void fromFloat(const float* values, DataType type, int count, void* stored) {
  uint8_t* bytes = static_cast<uint8_t*>(stored);
  for (int i = 0; i < count; ++i) {
    const float clamped = std::min(1.0f, std::max(0.0f, values[i]));  // NaN becomes 0
    switch (type) {
      case DataType::UInt8: bytes[i] = static_cast<uint8_t>(clamped * 255.0f + 0.5f); break;
      case DataType::UInt16: {
        const uint16_t value = static_cast<uint16_t>(clamped * 65535.0f + 0.5f);
        std::memcpy(bytes + 2 * i, &value, 2);
        break;
      }
      case DataType::Half: {
        const uint16_t bits = Imath::half(values[i]).bits();
        std::memcpy(bytes + 2 * i, &bits, 2);
        break;
      }
      case DataType::Float: std::memcpy(bytes + 4 * i, values + i, 4); break;
    }
  }
}

}  // namespace vrptex
