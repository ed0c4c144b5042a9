#include <krboxlibrary/box_library_editor.h>

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krserial/xml_element.h>
#include <zu/project/project_model.h>

#include <QPointer>

#include "box_file_input.h"
#include "editor_private.h"
#include "text.h"

#include <exception>
#include <memory>
#include <type_traits>

namespace KR {

namespace {

QString quoted(const std::string& name) {
  return QStringLiteral("\u201c%1\u201d").arg(text::fromUtf8(name));
}

QString quoted(const BoxLibraryNode* node) {
  return node->parent() ? quoted(node->name()) : QStringLiteral("the top of the library");
}

bool isWithin(const BoxLibraryNode* node, const BoxLibraryNode* ancestor) {
  for (; node; node = node->parent()) {
    if (node == ancestor)
      return true;
  }
  return false;
}

// What a project model's exception says, for a message of the editor.
QString reasonOf(const std::exception& e) {
  return *e.what() ? QString::fromUtf8(e.what()) : QStringLiteral("unknown failure");
}

}  // namespace

bool BoxLibraryEditor::Private::checkNode(const BoxLibraryNode* node) {
  if (!library)
    return refuse(QStringLiteral("the library is gone"));
  if (!node || node->library() != library)
    return refuse(QStringLiteral("the node is not in this library"));
  return true;
}

bool BoxLibraryEditor::Private::checkFolder(const BoxLibraryNode* folder) {
  if (!checkNode(folder))
    return false;
  if (folder->isBox())
    return refuse(QStringLiteral("%1 is a box, not a folder").arg(quoted(folder)));
  return true;
}

bool BoxLibraryEditor::Private::checkIndex(int& index, int count, const BoxLibraryNode* folder) {
  if (index == -1)
    index = count;
  if (index < 0 || index > count)
    return refuse(
        QStringLiteral("no position %1 in %2: 0 to %3").arg(index).arg(quoted(folder)).arg(count));
  return true;
}

std::string BoxLibraryEditor::Private::takeName(const BoxLibraryNode* folder, const QString& wanted,
                                                bool exact, const BoxLibraryNode* self,
                                                bool existing) {
  const std::string given = text::toUtf8(wanted);
  const std::string taken = folder->freeName(given, exact, self);
  // The name given, then the form it takes among the siblings (a number may lengthen it).
  for (const std::string* name : {&given, &taken}) {
    if (existing && *name == given)
      continue;
    const std::string why = BoxLibraryNode::nameRefusal(*name);
    if (!why.empty()) {
      refuse(QStringLiteral("\"%1\" cannot name a node: %2").arg(wanted, text::fromUtf8(why)));
      return std::string();
    }
  }
  return taken;
}

bool BoxLibraryEditor::Private::writeListing(const BoxLibraryNode* folder, bool expanded,
                                             const std::vector<std::string>& names) {
  const std::string why = BoxLibraryNode::writeListing(*library->projectModel(),
                                                       folder->directoryPrefix(), expanded, names);
  if (why.empty())
    return true;
  return refuse(QStringLiteral("cannot write the listing of %1: %2")
                    .arg(quoted(folder), text::fromUtf8(why)));
}

BoxLibraryNode* BoxLibraryEditor::Private::attach(BoxLibraryNode* folder, int index,
                                                  BoxLibraryNode* node) {
  emit q->nodeAboutToBeInserted(folder, index);
  node->m_parent = folder;
  folder->m_children.insert(index, node);
  folder->relay(node);
  error.clear();
  emit q->nodeInserted(node);
  return node;
}

BoxLibraryNode* BoxLibraryEditor::Private::finishInsert(BoxLibraryNode* folder, int index,
                                                        BoxLibraryNode* node) {
  std::vector<std::string> names = folder->childNames();
  names.insert(names.begin() + index, node->m_name);
  if (!writeListing(folder, folder->m_expanded, names))
    return discard(node);
  touch(folder);
  touch(node);
  return attach(folder, index, node);
}

BoxLibraryNode* BoxLibraryEditor::Private::discard(BoxLibraryNode* node) {
  const QString path = node->path();
  node->m_parent = nullptr;
  delete node;
  try {
    if (library->projectModel()->hasDir(path))
      library->projectModel()->remove(path);
  } catch (const std::exception&) {
    // A directory no listing names reads back as a node at the end: better than a refusal
    // that hides the first failure.
  }
  return nullptr;
}

template <class T, class Write, class Signal>
bool BoxLibraryEditor::Private::setValue(BoxLibraryNode* box, const char* what, T BoxData::*member,
                                         const typename std::common_type<T>::type& value,
                                         Write write, Signal changed) {
  if (!checkNode(box))
    return false;
  if (!box->isBox())
    return refuse(QStringLiteral("%1 is a folder, not a box").arg(quoted(box)));
  error.clear();
  BoxData& data = *box->boxData();
  if (data.*member == value)
    return true;
  const std::string why = (data.*write)(value);
  if (!why.empty())
    return refuse(QStringLiteral("cannot write the %1 of %2: %3")
                      .arg(QLatin1String(what), quoted(box), text::fromUtf8(why)));
  data.*member = value;
  touch(box);
  emit(data.*changed)(data.*member);
  return true;
}

// ---- The editor ----------------------------------------------------------------------

BoxLibraryEditor::BoxLibraryEditor(BoxLibrary* library, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>(this, library)) {
  // What is saved is on disk: a later change there by another writer is no conflict.
  if (library)
    connect(library, &BoxLibrary::saved, this, [this] { d->edited.clear(); });
}

BoxLibraryEditor::~BoxLibraryEditor() = default;

BoxLibrary* BoxLibraryEditor::library() const {
  return d->library;
}

QString BoxLibraryEditor::errorString() const {
  return d->error;
}

QString BoxLibraryEditor::nameRefusal(const QString& name) {
  return text::fromUtf8(BoxLibraryNode::nameRefusal(text::toUtf8(name)));
}

BoxLibraryNode* BoxLibraryEditor::newFolder(BoxLibraryNode* folder, int index, const QString& name,
                                            bool expanded) {
  if (!d->checkFolder(folder) || !d->checkIndex(index, folder->childCount(), folder))
    return nullptr;
  const std::string taken = d->takeName(folder, name, false, nullptr);
  if (taken.empty())
    return nullptr;
  BoxLibraryNode* node = d->newNode(folder, taken);
  node->m_expanded = expanded;
  try {
    d->library->projectModel()->mkdir(node->path(), false);
  } catch (const std::exception& e) {
    d->refuse(QStringLiteral("cannot make the folder %1: %2").arg(quoted(taken), reasonOf(e)));
    return d->discard(node);
  }
  // The new folder's own listing, then its parent's; a failure removes the directory.
  if (!d->writeListing(node, expanded, {}))
    return d->discard(node);
  return d->finishInsert(folder, index, node);
}

BoxLibraryNode* BoxLibraryEditor::addBox(BoxLibraryNode* folder, int index,
                                         const RootBoxDescription& description) {
  if (!d->checkFolder(folder) || !d->checkIndex(index, folder->childCount(), folder))
    return nullptr;
  if (!description.box)
    return d->refuse(QStringLiteral("the box description has no box element")), nullptr;
  const std::string taken = d->takeName(folder, text::fromUtf8(description.name), false, nullptr);
  if (taken.empty())
    return nullptr;
  BoxLibraryNode* node = d->newNode(folder, taken);
  node->setBoxDataInternal(boost::shared_ptr<BoxData>(new BoxData(node, description.box)));
  // The caller's element stays as it is: writing names the element it writes.
  QString file;
  std::string why = node->writeBox(description.box->clone(), node->m_boxData->behavior(), file);
  if (why.empty() && description.resources && description.resources->project) {
    const BoxResourceList& resources = *description.resources;
    const QString source = text::asDirectory(resources.path);
    const QString destination = node->directoryPrefix();
    try {
      for (QString entry : resources.files) {
        if (entry.startsWith(QLatin1Char('/')))
          entry.remove(0, 1);
        if (!entry.isEmpty())
          d->library->projectModel()->importFile(resources.project, source + entry,
                                                 destination + entry, false);
      }
    } catch (const std::exception& e) {
      why = text::toUtf8(reasonOf(e));
    }
  }
  if (!why.empty()) {
    d->refuse(
        QStringLiteral("cannot write the box %1: %2").arg(quoted(taken), text::fromUtf8(why)));
    return d->discard(node);
  }
  return d->finishInsert(folder, index, node);
}

BoxLibraryNode* BoxLibraryEditor::addBoxFile(BoxLibraryNode* folder, int index,
                                             const QString& boxFile, const QStringList& resources) {
  // The target first: a refusal there needs no file read.
  if (!d->checkFolder(folder) || !d->checkIndex(index, folder->childCount(), folder))
    return nullptr;
  BoxFileInput input;
  QString why;
  try {
    why = readBoxFileInput(boxFile, resources, input);
  } catch (const std::exception& e) {
    why = reasonOf(e);
  }
  if (!why.isEmpty())
    return d->refuse(why), nullptr;
  return addBox(folder, index, input.description);
}

QList<BoxLibraryNode*> BoxLibraryEditor::addBoxFiles(BoxLibraryNode* folder, int index,
                                                     const QStringList& boxFiles) {
  if (!d->checkFolder(folder) || !d->checkIndex(index, folder->childCount(), folder))
    return {};
  std::vector<BoxFileInput> inputs(static_cast<std::size_t>(boxFiles.size()));
  for (int i = 0; i < boxFiles.size(); ++i) {
    QString why;
    try {
      why = readBoxFileInput(boxFiles.at(i), resourcesBeside(boxFiles.at(i)),
                             inputs[static_cast<std::size_t>(i)]);
    } catch (const std::exception& e) {
      why = reasonOf(e);
    }
    if (!why.isEmpty())
      return d->refuse(why), QList<BoxLibraryNode*>();
  }
  QList<BoxLibraryNode*> made;
  for (const BoxFileInput& input : inputs) {
    BoxLibraryNode* box = addBox(folder, index + static_cast<int>(made.size()), input.description);
    if (!box) {
      // Whole or not at all: the boxes made so far go again.
      const QString reason = d->error;
      for (auto it = made.rbegin(); it != made.rend(); ++it)
        remove(*it);
      d->error = reason;
      return {};
    }
    made.append(box);
  }
  return made;
}

BoxLibraryNode* BoxLibraryEditor::copy(const BoxLibraryNode* source, BoxLibraryNode* folder,
                                       int index, Naming naming) {
  if (!d->checkFolder(folder) || !d->checkIndex(index, folder->childCount(), folder))
    return nullptr;
  if (!source || !source->project())
    return d->refuse(QStringLiteral("nothing to copy")), nullptr;
  if (isWithin(folder, source))
    return d->refuse(QStringLiteral("%1 cannot be copied into itself or below itself")
                         .arg(quoted(source))),
           nullptr;
  const std::string taken =
      d->takeName(folder, text::fromUtf8(source->name()), naming == ExactName, nullptr, true);
  if (taken.empty())
    return nullptr;
  BoxLibraryNode* node = d->newNode(folder, taken);
  try {
    d->library->projectModel()->importFile(source->project(), source->path(), node->path(), true);
  } catch (const std::exception& e) {
    d->refuse(QStringLiteral("cannot copy %1: %2").arg(quoted(source), reasonOf(e)));
    return d->discard(node);
  }
  // The subtree is read back from the copied files, as a library reads it.
  node->initFromProject();
  node->m_name = taken;
  return d->finishInsert(folder, index, node);
}

bool BoxLibraryEditor::rename(BoxLibraryNode* node, const QString& name, Naming naming) {
  if (!d->checkNode(node))
    return false;
  BoxLibraryNode* folder = node->parent();
  if (!folder)
    return d->refuse(QStringLiteral("the top of the library has no name to change"));
  const std::string taken = d->takeName(folder, name, naming == ExactName, node);
  if (taken.empty())
    return false;
  d->error.clear();
  if (taken == node->m_name)
    return true;
  zu::project::ProjectModel* model = d->library->projectModel();
  const QString oldPath = node->path();
  const std::string fileName = BoxLibraryNode::escapeFileName(taken);
  const QString newPath = text::asDirectory(folder->path()) + text::fromUtf8(fileName);
  const bool moves = fileName != node->m_fileName;
  try {
    if (moves)
      model->move(oldPath, newPath, false);
  } catch (const std::exception& e) {
    return d->refuse(QStringLiteral("cannot rename %1: %2").arg(quoted(node), reasonOf(e)));
  }
  std::vector<std::string> names = folder->childNames();
  names[static_cast<std::size_t>(node->index())] = taken;
  if (!d->writeListing(folder, folder->m_expanded, names)) {
    if (moves) {
      try {
        model->move(newPath, oldPath, false);
      } catch (const std::exception&) {
        // The listing still names the old name; the directory reads back at the end.
      }
    }
    return false;
  }
  node->m_name = taken;
  node->m_fileName = fileName;
  d->touch(node);
  d->touch(folder);
  emit node->dataChanged(node);
  return true;
}

bool BoxLibraryEditor::move(BoxLibraryNode* node, BoxLibraryNode* folder, int index) {
  if (!d->checkNode(node) || !d->checkFolder(folder))
    return false;
  BoxLibraryNode* from = node->parent();
  if (!from)
    return d->refuse(QStringLiteral("the top of the library cannot move"));
  if (isWithin(folder, node))
    return d->refuse(
        QStringLiteral("%1 cannot move into itself or below itself").arg(quoted(node)));
  const int oldIndex = node->index();
  if (!d->checkIndex(index, folder->childCount() - (folder == from ? 1 : 0), folder))
    return false;
  d->error.clear();
  if (folder == from && index == oldIndex)
    return true;
  const std::string taken =
      folder == from ? node->m_name
                     : d->takeName(folder, text::fromUtf8(node->m_name), true, nullptr, true);
  if (taken.empty())
    return false;
  const std::string fileName = BoxLibraryNode::escapeFileName(taken);
  zu::project::ProjectModel* model = d->library->projectModel();
  const QString oldPath = node->path();
  const QString newPath = text::asDirectory(folder->path()) + text::fromUtf8(fileName);
  if (folder != from) {
    try {
      model->move(oldPath, newPath, false);
    } catch (const std::exception& e) {
      return d->refuse(QStringLiteral("cannot move %1: %2").arg(quoted(node), reasonOf(e)));
    }
  }
  std::vector<std::string> fromNames = from->childNames();
  fromNames.erase(fromNames.begin() + oldIndex);
  std::vector<std::string> toNames = folder == from ? fromNames : folder->childNames();
  toNames.insert(toNames.begin() + index, taken);
  const bool written = (folder == from || d->writeListing(from, from->m_expanded, fromNames)) &&
                       d->writeListing(folder, folder->m_expanded, toNames);
  if (!written) {
    const QString reason = d->error;
    try {
      if (folder != from)
        model->move(newPath, oldPath, false);
      BoxLibraryNode::writeListing(*model, from->directoryPrefix(), from->m_expanded,
                                   from->childNames());
    } catch (const std::exception&) {
      // What could not be put back reads back as unlisted directories, at the end.
    }
    return d->refuse(reason);
  }

  d->touch(node);
  d->touch(from);
  d->touch(folder);
  emit nodeAboutToBeMoved(node, folder, index);
  from->m_children.removeAt(oldIndex);
  disconnect(node, &BoxLibraryNode::dataChanged, from, &BoxLibraryNode::dataChanged);
  // The list owns the node from now on, whatever object parent it had.
  node->setParent(nullptr);
  node->m_parent = folder;
  folder->m_children.insert(index, node);
  folder->relay(node);
  const bool renamed = taken != node->m_name;
  node->m_name = taken;
  node->m_fileName = fileName;
  emit nodeMoved(node);
  if (renamed)
    emit node->dataChanged(node);
  return true;
}

bool BoxLibraryEditor::remove(BoxLibraryNode* node) {
  if (!d->checkNode(node))
    return false;
  BoxLibraryNode* folder = node->parent();
  if (!folder)
    return d->refuse(QStringLiteral("the top of the library cannot be removed"));
  const int index = node->index();
  std::vector<std::string> names = folder->childNames();
  names.erase(names.begin() + index);
  if (!d->writeListing(folder, folder->m_expanded, names))
    return false;
  try {
    d->library->projectModel()->remove(node->path());
  } catch (const std::exception& e) {
    BoxLibraryNode::writeListing(*d->library->projectModel(), folder->directoryPrefix(),
                                 folder->m_expanded, folder->childNames());
    return d->refuse(QStringLiteral("cannot remove %1: %2").arg(quoted(node), reasonOf(e)));
  }
  d->error.clear();
  emit nodeAboutToBeRemoved(node);
  disconnect(node, &BoxLibraryNode::dataChanged, folder, &BoxLibraryNode::dataChanged);
  folder->m_children.removeAt(index);
  node->m_parent = nullptr;
  emit nodeRemoved(folder, index);
  d->touch(folder);
  d->forgetEdits(node);
  delete node;
  return true;
}

bool BoxLibraryEditor::setTooltip(BoxLibraryNode* box, const QString& tooltip) {
  return d->setValue(box, "tooltip", &BoxData::m_tooltip, tooltip, &BoxData::writeTooltip,
                     &BoxData::tooltipChanged);
}

bool BoxLibraryEditor::setBitmaps(BoxLibraryNode* box, const QStringList& bitmaps) {
  return d->setValue(box, "bitmaps", &BoxData::m_bitmaps, bitmaps, &BoxData::writeBitmaps,
                     &BoxData::bitmapsChanged);
}

bool BoxLibraryEditor::setBitmapExpanded(BoxLibraryNode* box, bool expanded) {
  return d->setValue(box, "bitmap style", &BoxData::m_bitmapExpanded, expanded,
                     &BoxData::writeBitmapExpanded, &BoxData::bitmapExpandedChanged);
}

bool BoxLibraryEditor::setExpanded(BoxLibraryNode* folder, bool expanded) {
  if (!d->checkFolder(folder))
    return false;
  d->error.clear();
  if (folder->m_expanded == expanded)
    return true;
  if (!d->writeListing(folder, expanded, folder->childNames()))
    return false;
  folder->m_expanded = expanded;
  d->touch(folder);
  emit expandedChanged(folder);
  return true;
}

}  // namespace KR
