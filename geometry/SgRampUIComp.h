#pragma once
// SgRampUIComp: the value of a ramp widget, a curve over [0, 1] given by keys, read from and kept as
// "rampUI(pos,value,kind:pos,value,kind:...)" text. A plain value: copy freely; const use is safe
// from many threads.

#include <map>
#include <string>
#include <vector>

class SgRampUIComp {
 public:
  /// One key: its value and the interpolation kind of the span that starts at it.
  /// Kinds: 0 none (hold), 1 linear, 2 smooth (Hermite, flat tangents), 3 spline (Catmull-Rom
  /// tangents); any other kind makes its span 0.
  struct Key {
    float value = 0.0f;
    int kind = 1;
  };

  /// "rampUI(0,1,1:1,1,1)": constant 1.
  static const char* const RampUIDefault;

  SgRampUIComp() = default;
  /// Parses `text` (see init); a text that does not parse leaves the keys read so far.
  explicit SgRampUIComp(const std::string& text) { init(text); }
  virtual ~SgRampUIComp() = default;
  SgRampUIComp(const SgRampUIComp&) = default;
  SgRampUIComp& operator=(const SgRampUIComp&) = default;

  /// Replaces the keys with those of "name(pos,value,kind:...)". False for an empty text, a missing
  /// "(" or ")", or a last piece that does not read as three numbers (earlier pieces are stored as
  /// far as they read). Empty parentheses give true and no keys.
  bool init(const std::string& text);

  /// The ramp at x, clamped to [0, 1]: 0 without keys, the first key's value before it, the last
  /// key's value at or after it, the left key's span in between (a key's own position belongs to
  /// the span on its right).
  float getValue(float x) const;

  /// Replaces `out` with `count` values at positions 0, step, 2·step, ... with step = 1/(count − 1)
  /// accumulated in float.
  void sample(std::vector<double>& out, int count) const;

  /// True without keys or when every key has the same value.
  bool isConstant() const;
  /// True when `getValue` gives `value` wherever it is asked: every key has the same value and
  /// every span is constant or linear (other spans can round away from the value).
  bool isFlat(float& value) const;

  /// Sets the key at `position` (replacing one there).
  void setKey(float position, float value, int kind) {
    keys[position] = Key{value, kind};
    settle();
  }
  void clear() {
    keys.clear();
    settle();
  }
  const std::map<float, Key>& getKeys() const { return keys; }

 private:
  bool readKeys(const std::string& text);
  /// Works out `flat` and `flatValue` after the keys changed: renders ask for them per primitive.
  void settle();

  std::map<float, Key> keys;
  bool flat = false;
  float flatValue = 0.0f;
};
