#ifndef KRBOXLIBRARY_SRC_TEXT_H
#define KRBOXLIBRARY_SRC_TEXT_H

#include <QByteArray>
#include <QString>

#include <string>

namespace KR {
namespace text {

// Names are UTF-8 byte strings read up to their first NUL, in both directions, so a NUL
// (typed or decoded from "%00") ends a name.
inline QString fromUtf8(const std::string& text) {
  return QString::fromUtf8(text.c_str());
}

inline std::string toUtf8(const QString& text) {
  return std::string(text.toUtf8().constData());
}

// Messages carry paths as plain 8-bit (Latin-1) text.
inline std::string toLatin1(const QString& text) {
  return std::string(text.toLatin1().constData());
}

// Names compare after Unicode normalisation: macOS stores the decomposed form (NFD) of a
// name that other systems store composed (NFC). ASCII is the same in both, and costs nothing.
inline bool isAscii(const std::string& name) {
  for (const char c : name) {
    if (static_cast<unsigned char>(c) >= 0x80)
      return false;
  }
  return true;
}

inline std::string composed(const std::string& name) {
  return isAscii(name) ? name : toUtf8(fromUtf8(name).normalized(QString::NormalizationForm_C));
}

// A project directory as the prefix of its entries' paths: "" (the top) stays "".
inline QString asDirectory(const QString& path) {
  return path.isEmpty() ? path : path + QLatin1Char('/');
}

}  // namespace text
}  // namespace KR

#endif
