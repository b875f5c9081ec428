#pragma once
// Text forms of structured attribute values, number formatting, and small hash / id codes.

#include <string>
#include <vector>

#include "geometry/SgVec3T.h"
#include "geometry/SgXform3T.h"

namespace vrutil {

/// Vector as text through `format` (three %f-style slots); "[%7.5f,%7.5f,%7.5f]" when null.
std::string vtoa(const SgVec3T<double>& v, const char* format = nullptr);
std::string vtoa(const SgVec3T<float>& v, const char* format = nullptr);

/// Reads "[x,y,z]"; false (and `v` unchanged) unless all three numbers read.
bool stov(const std::string& text, SgVec3T<double>& v);
bool stov(const std::string& text, SgVec3T<float>& v);

/// Reads "array(n:v0:v1:...)". False, silently, when there is no "array("; false with an Error
/// for a bad count or element. `out` is replaced (or, with `append`, extended) only on success.
bool stofs(const std::string& text, std::vector<double>& out, bool append = false);

/// Reads "ptArray(n:x,y,z:x,y,z:...)"; failure as stofs.
bool stovs(const std::string& text, std::vector<SgVec3T<double>>& out, bool append = false);

/// Reads "array(n:array(...):array(...)...)"; a missing "array(" is an Error here too.
bool stovvs(const std::string& text, std::vector<std::vector<double>>& out, bool append = false);
/// Reads "array(n:ptArray(...):ptArray(...)...)"; failure as above.
bool stovvs(const std::string& text, std::vector<std::vector<SgVec3T<double>>>& out,
            bool append = false);

/// Picks the entry for `frame` of "frameArray(start,v0,v1,...)": index frame - start, the first
/// entry below it, the last past it. Text that is no frame array comes back as it is; unbalanced
/// parentheses give an Error and the text as it is. Entries are stripped of whitespace.
std::string checkFrameArray(const std::string& text, int frame);

/// Reads "matrix(16 numbers, row by row)" after checkFrameArray; false (and `x` unchanged)
/// unless all 16 read.
bool stox(const std::string& text, SgXform3T<double>& x, int frame = 0);
bool stox(const std::string& text, SgXform3T<float>& x, int frame = 0);

/// Number and bool as text through `format`; defaults "%f", "%d" and "%s" of "true"/"false".
std::string ftoa(double value, const char* format = nullptr);
std::string itoa(int value, const char* format = nullptr);
std::string btoa(bool value, const char* format = nullptr);

/// Small string hash in [0, 210]; 0 for an empty text.
unsigned hashString(const std::string& text);

/// Spreads the low 24 bits of `id`, inverted, over three bytes (id 0 is white).
void encodeId2RGB(unsigned id, unsigned char rgb[3]);

/// Inverse of encodeId2RGB on the three channels truncated to integers; (0,0,0) gives 0.
unsigned decodeRGB2Id(double r, double g, double b);
unsigned decodeRGB2Id(const SgVec3T<double>& rgb);

}  // namespace vrutil
