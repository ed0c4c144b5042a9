#include "commands.h"

#include "progress_line.h"

#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/source_lock.h>

#include <QFile>
#include <QFileInfo>
#include <QString>

#include <unistd.h>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace krbox {

namespace {

// How long an edit waits for another writer of the library to finish: ten seconds, or what
// KRBOX_LOCK_WAIT_MS says, so that the tests need not wait that long.
int lockWaitMs() {
  const char* text = std::getenv("KRBOX_LOCK_WAIT_MS");
  return text && *text ? std::atoi(text) : 10000;
}

// One edit of a library opened for writing, made with the library's editor. The library
// holds its edits in its model; the library on disk changes only in commit(). A committed
// edit prints the path of the node it touched.
class Edit {
public:
  explicit Edit(const std::string& path)
      : m_lock(lockLibrary(path)),
        m_library(openLibrary(path, /*readOnly=*/false)),
        m_editor(m_library.get()) {
    refuseConflicts(path);
  }

  KR::BoxLibrary& library() const { return *m_library; }
  KR::BoxLibraryEditor& editor() { return m_editor; }
  // Saves when the editor made what it was asked; throws its reason otherwise.
  int commit(bool made, const KR::BoxLibraryNode* node, Output& out) {
    if (!made)
      throw std::runtime_error(m_editor.errorString().toUtf8().toStdString());
    const std::string path = displayPath(*node);
    save(path, out);
    return 0;
  }
  void save(const std::string& nodePath, Output& out) {
    {
      const ProgressLine progress("saving");
      m_library->save();
    }
    out.printPath(nodePath);
  }

private:
  // A listing a merge left conflicted reads as no listing, and saving would write the order
  // that guess gave in its place: the user's order and expanded state would be lost.
  void refuseConflicts(const std::string& path) const {
    for (const KR::BoxLibraryProblem& problem : m_library->problems()) {
      if (problem.kind == KR::BoxLibraryProblem::ConflictedListing)
        throw std::runtime_error("\"" + problem.file.toUtf8().toStdString() +
                                 "\" holds conflict markers left by a merge; resolve it first "
                                 "(see krbox check \"" +
                                 path + "\")");
    }
  }

  // Held from reading the library to the end of its save, so that no other writer's edit
  // falls between them. A path with nothing there is left for openLibrary() to refuse.
  static std::unique_ptr<zu::project::SourceLock> lockLibrary(const std::string& path) {
    const QString library = localPath(path);
    if (path.empty() || !QFileInfo::exists(library))
      return nullptr;
    const bool terminal = ::isatty(STDERR_FILENO);
    return std::make_unique<zu::project::SourceLock>(
        library, lockWaitMs(), [&path, terminal](const std::string& holder) {
          if (terminal)
            std::cerr << "krbox: waiting for " << holder << ", which is changing " << path
                      << std::endl;
        });
  }

  std::unique_ptr<zu::project::SourceLock> m_lock;
  std::unique_ptr<KR::BoxLibrary> m_library;
  KR::BoxLibraryEditor m_editor;
};

// INDEX as a position, which the editor checks against the folder.
int parseIndex(const std::string& text, const std::string& folderPath) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
    throw std::runtime_error("index \"" + text + "\" is not a position in \"" + folderPath + "\"");
  return std::stoi(text);
}

QString fileArgument(const std::string& path) {
  return QFile::decodeName(path.c_str());
}

}  // namespace

int runMkdir(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  const std::string& path = arguments[1];
  const std::size_t slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  KR::BoxLibraryNode* parent =
      findFolder(edit.library(), slash == std::string::npos ? "" : path.substr(0, slash));
  const KR::BoxLibraryNode* folder =
      edit.editor().newFolder(parent, -1, QString::fromUtf8(name.c_str()), /*expanded=*/true);
  return edit.commit(folder, folder, out);
}

int runAdd(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* folder = findFolder(edit.library(), arguments[1]);
  QStringList resources;
  for (auto it = arguments.begin() + 3; it != arguments.end(); ++it)
    resources.append(fileArgument(*it));
  const KR::BoxLibraryNode* box =
      edit.editor().addBoxFile(folder, -1, fileArgument(arguments[2]), resources);
  return edit.commit(box, box, out);
}

int runRename(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  return edit.commit(edit.editor().rename(node, QString::fromUtf8(arguments[2].c_str())), node,
                     out);
}

int runMove(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  KR::BoxLibraryNode* target = findFolder(edit.library(), arguments[2]);
  const int index = arguments.size() > 3 ? parseIndex(arguments[3], arguments[2]) : -1;
  return edit.commit(edit.editor().move(node, target, index), node, out);
}

int runRemove(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  const std::string path = displayPath(*node);
  if (!edit.editor().remove(node))
    throw std::runtime_error(edit.editor().errorString().toUtf8().toStdString());
  edit.save(path, out);
  return 0;
}

int runSetTooltip(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* box = findNode(edit.library(), arguments[1]);
  return edit.commit(edit.editor().setTooltip(box, QString::fromUtf8(arguments[2].c_str())), box,
                     out);
}

}  // namespace krbox
