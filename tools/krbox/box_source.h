#ifndef KRBOX_TOOL_BOX_SOURCE_H
#define KRBOX_TOOL_BOX_SOURCE_H

#include "commands.h"

#include <krboxlibrary/box_library_node.h>

#include <boost/shared_ptr.hpp>

#include <string>

namespace zu {
namespace project {
class ProjectModel;
}
}  // namespace zu

namespace krbox {

/// The box in the box file at path, and the name it goes by: the box's own name, else the
/// name of the box's directory for "box.bxd" and "behavior.bxd", else the file's base name.
/// The description has no resources. Throws std::runtime_error when the file is no current
/// box file.
KR::RootBoxDescription readBoxFile(const std::string& path);

/// Copies the files at paths into the top of model and lists them for a new box. Throws
/// std::runtime_error, with model possibly partly filled, when a file is not a regular file,
/// would stand for one of a box directory's own files, or shares its name with another.
boost::shared_ptr<KR::BoxResourceList> readResources(const Arguments& paths,
                                                     zu::project::ProjectModel& model);

}  // namespace krbox

#endif
