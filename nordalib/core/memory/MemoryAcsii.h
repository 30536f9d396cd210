#pragma once
// Text helpers of the serialisation layer: single-line escaping, hex and base64, number parsing.
//
// Text forms must fit on one line (they travel in file header comments and settings files), so
// strings are escaped: backslash, newline, carriage return, tab, comma and control bytes.

#include <cstdint>
#include <string>
#include <vector>

namespace norda::exp::MemoryAcsii {

std::string escape(const std::string& text);
std::string unescape(const std::string& text);

// Splits at unescaped commas; the parts stay escaped.
std::vector<std::string> splitEscaped(const std::string& text, char separator = ',');

std::string toHex(const uint8_t* data, size_t size);
std::vector<uint8_t> fromHex(const std::string& text);

std::string toBase64(const uint8_t* data, size_t size);
std::vector<uint8_t> fromBase64(const std::string& text);

// Whole-string number parsing; throws "number is too big" when out of the type's range and
// a parse error naming the text otherwise.
long long parseSigned(const std::string& text, long long min, long long max);
unsigned long long parseUnsigned(const std::string& text, unsigned long long max);
double parseDouble(const std::string& text);

} // namespace norda::exp::MemoryAcsii
