#include "commands.h"

#include "failure_capture.h"

#include <krboxlibrary/box_library_node.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <limits>
#include <stdexcept>

namespace krbox {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"tree", "PATH",
       "print the tree of the library at PATH (a directory or an archive): [-]/[+] expanded or "
       "collapsed folder, [ ] box, [B] behavior box",
       1, 1, runTree},
      {"show", "PATH NODE",
       "print the description of NODE, a \"/\"-separated path of names from the top of the "
       "library",
       2, 2, runShow},
      {"new", "PATH [--format dir|zip]",
       "create an empty library at PATH, a directory (the default) or a zip archive", 1, 3, runNew},
      {"mkdir", "LIBRARY FOLDER", "add a folder named by the last name of FOLDER", 2, 2, runMkdir},
      {"add", "LIBRARY FOLDER BOXFILE [RESOURCE...]",
       "add to FOLDER the box in BOXFILE, with the RESOURCE files", 3,
       std::numeric_limits<std::size_t>::max(), runAdd},
      {"rename", "LIBRARY NODE NEWNAME", "rename NODE to NEWNAME, one name", 3, 3, runRename},
      {"mv", "LIBRARY NODE FOLDER [INDEX]",
       "move NODE into FOLDER, at position INDEX (0 is first; the default is last)", 3, 4, runMove},
      {"rm", "LIBRARY NODE", "remove NODE and everything below it", 2, 2, runRemove},
      {"set-tooltip", "LIBRARY NODE TEXT", "set the tooltip of the box NODE", 3, 3, runSetTooltip},
      {"pack", "LIBRARY OUT [--format zip|dir]",
       "copy the library to OUT, a zip archive (the default) or a directory", 2, 4, runPack},
      {"export", "LIBRARY DEST",
       "write each behavior box into the directory DEST as a behavior project", 2, 2, runExport},
  };
  return table;
}

namespace {

// Finds the child path[i..] names below node. A display name may itself contain "/", so
// the parts are joined again where no child of the shorter name leads on.
KR::BoxLibraryNode* findBelow(KR::BoxLibraryNode* node, const std::vector<std::string>& parts,
                              std::size_t i) {
  if (i == parts.size())
    return node;
  std::string name;
  for (std::size_t j = i; j < parts.size(); ++j) {
    name += (j == i ? "" : "/") + parts[j];
    if (KR::BoxLibraryNode* child = node->child(name)) {
      if (KR::BoxLibraryNode* found = findBelow(child, parts, j + 1))
        return found;
    }
  }
  return nullptr;
}

}  // namespace

QString localPath(const std::string& argument) {
  return QDir::cleanPath(QFileInfo(QFile::decodeName(argument.c_str())).absoluteFilePath());
}

std::unique_ptr<KR::BoxLibrary> openLibrary(const std::string& path, bool readOnly) {
  // An empty path would make the library create a new, empty one.
  if (path.empty())
    throw std::runtime_error("no library path given");
  // Absolute, so that "." is titled by the directory's name.
  const QString absolute = localPath(path);
  // A library that cannot be opened is logged and left empty: the log record is the error.
  const FailureCapture capture;
  auto library = std::make_unique<KR::BoxLibrary>(absolute, readOnly);
  capture.check();
  return library;
}

KR::BoxLibraryNode* findNode(const KR::BoxLibrary& library, const std::string& path) {
  if (path.empty())
    return library.boxRoot();
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t slash; (slash = path.find('/', start)) != std::string::npos; start = slash + 1)
    parts.push_back(path.substr(start, slash - start));
  parts.push_back(path.substr(start));
  KR::BoxLibraryNode* node = findBelow(library.boxRoot(), parts, 0);
  if (!node)
    throw std::runtime_error("no node \"" + path + "\" in the library");
  return node;
}

KR::BoxLibraryNode* findFolder(const KR::BoxLibrary& library, const std::string& path) {
  KR::BoxLibraryNode* node = findNode(library, path);
  if (node->isBox())
    throw std::runtime_error("\"" + path + "\" is a box, not a folder");
  return node;
}

KR::BoxLibraryNode* findBox(const KR::BoxLibrary& library, const std::string& path) {
  KR::BoxLibraryNode* node = findNode(library, path);
  if (!node->isBox())
    throw std::runtime_error("\"" + path + "\" is a folder, not a box");
  return node;
}

void refuseTop(const KR::BoxLibraryNode& node, const char* what) {
  if (!node.parent())
    throw std::runtime_error(std::string("cannot ") + what + " the top of the library");
}

std::string displayPath(const KR::BoxLibraryNode& node) {
  std::string path;
  for (const KR::BoxLibraryNode* n = &node; n->parent(); n = n->parent())
    path = n->name() + (path.empty() ? "" : "/") + path;
  return path;
}

}  // namespace krbox
