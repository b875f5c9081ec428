#pragma once
// The key/value metadata carried by Alembic archives, objects and properties. On disk it is one
// string "k=v;k=v"; in memory it is a map ordered by key, so that writing it back gives the same
// string the format's own writer gives (sorted keys, pairs with an empty value left out).

#include <map>
#include <string>

class VrAbcMetaData {
 public:
  VrAbcMetaData() = default;

  /// Parses a stored string. Pairs are separated by ';' and split at their first '='; a pair
  /// without '=' is skipped, the first of two equal keys wins, and parsing stops at a ';' found
  /// before the next '='. Never fails: any string gives some metadata.
  static VrAbcMetaData parse(const std::string& text);

  /// The value of a key, "" when absent.
  std::string get(const std::string& key) const;
  /// Sets a key; an empty value is kept in memory but not serialized.
  void set(const std::string& key, const std::string& value);
  bool empty() const { return entries.empty(); }
  const std::map<std::string, std::string>& all() const { return entries; }

  /// The stored form. False, with `out` untouched, when a key or value holds ';' or '=' (such a
  /// pair cannot be written unambiguously); `badPair` then names it as "key or value".
  bool serialize(std::string& out, std::string* badPair = nullptr) const;
  /// The stored form with unrepresentable pairs left out; for writers and hashes, which need a
  /// string whatever the content.
  std::string serializeLenient() const;

  bool operator==(const VrAbcMetaData& other) const { return entries == other.entries; }

 private:
  std::map<std::string, std::string> entries;
};
