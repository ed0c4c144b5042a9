#include <krserial/serial.h>

#include <climits>

namespace KR {
namespace Serial {

template <>
bool load<int>(const std::string& text, int& value) {
  size_t pos = 0;
  bool negative = false;
  if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
    negative = text[pos] == '-';
    ++pos;
  }
  if (pos == text.size())
    return false;
  // Accumulated as a negative number so that INT_MIN, whose magnitude exceeds INT_MAX,
  // needs no special case.
  long long accumulated = 0;
  for (; pos < text.size(); ++pos) {
    const char c = text[pos];
    if (c < '0' || c > '9')
      return false;
    accumulated = accumulated * 10 - (c - '0');
    if (accumulated < static_cast<long long>(INT_MIN))
      return false;
  }
  if (!negative) {
    accumulated = -accumulated;
    if (accumulated > INT_MAX)
      return false;
  }
  value = static_cast<int>(accumulated);
  return true;
}

template <>
std::string save<int>(const int& value) {
  return std::to_string(value);
}

template <>
bool load<bool>(const std::string& text, bool& value) {
  if (text == "true" || text == "1") {
    value = true;
    return true;
  }
  if (text == "false" || text == "0") {
    value = false;
    return true;
  }
  return false;
}

template <>
std::string save<bool>(const bool& value) {
  return value ? "true" : "false";
}

template <>
bool load<std::string>(const std::string& text, std::string& value) {
  value = text;
  return true;
}

template <>
std::string save<std::string>(const std::string& value) {
  return value;
}

}  // namespace Serial
}  // namespace KR
