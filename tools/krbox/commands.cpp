#include "commands.h"

#include "progress_line.h"

#include <krboxlibrary/box_library_node.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace krbox {

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"tree", "PATH",
       "print the tree of the library at PATH (a directory or an archive): [-]/[+] expanded or "
       "collapsed folder, [ ] box, [B] behavior box",
       "PATH  a library: a directory, or an archive (zip or a tar form)\n",
       "krbox tree \"examples/Robot Basics\"", 1, 1, runTree},
      {"show", "PATH NODE",
       "print the description of NODE, a \"/\"-separated path of names from the top of the "
       "library",
       "PATH  a library: a directory or an archive\n"
       "NODE  a box or folder: its names from the top, joined by \"/\"; \"\" is the top\n",
       "krbox show \"examples/Robot Basics\" \"Motions/Dances/Party/Robot Dance\"", 2, 2, runShow},
      {"find", "LIBRARY QUERY...",
       "print the path of every box and folder matching QUERY, one a line",
       "LIBRARY  a library: a directory or an archive, read only\n"
       "QUERY    words that must all be in the name, tooltip or tags (any letter case or\n"
       "         accent); tag:WORD must be in a tag\n",
       "krbox find \"examples/Robot Basics\" tag:posture knees", 2,
       std::numeric_limits<std::size_t>::max(), runFind},
      {"new", "PATH [--format dir|zip]",
       "create an empty library at PATH, a directory (the default) or a zip archive",
       "PATH             where the library goes; nothing may be there yet\n"
       "--format dir|zip a directory (the default) or a zip archive\n",
       "krbox new /tmp/empty.lbf --format zip", 1, 3, runNew},
      {"mkdir", "LIBRARY FOLDER", "add a folder named by the last name of FOLDER",
       "LIBRARY  a library: a directory or an archive, changed in place\n"
       "FOLDER   the new folder's path of names; the folder above it must exist\n",
       "krbox mkdir /tmp/robot.lbf \"Motions/Gestures\"", 2, 2, runMkdir},
      {"add", "LIBRARY FOLDER BOXFILE [RESOURCE...]",
       "add to FOLDER the box in BOXFILE, with the RESOURCE files",
       "LIBRARY   a library: a directory or an archive, changed in place\n"
       "FOLDER    the folder the box goes into; \"\" is the top\n"
       "BOXFILE   a box file (box.bxd, behavior.bxd or any other name)\n"
       "RESOURCE  files the box uses, copied into its directory\n",
       "krbox add /tmp/robot.lbf Motions \"Nod/box.bxd\" nod.txt", 3,
       std::numeric_limits<std::size_t>::max(), runAdd},
      {"rename", "LIBRARY NODE NEWNAME", "rename NODE to NEWNAME, one name",
       "LIBRARY  a library: a directory or an archive, changed in place\n"
       "NODE     the box or folder to rename\n"
       "NEWNAME  one name, which may hold \"/\"; numbered when a sibling has it\n",
       "krbox rename /tmp/robot.lbf \"Sounds/Music\" Songs", 3, 3, runRename},
      {"mv", "LIBRARY NODE FOLDER [INDEX]",
       "move NODE into FOLDER, at position INDEX (0 is first; the default is last)",
       "LIBRARY  a library: a directory or an archive, changed in place\n"
       "NODE     the box or folder to move\n"
       "FOLDER   the folder it goes into; \"\" is the top\n"
       "INDEX    its place among FOLDER's children, 0 first; last by default\n",
       "krbox mv /tmp/robot.lbf \"Motions/Postures/Crouch\" \"Motions/Postures\" 0", 3, 4, runMove},
      {"rm", "LIBRARY NODE", "remove NODE and everything below it",
       "LIBRARY  a library: a directory or an archive, changed in place\n"
       "NODE     the box, or the folder with all it holds\n",
       "krbox rm /tmp/robot.lbf \"Misc./Tests/Legacy Blink\"", 2, 2, runRemove},
      {"set-tooltip", "LIBRARY NODE TEXT", "set the tooltip of the box NODE",
       "LIBRARY  a library: a directory or an archive, changed in place\n"
       "NODE     a box\n"
       "TEXT     the tooltip; tags go on the lines after a line \"tags:\"\n",
       "krbox set-tooltip /tmp/robot.lbf \"Motions/Postures/Crouch\" \"Crouches low.\"", 3, 3,
       runSetTooltip},
      {"pack", "LIBRARY OUT [--format zip|dir]",
       "copy the library to OUT, a zip archive (the default) or a directory",
       "LIBRARY          a library: a directory or an archive, read only\n"
       "OUT              where the copy goes; nothing may be there yet\n"
       "--format zip|dir a zip archive (the default) or a directory\n",
       "krbox pack \"examples/Robot Basics\" /tmp/robot.lbf", 2, 4, runPack},
      {"export", "LIBRARY DEST",
       "write each behavior box into the directory DEST as a behavior project",
       "LIBRARY  a library: a directory or an archive, read only\n"
       "DEST     an existing directory; each behavior goes to its path below it\n",
       "krbox export /tmp/robot.lbf /tmp/behaviors", 2, 2, runExport},
      {"check", "LIBRARY",
       "print what the library holds that reads otherwise than it is stored, one problem a "
       "line; exit 1 when there is any",
       "LIBRARY  a library: a directory or an archive, read only\n",
       "krbox check \"examples/Robot Basics\"", 1, 1, runCheck},
      {"merge-listing", "BASE OURS THEIRS",
       "merge two versions of a folder listing (lbfinfo) into OURS: git's merge driver",
       "BASE    the listing both sides started from; an empty file for none\n"
       "OURS    our version, replaced by the merged listing\n"
       "THEIRS  their version\n",
       "krbox merge-listing lbfinfo.base lbfinfo lbfinfo.theirs", 3, 3, runMergeListing},
      {"git-setup", "LIBRARY",
       "let git merge the library's folder listings with merge-listing, in this clone",
       "LIBRARY  a library directory inside a git repository\n",
       "krbox git-setup \"examples/Robot Basics\"", 1, 1, runGitSetup},
  };
  return table;
}

const std::vector<Option>& globalOptions() {
  static const std::vector<Option> table = {
      {"--json", "print the result as one JSON document (UTF-8, on one line)"},
      {"--quiet", "show no progress line, even on a terminal"},
  };
  return table;
}

std::string synopsis(const Command& command) {
  std::string text = command.name;
  if (*command.arguments)
    text += std::string(" ") + command.arguments;
  return text;
}

namespace {

// The child named name, or else one whose name is the same text in another Unicode normal
// form: macOS stores names decomposed, and a user types them composed.
KR::BoxLibraryNode* childNamed(KR::BoxLibraryNode* node, const std::string& name) {
  if (KR::BoxLibraryNode* child = node->child(name))
    return child;
  if (std::all_of(name.begin(), name.end(), [](char c) { return (c & 0x80) == 0; }))
    return nullptr;
  const auto composed = [](const std::string& text) {
    return QString::fromUtf8(text.c_str()).normalized(QString::NormalizationForm_C);
  };
  const QString wanted = composed(name);
  for (KR::BoxLibraryNode* child : node->childList()) {
    if (composed(child->name()) == wanted)
      return child;
  }
  return nullptr;
}

// Finds the child path[i..] names below node. A display name may itself contain "/", so
// the parts are joined again where no child of the shorter name leads on.
KR::BoxLibraryNode* findBelow(KR::BoxLibraryNode* node, const std::vector<std::string>& parts,
                              std::size_t i) {
  if (i == parts.size())
    return node;
  std::string name;
  for (std::size_t j = i; j < parts.size(); ++j) {
    name += (j == i ? "" : "/") + parts[j];
    if (KR::BoxLibraryNode* child = childNamed(node, name)) {
      if (KR::BoxLibraryNode* found = findBelow(child, parts, j + 1))
        return found;
    }
  }
  return nullptr;
}

}  // namespace

void Output::print(const QJsonObject& document) {
  m_stream << QJsonDocument(document).toJson(QJsonDocument::Compact).constData() << '\n';
}

void Output::printPath(const std::string& path) {
  if (m_json)
    print(QJsonObject{{"path", QString::fromStdString(path)}});
  else
    m_stream << path << '\n';
}

QString localPath(const std::string& argument) {
  return QDir::cleanPath(QFileInfo(QFile::decodeName(argument.c_str())).absoluteFilePath());
}

std::unique_ptr<KR::BoxLibrary> openLibrary(const std::string& path, bool readOnly) {
  // An empty path would make the library create a new, empty one.
  if (path.empty())
    throw std::runtime_error("no library path given");
  // Absolute, so that "." is titled by the directory's name.
  const QString absolute = localPath(path);
  const ProgressLine progress("opening");
  auto library = std::make_unique<KR::BoxLibrary>(absolute, readOnly);
  if (!library->loadError().isEmpty())
    throw std::runtime_error("cannot open \"" + path +
                             "\": " + library->loadError().toUtf8().toStdString());
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

std::string displayPath(const KR::BoxLibraryNode& node) {
  std::string path;
  for (const KR::BoxLibraryNode* n = &node; n->parent(); n = n->parent())
    path = n->name() + (path.empty() ? "" : "/") + path;
  return path;
}

}  // namespace krbox
