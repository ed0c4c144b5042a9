#ifndef KRBOXLIBRARY_SRC_BOX_FILE_INPUT_H
#define KRBOXLIBRARY_SRC_BOX_FILE_INPUT_H

#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>

#include <QString>
#include <QStringList>

#include <memory>

namespace KR {

/// A box file on disk read for a new box: its description, and a model holding the
/// resource files the description lists.
struct BoxFileInput {
  RootBoxDescription description;
  std::unique_ptr<zu::project::ProjectModel> files;
};

/// Reads the box file at path (a local path) and the resource files resources into input.
/// The box takes the name in the file, else that of its directory for "box.bxd" and
/// "behavior.bxd", else the file's base name. The reason it cannot, or "".
QString readBoxFileInput(const QString& path, const QStringList& resources, BoxFileInput& input);

/// The files that go with a box file dropped from a file manager: for "box.bxd" and
/// "behavior.bxd", the other regular files of its directory; for any other name, none.
QStringList resourcesBeside(const QString& boxFile);

}  // namespace KR

#endif
