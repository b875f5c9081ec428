// Meta data entries of per-face texture files.

#include "io/ptex/VrPtexMetaData.h"

#include <cstring>

namespace {

template <class T>
std::vector<uint8_t> bytesOf(const std::vector<T>& values) {
  std::vector<uint8_t> bytes(values.size() * sizeof(T));
  if (!bytes.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

template <class T>
void appendNumbers(const std::vector<uint8_t>& bytes, std::vector<double>& values) {
  for (size_t at = 0; at + sizeof(T) <= bytes.size(); at += sizeof(T)) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    values.push_back(static_cast<double>(value));
  }
}

}  // namespace

const VrPtexMetaData::Entry* VrPtexMetaData::find(const std::string& key) const {
  for (const Entry& e : entries)
    if (e.key == key) return &e;
  return nullptr;
}

bool VrPtexMetaData::getString(const std::string& key, std::string& value) const {
  const Entry* e = find(key);
  if (!e || e->type != vrptex::MetaDataType::String) return false;
  value.assign(e->bytes.begin(), e->bytes.end());
  return true;
}

bool VrPtexMetaData::getNumbers(const std::string& key, std::vector<double>& values) const {
  values.clear();
  const Entry* e = find(key);
  if (!e) return false;
  switch (e->type) {
    case vrptex::MetaDataType::String: return false;
    case vrptex::MetaDataType::Int8: appendNumbers<int8_t>(e->bytes, values); break;
    case vrptex::MetaDataType::Int16: appendNumbers<int16_t>(e->bytes, values); break;
    case vrptex::MetaDataType::Int32: appendNumbers<int32_t>(e->bytes, values); break;
    case vrptex::MetaDataType::Float: appendNumbers<float>(e->bytes, values); break;
    case vrptex::MetaDataType::Double: appendNumbers<double>(e->bytes, values); break;
  }
  return true;
}

bool VrPtexMetaData::set(const std::string& key, vrptex::MetaDataType type, const std::vector<uint8_t>& bytes) {
  if (key.empty() || key.size() > 254 || key.find('\0') != std::string::npos) return false;
  if (bytes.size() % static_cast<size_t>(vrptex::metaDataSize(type)) != 0) return false;
  for (Entry& e : entries)
    if (e.key == key) {
      e.type = type;
      e.bytes = bytes;
      return true;
    }
  entries.push_back(Entry{key, type, bytes});
  return true;
}

void VrPtexMetaData::setString(const std::string& key, const std::string& value) {
  set(key, vrptex::MetaDataType::String, std::vector<uint8_t>(value.begin(), value.end()));
}
void VrPtexMetaData::setInt8(const std::string& key, const std::vector<int8_t>& values) {
  set(key, vrptex::MetaDataType::Int8, bytesOf(values));
}
void VrPtexMetaData::setInt16(const std::string& key, const std::vector<int16_t>& values) {
  set(key, vrptex::MetaDataType::Int16, bytesOf(values));
}
void VrPtexMetaData::setInt32(const std::string& key, const std::vector<int32_t>& values) {
  set(key, vrptex::MetaDataType::Int32, bytesOf(values));
}
void VrPtexMetaData::setFloat(const std::string& key, const std::vector<float>& values) {
  set(key, vrptex::MetaDataType::Float, bytesOf(values));
}
void VrPtexMetaData::setDouble(const std::string& key, const std::vector<double>& values) {
  set(key, vrptex::MetaDataType::Double, bytesOf(values));
}
