#include "commands.h"

#include <krboxlibrary/box_library_problem.h>
#include <krboxlibrary/folder_listing.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

#include <stdexcept>
#include <string>

namespace krbox {

namespace {

const char kDriverKey[] = "merge.krbox-listing.driver";
const char kDriverNameKey[] = "merge.krbox-listing.name";
const char kDriverName[] = "krbox folder listing merge";
const char kAttributesLine[] = "lbfinfo merge=krbox-listing";

std::string utf8(const QString& text) {
  return text.toUtf8().toStdString();
}

// The listing in the file at path. An empty file is an empty listing: git hands one over as
// the common version of a listing both sides added.
KR::FolderListing readListingFile(const std::string& path, bool emptyIsListing) {
  QFile file(QFile::decodeName(path.c_str()));
  if (!file.open(QIODevice::ReadOnly))
    throw std::runtime_error("cannot read \"" + path + "\": " + utf8(file.errorString()));
  const QByteArray text = file.readAll();
  KR::FolderListing listing;
  if (!(text.isEmpty() && emptyIsListing) && !listing.read(text))
    throw std::runtime_error("\"" + path +
                             "\" is no folder listing: " + utf8(listing.errorString()));
  return listing;
}

// Runs git with arguments in directory; its output, trimmed. Throws when git cannot run or,
// with mustSucceed, fails.
QString git(const QString& directory, const QStringList& arguments, bool mustSucceed,
            int* status = nullptr) {
  QProcess process;
  process.setWorkingDirectory(directory);
  process.start(QStringLiteral("git"), arguments);
  if (!process.waitForStarted() || !process.waitForFinished(-1))
    throw std::runtime_error("cannot run git: " + utf8(process.errorString()));
  const int exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
  if (status)
    *status = exitCode;
  if (exitCode != 0 && mustSucceed)
    throw std::runtime_error(
        "git " + utf8(arguments.join(' ')) +
        " failed: " + utf8(QString::fromLocal8Bit(process.readAllStandardError()).trimmed()));
  return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// The command git runs for the driver: "krbox" when the PATH leads to this very program,
// else this program's own path, so that a krbox run from a build still merges.
QString driverCommand() {
  const QString self = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
  const QString onPath = QStandardPaths::findExecutable(QStringLiteral("krbox"));
  QString program = QStringLiteral("krbox");
  if (onPath.isEmpty() || QFileInfo(onPath).canonicalFilePath() != self)
    program = QLatin1Char('\'') + QString(self).replace(QLatin1Char('\''), QLatin1String("'\\''")) +
              QLatin1Char('\'');
  return program + QLatin1String(" merge-listing %O %A %B");
}

// Sets key in the repository's own configuration; a line saying what was done.
std::string configure(const QString& top, const char* key, const QString& value) {
  int status = 0;
  const QString current = git(top,
                              {QStringLiteral("config"), QStringLiteral("--local"),
                               QStringLiteral("--get"), QLatin1String(key)},
                              false, &status);
  if (status == 0 && current == value)
    return std::string(key) + " is already \"" + utf8(value) + "\"";
  git(top, {QStringLiteral("config"), QStringLiteral("--local"), QLatin1String(key), value}, true);
  return "set " + std::string(key) + " to \"" + utf8(value) + "\" in this clone's configuration";
}

// Adds the attributes line to the library's .gitattributes, keeping what it holds.
std::string addAttributes(const QString& directory) {
  const QString path = directory + QLatin1String("/.gitattributes");
  QFile file(path);
  QByteArray text;
  if (file.exists()) {
    if (!file.open(QIODevice::ReadOnly))
      throw std::runtime_error("cannot read \"" + utf8(path) + "\": " + utf8(file.errorString()));
    text = file.readAll();
    file.close();
  }
  for (const QByteArray& line : text.split('\n')) {
    if (line.simplified() == kAttributesLine)
      return utf8(path) + " already has \"" + kAttributesLine + "\"";
  }
  if (!text.isEmpty() && !text.endsWith('\n'))
    text += '\n';
  text += QByteArray(kAttributesLine) + '\n';
  QSaveFile out(path);
  if (!out.open(QIODevice::WriteOnly) || out.write(text) != text.size() || !out.commit())
    throw std::runtime_error("cannot write \"" + utf8(path) + "\": " + utf8(out.errorString()));
  return "added \"" + std::string(kAttributesLine) + "\" to " + utf8(path);
}

}  // namespace

int runMergeListing(const Arguments& arguments, Output& out) {
  const KR::FolderListing merged = KR::FolderListing::merge(readListingFile(arguments[0], true),
                                                            readListingFile(arguments[1], false),
                                                            readListingFile(arguments[2], false));
  QString error;
  const QByteArray text = merged.toXml(&error);
  QSaveFile file(QFile::decodeName(arguments[1].c_str()));
  if (text.isEmpty() || !file.open(QIODevice::WriteOnly) || file.write(text) != text.size() ||
      !file.commit())
    throw std::runtime_error("cannot write \"" + arguments[1] +
                             "\": " + utf8(text.isEmpty() ? error : file.errorString()));
  if (out.json())
    out.print(QJsonObject{{"names", QJsonArray::fromStringList(merged.names())},
                          {"expanded", merged.isExpanded()}});
  return 0;
}

int runGitSetup(const Arguments& arguments, Output& out) {
  const QString library = localPath(arguments[0]);
  const QFileInfo info(library);
  if (!info.exists())
    throw std::runtime_error("no library at \"" + arguments[0] + "\"");
  if (!info.isDir())
    throw std::runtime_error("\"" + arguments[0] +
                             "\" is an archive, which git stores whole and cannot merge; keep "
                             "the library as a directory to merge it");
  int status = 0;
  const QString top = git(library, {QStringLiteral("rev-parse"), QStringLiteral("--show-toplevel")},
                          false, &status);
  if (status != 0 || top.isEmpty())
    throw std::runtime_error("\"" + arguments[0] + "\" is not in a git repository");
  const std::string lines[] = {configure(top, kDriverNameKey, QLatin1String(kDriverName)),
                               configure(top, kDriverKey, driverCommand()), addAttributes(library)};
  if (out.json()) {
    QJsonArray done;
    for (const std::string& line : lines)
      done.append(QString::fromStdString(line));
    out.print(QJsonObject{{"repository", top}, {"done", done}});
    return 0;
  }
  for (const std::string& line : lines)
    out.text() << line << '\n';
  return 0;
}

int runCheck(const Arguments& arguments, Output& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  const QList<KR::BoxLibraryProblem> problems = library->problems();
  if (out.json()) {
    QJsonArray list;
    for (const KR::BoxLibraryProblem& problem : problems)
      list.append(QJsonObject{
          {"path", problem.path}, {"file", problem.file}, {"problem", problem.problem}});
    out.text() << QJsonDocument(list).toJson(QJsonDocument::Compact).constData() << '\n';
  } else {
    for (const KR::BoxLibraryProblem& problem : problems)
      out.text() << '"' << utf8(problem.path) << "\" " << utf8(problem.file) << ": "
                 << utf8(problem.problem) << '\n';
  }
  return problems.isEmpty() ? 0 : 1;
}

}  // namespace krbox
