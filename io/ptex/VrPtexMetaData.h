#pragma once
// The named values of a per-face texture file: strings and arrays of int8, int16, int32, float
// or double, in the order they were stored or set. A later entry of an existing key replaces its
// value in place. Read and written by VrPtexTexture and VrPtexWriter; a plain value, one thread
// at a time.

#include "io/ptex/VrPtexTypes.h"

#include <cstdint>
#include <string>
#include <vector>

class VrPtexMetaData {
 public:
  struct Entry {
    std::string key;
    vrptex::MetaDataType type = vrptex::MetaDataType::String;
    /// The stored bytes, little-endian; a string without its terminating zero.
    std::vector<uint8_t> bytes;
    /// Values held: the string's length for strings.
    size_t count() const { return bytes.size() / static_cast<size_t>(vrptex::metaDataSize(type)); }
  };

  /// @name Reading
  /// @{
  int numKeys() const { return static_cast<int>(entries.size()); }
  /// Entry `index` in [0, numKeys()).
  const Entry& entry(int index) const { return entries[static_cast<size_t>(index)]; }
  /// The entry of `key`, or null.
  const Entry* find(const std::string& key) const;
  /// The string value of `key`; false when absent or not a string.
  bool getString(const std::string& key, std::string& value) const;
  /// The values of a numeric entry as doubles, whatever its stored type; false when absent or a
  /// string.
  bool getNumbers(const std::string& key, std::vector<double>& values) const;
  /// @}

  /// @name Writing
  /// @{
  void setString(const std::string& key, const std::string& value);
  void setInt8(const std::string& key, const std::vector<int8_t>& values);
  void setInt16(const std::string& key, const std::vector<int16_t>& values);
  void setInt32(const std::string& key, const std::vector<int32_t>& values);
  void setFloat(const std::string& key, const std::vector<float>& values);
  void setDouble(const std::string& key, const std::vector<double>& values);
  /// Sets raw bytes of `type`; false when the byte count is not a whole number of values or the
  /// key is empty or longer than 254 bytes.
  bool set(const std::string& key, vrptex::MetaDataType type, const std::vector<uint8_t>& bytes);
  void clear() { entries.clear(); }
  /// @}

 private:
  std::vector<Entry> entries;
};
