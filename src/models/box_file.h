#ifndef KRBOXLIBRARY_SRC_MODELS_BOX_FILE_H
#define KRBOXLIBRARY_SRC_MODELS_BOX_FILE_H

#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>

#include <QString>
#include <QStringList>

#include <memory>

namespace KR {
namespace models {

/// A box file on disk read for a new box: its description, and a model holding the
/// resource files the description lists.
struct BoxFile {
  RootBoxDescription description;
  std::unique_ptr<zu::project::ProjectModel> files;
};

/// Reads the box file at path (a local path) with the resource files resources. The box
/// takes the name in the file, else that of its directory for "box.bxd" and
/// "behavior.bxd", else the file's base name. False, with *error set, when the file is no
/// current box file or a resource cannot be read.
bool readBoxFile(const QString& path, const QStringList& resources, BoxFile& box, QString* error);

/// The files that go with a box file dropped from a file manager: for "box.bxd" and
/// "behavior.bxd", the other regular files of its directory; for any other name, none.
QStringList resourcesBeside(const QString& boxFile);

}  // namespace models
}  // namespace KR

#endif
