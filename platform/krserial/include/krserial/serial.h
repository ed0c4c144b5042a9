#ifndef KRSERIAL_SERIAL_H
#define KRSERIAL_SERIAL_H

#include <krserial/krserial_export.h>

#include <string>

namespace KR {
namespace Serial {

/// Reads a value from its text form; false (value unchanged) when the text is not one.
template <class T>
bool load(const std::string& text, T& value);

/// The text form of a value.
template <class T>
std::string save(const T& value);

/// An optional sign and decimal digits, nothing else, within the range of int.
template <>
KRSERIAL_EXPORT bool load<int>(const std::string& text, int& value);
/// Decimal digits, with a minus sign when negative.
template <>
KRSERIAL_EXPORT std::string save<int>(const int& value);

/// Accepts "true", "false", "1" and "0".
template <>
KRSERIAL_EXPORT bool load<bool>(const std::string& text, bool& value);
/// "true" or "false".
template <>
KRSERIAL_EXPORT std::string save<bool>(const bool& value);

/// The text itself; always succeeds.
template <>
KRSERIAL_EXPORT bool load<std::string>(const std::string& text, std::string& value);
/// The text itself.
template <>
KRSERIAL_EXPORT std::string save<std::string>(const std::string& value);

}  // namespace Serial
}  // namespace KR

#endif
