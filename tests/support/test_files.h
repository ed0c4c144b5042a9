#ifndef KRBOX_TEST_FILES_H
#define KRBOX_TEST_FILES_H

#include <zu/log.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <string>
#include <vector>

namespace testutil {

/// Writes bytes to a file on disk, creating its parent directories.
void writeDiskFile(const QString& path, const QByteArray& data);
/// The bytes of a file on disk; a null array when it cannot be read.
QByteArray readDiskFile(const QString& path);
/// Every file and directory below root, relative, "/"-separated, sorted; directories end in "/".
QStringList diskTree(const QString& root);

/// Collects every log record while alive, and keeps the default stderr handler quiet.
class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<zu::log::Record>& records() const { return m_records; }

private:
  std::vector<zu::log::Record> m_records;
  unsigned m_id;
  bool m_defaultWasEnabled;
};

}  // namespace testutil

#endif
