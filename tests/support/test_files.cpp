#include "test_files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <stdexcept>

namespace testutil {

void writeDiskFile(const QString& path, const QByteArray& data) {
  QDir().mkpath(QFileInfo(path).absolutePath());
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
    throw std::runtime_error("cannot write test file " + path.toStdString());
}

QByteArray readDiskFile(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly))
    return QByteArray();
  QByteArray data = file.readAll();
  return data.isNull() ? QByteArray("") : data;
}

QStringList diskTree(const QString& root) {
  QStringList entries;
  QDir base(root);
  QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                  QDirIterator::Subdirectories);
  while (it.hasNext()) {
    QString path = it.next();
    QString relative = base.relativeFilePath(path);
    if (it.fileInfo().isDir() && !it.fileInfo().isSymLink())
      relative += "/";
    entries << relative;
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

LogCapture::LogCapture() : m_defaultWasEnabled(zu::log::isDefaultHandlerEnabled()) {
  zu::log::setDefaultHandlerEnabled(false);
  m_id = zu::log::addHandler([this](const zu::log::Record& r) { m_records.push_back(r); });
}

LogCapture::~LogCapture() {
  zu::log::removeHandler(m_id);
  zu::log::setDefaultHandlerEnabled(m_defaultWasEnabled);
}

}  // namespace testutil
