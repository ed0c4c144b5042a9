#include "commands.h"
#include "progress_line.h"

#include <krboxlibrary/box_library.h>
#include <zu/project/exceptions.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <iostream>
#include <string>

namespace krbox {

namespace {

using Format = KR::BoxLibrary::LibraryFormat;

// Takes "--format dir|zip" out of arguments, anywhere among them, and leaves the rest, which
// must number count.
Arguments withoutFormat(const Arguments& arguments, std::size_t count, Format& format) {
  Arguments rest;
  for (auto it = arguments.begin(); it != arguments.end(); ++it) {
    if (*it != "--format") {
      rest.push_back(*it);
      continue;
    }
    if (++it == arguments.end())
      throw UsageError("");
    if (*it == "dir")
      format = KR::BoxLibrary::DirectoryFormat;
    else if (*it == "zip")
      format = KR::BoxLibrary::ZipFormat;
    else
      throw UsageError("unknown format \"" + *it + "\"; use dir or zip");
  }
  if (rest.size() != count)
    throw UsageError("");
  return rest;
}

// A path a command is about to create: nothing may be there yet, but its directory must.
QString newPath(const std::string& path) {
  const QFileInfo info(localPath(path));
  // A dangling link is a name in use too.
  if (info.exists() || info.isSymLink())
    throw std::runtime_error("\"" + path + "\" already exists");
  if (!info.dir().exists()) {
    const QString parent = QFileInfo(QFile::decodeName(path.c_str())).path();
    throw std::runtime_error("no directory \"" + QFile::encodeName(parent).toStdString() + "\"");
  }
  return info.filePath();
}

}  // namespace

int runNew(const Arguments& arguments, Output& out) {
  Format format = KR::BoxLibrary::DirectoryFormat;
  const std::string path = withoutFormat(arguments, 1, format)[0];
  const QString target = newPath(path);
  KR::BoxLibrary library;
  library.saveTo(target, format);
  out.printPath(path);
  return 0;
}

int runPack(const Arguments& arguments, Output& out) {
  Format format = KR::BoxLibrary::ZipFormat;
  const Arguments paths = withoutFormat(arguments, 2, format);
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(paths[0], /*readOnly=*/true);
  const QString target = newPath(paths[1]);
  {
    const ProgressLine progress("saving");
    library->saveTo(target, format);
  }
  out.printPath(paths[1]);
  return 0;
}

int runExport(const Arguments& arguments, Output& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  const std::string noDestination = "no directory \"" + arguments[1] + "\"";
  const QDir destination(localPath(arguments[1]));
  if (!QFileInfo(destination.path()).isDir())
    throw std::runtime_error(noDestination);
  QStringList paths;
  KR::BoxLibrary::xFindBehaviors(library->boxRoot(), paths);
  try {
    const ProgressLine progress("exporting");
    library->exportBehaviors(destination.path());
  } catch (const zu::project::PathNotFound&) {
    // Its own text names no path.
    throw std::runtime_error(noDestination);
  }
  // The export skips a behavior it cannot write without a word; what is on disk tells.
  int status = 0;
  QJsonArray exported;
  for (const QString& path : paths) {
    std::string utf8 = path.toUtf8().toStdString();
    // One line per behavior, whatever its names hold.
    std::replace(utf8.begin(), utf8.end(), '\n', ' ');
    std::replace(utf8.begin(), utf8.end(), '\r', ' ');
    if (!QFileInfo(destination.filePath(path + "/behavior.bxd")).isFile()) {
      std::cerr << "krbox: could not export \"" << utf8 << "\"" << std::endl;
      status = 1;
    } else if (out.json()) {
      exported.append(path);
    } else {
      out.text() << utf8 << '\n';
    }
  }
  if (out.json())
    out.print(QJsonObject{{"paths", exported}});
  return status;
}

}  // namespace krbox
