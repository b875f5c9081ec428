#include "renderers/renderapi/VornRenderAPIBatch.h"

#include "base/VrMessage.h"

namespace VornRenderAPI {

namespace {

// The index of `key` when it lies in [0, count); -1 with the "Invalid <enum>" error otherwise.
template <class E>
int checked(E key, int count, const char* enumName) {
  const int index = static_cast<int>(key);
  if (index >= 0 && index < count) return index;
  VR_ERROR(std::string("Invalid ") + enumName);
  return -1;
}

template <class T, class Allocator>
const T* dataOrNull(const std::vector<T, Allocator>& values) {
  return values.empty() ? nullptr : values.data();
}

}  // namespace

void Batch::growSamples(unsigned samples) {
  if (points.size() < samples) points.resize(samples);
  if (normals.size() < samples) normals.resize(samples);
  if (widths.size() < samples) widths.resize(samples);
}

void Batch::sizeCustoms(size_t channels) {
  if (customFloats.size() < channels) customFloats.resize(channels);
  if (customInts.size() < channels) customInts.resize(channels);
}

void Batch::clear() {
  count = 0;
  for (auto& row : points) row.clear();
  for (auto& row : normals) row.clear();
  for (auto& row : widths) row.clear();
  for (auto& channel : floats) channel.clear();
  for (auto& channel : ints) channel.clear();
  for (auto& channel : strings) channel.clear();
  for (auto& channel : vec3s) channel.clear();
  for (auto& row : customFloats) row.clear();
  for (auto& row : customInts) row.clear();
  archiveBoxes.clear();
  archiveHasBox.clear();
}

const Batch::Row* BatchView::row2D(EVec3Array2DAttribute key, unsigned row) const {
  const int index = checked(key, 2, "EVec3Array2DAttribute");
  if (index < 0) return nullptr;
  const auto& rows = index == 0 ? batch.points : batch.normals;
  if (row >= rows.size()) {
    VR_ERROR("Invalid EVec3Array2DAttribute");
    return nullptr;
  }
  return &rows[row];
}

const Batch::Row* BatchView::row2D(EFloatArray2DAttribute key, unsigned row) const {
  const int index = checked(key, 2, "EFloatArray2DAttribute");
  if (index < 0) return nullptr;
  const auto& rows = index == 0 ? batch.widths : batch.customFloats;
  if (row >= rows.size()) {
    VR_ERROR("Invalid EFloatArray2DAttribute");
    return nullptr;
  }
  return &rows[row];
}

const float* BatchView::getVec3Array2D(EVec3Array2DAttribute key, unsigned row) const {
  const Batch::Row* values = row2D(key, row);
  return values ? dataOrNull(*values) : nullptr;
}

const int* BatchView::getIntArray2D(EIntArray2DAttribute key, unsigned row) const {
  if (checked(key, 1, "EIntArray2DAttribute") < 0) return nullptr;
  if (row >= batch.customInts.size()) {
    VR_ERROR("Invalid EIntArray2DAttribute");
    return nullptr;
  }
  return dataOrNull(batch.customInts[row]);
}

const float* BatchView::getFloatArray2D(EFloatArray2DAttribute key, unsigned row) const {
  const Batch::Row* values = row2D(key, row);
  return values ? dataOrNull(*values) : nullptr;
}

const float* BatchView::getVec3Array(EVec3ArrayAttribute key) const {
  const int index = checked(key, Batch::Vec3Channels, "EVec3ArrayAttribute");
  return index < 0 ? nullptr : dataOrNull(batch.vec3s[index]);
}

const std::vector<std::string>* BatchView::strings(EStringArrayAttribute key) const {
  const int index = checked(key, Batch::StringChannels, "EStringArrayAttribute");
  if (index < 0) return nullptr;
  switch (key) {
    case EStringArrayAttribute::CustomName:
      return &state.customNames;
    case EStringArrayAttribute::CustomType:
      return &state.customTypes;
    case EStringArrayAttribute::CustomDeclaration:
      return &state.customDeclarations;
    default:
      return &batch.strings[index];
  }
}

const char* BatchView::getStringArray(EStringArrayAttribute key, unsigned entry) const {
  const std::vector<std::string>* values = strings(key);
  if (!values) return "";
  if (entry >= values->size()) {
    VR_ERROR("Invalid EStringArrayAttribute");
    return "";
  }
  return (*values)[entry].c_str();
}

const int* BatchView::getIntArray(EIntArrayAttribute key) const {
  const int index = checked(key, Batch::IntChannels, "EIntArrayAttribute");
  return index < 0 ? nullptr : dataOrNull(batch.ints[index]);
}

const float* BatchView::getFloatArray(EFloatArrayAttribute key) const {
  const int index = checked(key, Batch::FloatChannels, "EFloatArrayAttribute");
  return index < 0 ? nullptr : dataOrNull(batch.floats[index]);
}

const double* BatchView::getDoubleArray(EDoubleArrayAttribute key) const {
  checked(key, 1, "EDoubleArrayAttribute");
  return nullptr;  // no double channel is filled by this back end
}

const bool* BatchView::getBoolArray(EBoolArrayAttribute key) const {
  checked(key, 1, "EBoolArrayAttribute");
  return nullptr;  // no bool channel is filled by this back end
}

const double* BatchView::getVec3(EVec3Attribute key) const {
  const int index = checked(key, 4, "EVec3Attribute");
  return index < 0 ? nullptr : state.lodRanges[index];
}

unsigned BatchView::getUInt(EUIntAttribute key) const {
  switch (checked(key, 3, "EUIntAttribute")) {
    case 0:
      return batch.count;
    case 1:
      return state.batchLimit;
    case 2:
      return state.sampleCount;
    default:
      return 0;
  }
}

const char* BatchView::getString() const { return state.typeName.c_str(); }

int BatchView::getInt(EIntAttribute key) const {
  return checked(key, 1, "EIntAttribute") < 0 ? 0 : state.numLodRanges;
}

float BatchView::getFloat(EFloatAttribute key) const {
  return checked(key, 1, "EFloatAttribute") < 0 ? 0.0f : state.constantWidth;
}

double BatchView::getDouble(EDoubleAttribute key) const {
  switch (checked(key, 2, "EDoubleAttribute")) {
    case 0:
      return state.primitiveBound;
    case 1:
      return maxBound;
    default:
      return 0.0;
  }
}

bool BatchView::getBool(EBoolAttribute key) const {
  const int index = checked(key, 37, "EBoolAttribute");
  return index >= 0 && state.flags[index];
}

unsigned BatchView::getVec3Array2DSize(EVec3Array2DAttribute key, unsigned row) const {
  const Batch::Row* values = row2D(key, row);
  return values ? static_cast<unsigned>(values->size() / 3) : 0;
}

unsigned BatchView::getIntArray2DSize(EIntArray2DAttribute key, unsigned row) const {
  if (checked(key, 1, "EIntArray2DAttribute") < 0) return 0;
  if (row >= batch.customInts.size()) {
    VR_ERROR("Invalid EIntArray2DAttribute");
    return 0;
  }
  return static_cast<unsigned>(batch.customInts[row].size());
}

unsigned BatchView::getFloatArray2DSize(EFloatArray2DAttribute key, unsigned row) const {
  const Batch::Row* values = row2D(key, row);
  return values ? static_cast<unsigned>(values->size()) : 0;
}

unsigned BatchView::getVec3ArraySize(EVec3ArrayAttribute key) const {
  const int index = checked(key, Batch::Vec3Channels, "EVec3ArrayAttribute");
  return index < 0 ? 0 : static_cast<unsigned>(batch.vec3s[index].size() / 3);
}

unsigned BatchView::getStringArraySize(EStringArrayAttribute key) const {
  const std::vector<std::string>* values = strings(key);
  return values ? static_cast<unsigned>(values->size()) : 0;
}

unsigned BatchView::getIntArraySize(EIntArrayAttribute key) const {
  const int index = checked(key, Batch::IntChannels, "EIntArrayAttribute");
  return index < 0 ? 0 : static_cast<unsigned>(batch.ints[index].size());
}

unsigned BatchView::getFloatArraySize(EFloatArrayAttribute key) const {
  const int index = checked(key, Batch::FloatChannels, "EFloatArrayAttribute");
  return index < 0 ? 0 : static_cast<unsigned>(batch.floats[index].size());
}

unsigned BatchView::getDoubleArraySize(EDoubleArrayAttribute key) const {
  checked(key, 1, "EDoubleArrayAttribute");
  return 0;
}

unsigned BatchView::getBoolArraySize(EBoolArrayAttribute key) const {
  checked(key, 1, "EBoolArrayAttribute");
  return 0;
}

bool BatchView::cachedBound(unsigned prim, double bbox[6]) const {
  if (prim >= batch.archiveHasBox.size() || !batch.archiveHasBox[prim] || !bbox) return false;
  const double* box = batch.archiveBoxes.data() + 6 * static_cast<size_t>(prim);
  for (int k = 0; k < 6; ++k) bbox[k] = box[k];
  return true;
}

}  // namespace VornRenderAPI
