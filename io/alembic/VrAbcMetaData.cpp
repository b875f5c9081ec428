#include "io/alembic/VrAbcMetaData.h"

VrAbcMetaData VrAbcMetaData::parse(const std::string& text) {
  VrAbcMetaData meta;
  size_t start = 0;
  while (true) {
    const size_t pairEnd = text.find(';', start);
    const size_t assign = text.find('=', start);
    // A separator before the next '=' means the rest cannot be read as pairs.
    if (assign != std::string::npos && pairEnd != std::string::npos && assign > pairEnd) return meta;
    if (assign == std::string::npos && pairEnd != std::string::npos) return meta;
    if (assign != std::string::npos) {
      const std::string key = text.substr(start, assign - start);
      const size_t valueEnd = pairEnd == std::string::npos ? text.size() : pairEnd;
      if (meta.entries.count(key) == 0) meta.entries[key] = text.substr(assign + 1, valueEnd - assign - 1);
    }
    if (pairEnd == std::string::npos) return meta;
    start = pairEnd + 1;
  }
}

std::string VrAbcMetaData::get(const std::string& key) const {
  const auto it = entries.find(key);
  return it == entries.end() ? std::string() : it->second;
}

void VrAbcMetaData::set(const std::string& key, const std::string& value) { entries[key] = value; }

bool VrAbcMetaData::serialize(std::string& out, std::string* badPair) const {
  std::string text;
  for (const auto& entry : entries) {
    const std::string& key = entry.first;
    const std::string& value = entry.second;
    if (key.find_first_of(";=") != std::string::npos || value.find_first_of(";=") != std::string::npos) {
      if (badPair) *badPair = key + " or " + value;
      return false;
    }
    if (value.empty()) continue;
    if (!text.empty()) text += ';';
    text += key;
    text += '=';
    text += value;
  }
  out = text;
  return true;
}

std::string VrAbcMetaData::serializeLenient() const {
  std::string text;
  for (const auto& entry : entries) {
    if (entry.second.empty()) continue;
    if (entry.first.find_first_of(";=") != std::string::npos ||
        entry.second.find_first_of(";=") != std::string::npos)
      continue;
    if (!text.empty()) text += ';';
    text += entry.first;
    text += '=';
    text += entry.second;
  }
  return text;
}
