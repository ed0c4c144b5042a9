#include "commands.h"

#include "box_source.h"
#include "failure_capture.h"
#include "progress_line.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>
#include <zu/project/source_lock.h>

#include <QFileInfo>
#include <QObject>
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

// One edit of a library opened for writing. The library holds its edits in its model;
// the library on disk changes only in commit(), and not at all when the library reported a
// failure while the edit was made. A committed edit prints the path of the node it touched.
class Edit {
public:
  explicit Edit(const std::string& path)
      : m_lock(lockLibrary(path)), m_library(openLibrary(path, /*readOnly=*/false)) {}

  KR::BoxLibrary& library() const { return *m_library; }
  int commit(const std::string& nodePath, Output& out) {
    m_capture.check();
    {
      const ProgressLine progress("saving");
      m_library->save();
    }
    out.printPath(nodePath);
    return 0;
  }

private:
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
  FailureCapture m_capture;
};

// INDEX as a position 0..last in the folder at folderPath.
int parseIndex(const std::string& text, int last, const std::string& folderPath) {
  const auto outOfRange = [&] {
    return std::runtime_error("index \"" + text + "\" is not a position in \"" + folderPath +
                              "\": 0 to " + std::to_string(last));
  };
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
    throw outOfRange();
  const int index = std::stoi(text);
  if (index > last)
    throw outOfRange();
  return index;
}

void refuseName(const std::string& name, const char* what) {
  const std::string why = KR::BoxLibraryNode::nameRefusal(name);
  if (!why.empty())
    throw std::runtime_error(std::string(what) + " \"" + name + "\" is no name: " + why);
}

bool isWithin(const KR::BoxLibraryNode* node, const KR::BoxLibraryNode* ancestor) {
  for (; node; node = node->parent()) {
    if (node == ancestor)
      return true;
  }
  return false;
}

}  // namespace

int runMkdir(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  const std::string& path = arguments[1];
  const std::size_t slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty())
    throw std::runtime_error("no name for the new folder in \"" + path + "\"");
  refuseName(name, "the folder name");
  KR::BoxLibraryNode* parent =
      findFolder(edit.library(), slash == std::string::npos ? "" : path.substr(0, slash));
  const KR::BoxLibraryNode* folder = parent->appendChild(name, /*expanded=*/true);
  return edit.commit(displayPath(*folder), out);
}

int runAdd(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* folder = findFolder(edit.library(), arguments[1]);
  KR::RootBoxDescription description = readBoxFile(arguments[2]);
  refuseName(description.name, "the box name");
  zu::project::ProjectModel files;
  description.resources = readResources(Arguments(arguments.begin() + 3, arguments.end()), files);
  // readBoxFile() makes sure there is a box element, so a box is always made.
  const KR::BoxLibraryNode* box = folder->appendChild(description);
  return edit.commit(displayPath(*box), out);
}

int runRename(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  refuseTop(*node, "rename");
  if (arguments[2].empty())
    throw std::runtime_error("the new name is empty");
  refuseName(arguments[2], "the new name");
  node->setName(arguments[2]);
  // Renaming moves the node's directory but leaves the parent's listing to its parent.
  node->parent()->saveFolder();
  return edit.commit(displayPath(*node), out);
}

int runMove(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  refuseTop(*node, "move");
  KR::BoxLibraryNode* target = findFolder(edit.library(), arguments[2]);
  if (isWithin(target, node))
    throw std::runtime_error("cannot move \"" + arguments[1] + "\" into itself or below it");
  KR::BoxLibraryNode* oldParent = node->parent();
  // INDEX counts in the target's list as it is once the node has left its old place.
  const int last = target->childCount() - (target == oldParent ? 1 : 0);
  const int index = arguments.size() > 3 ? parseIndex(arguments[3], last, arguments[2]) : last;

  // take() copies the node's files out but leaves its old directory, the old listing and
  // the old parent's relay behind; a move must not.
  const QString oldPath = node->path();
  // Owned here until the target takes it, should the old directory's removal throw.
  std::unique_ptr<KR::BoxLibraryNode> taken(node->take());
  edit.library().projectModel()->remove(oldPath);
  oldParent->saveFolder();
  QObject::disconnect(taken.get(), &KR::BoxLibraryNode::dataChanged, oldParent,
                      &KR::BoxLibraryNode::dataChanged);
  target->insertChild(index, taken.release());
  return edit.commit(displayPath(*node), out);
}

int runRemove(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* node = findNode(edit.library(), arguments[1]);
  refuseTop(*node, "remove");
  const std::string path = displayPath(*node);
  node->parent()->removeChild(node->index());
  delete node;
  return edit.commit(path, out);
}

int runSetTooltip(const Arguments& arguments, Output& out) {
  Edit edit(arguments[0]);
  KR::BoxLibraryNode* box = findBox(edit.library(), arguments[1]);
  box->boxData()->setTooltip(QString::fromUtf8(arguments[2].c_str()));
  return edit.commit(displayPath(*box), out);
}

}  // namespace krbox
