#include <krboxlibrary/box_library.h>

#include <krboxlibrary/box_constants.h>
#include <zu/log.h>

#include "refusal.h"
#include "text.h"
#include "vocabulary.h"

#include <QFileInfo>

namespace KR {

namespace {

using vocabulary::kTypeKey;

// What a new library records in its metadata.
void recordNewLibrary(zu::project::ProjectModel& model) {
  model.setMetadata(QLatin1String(kTypeKey), QLatin1String(BoxConstants::a_boxLibraryProjectType));
  model.setMetadata(QLatin1String(vocabulary::kVersionKey),
                    QLatin1String(BoxConstants::a_boxLibraryProjectVersion));
}
using vocabulary::kVersionKey;

const char kTitleKey[] = "title";

// The project model's message without the path it starts with: the caller knows that one.
QString reasonOf(const std::exception& failure, const QString& path) {
  const QString message = QString::fromUtf8(failure.what());
  const QString prefix = QFileInfo(path).fileName() + QLatin1String(": ");
  const int at = message.startsWith(QLatin1Char('/')) ? message.indexOf(prefix) : -1;
  return at < 0 ? message : message.mid(at + prefix.size());
}

bool endsWithExtension(const QString& name, const char* extension) {
  return name.endsWith(QLatin1String(extension), Qt::CaseInsensitive);
}

}  // namespace

BoxLibrary::BoxLibrary(const QString& path, bool readOnly, QObject* parent)
    : QObject(parent),
      m_project(new zu::project::ProjectModel(this)),
      m_readOnly(readOnly),
      m_behaviorCompatible(false) {
  m_root = new BoxLibraryNode(this);
  if (!path.isEmpty()) {
    // Whatever the load leaves behind (normally nothing after a failure) is read as the tree.
    try {
      m_project->load(path, zu::project::ArchiveFormat_Auto);
      setTitle(makeTitleFromPath(path));
    } catch (const zu::project::CorruptedFile& e) {
      failOpening(path, reasonOf(e, path), "corrupted file format");
    } catch (const zu::project::PathNotFound&) {
      failOpening(path, QString(), "no such file or directory");
    } catch (const zu::project::UnsupportedFormat& e) {
      failOpening(path, reasonOf(e, path), "unrecognized file format");
    }
    delete m_root;
    m_root = new BoxLibraryNode(this);
    // A file that is there but could not be read (a damaged entry) leaves the tree partial.
    const QString unread = m_project->readFailure();
    if (m_loadError.isEmpty() && !unread.isEmpty())
      failOpening(path, unread, "corrupted file format");
  } else {
    recordNewLibrary(*m_project);
  }
  relayRoot();
}

BoxLibrary::BoxLibrary(const BoxLibrary& other)
    : QObject(other.parent()),
      m_project(new zu::project::ProjectModel(other.m_project
                                                  ? static_cast<QObject*>(other.m_project.data())
                                                  : static_cast<QObject*>(this))),
      m_readOnly(other.m_readOnly),
      m_behaviorCompatible(other.m_behaviorCompatible) {
  m_root = new BoxLibraryNode(this);
  relayRoot();
  // The model is an object child of other's and goes with it: this library then carries on
  // as an empty, unsaved one instead of reaching for what is gone.
  connect(m_project, &QObject::destroyed, this, [this] { replaceLostModel(); });
}

void BoxLibrary::replaceLostModel() {
  refusal::warn("BoxLibrary",
                "The library this one was copied from is gone with its files: this library "
                "is now empty and unsaved");
  m_project = new zu::project::ProjectModel(this);
  recordNewLibrary(*m_project);
  // The old tree stays for pointers the host may hold, but reaches no files any more.
  if (BoxLibraryNode* old = m_root) {
    old->m_library = nullptr;
    old->disconnect(this);
  }
  m_root = new BoxLibraryNode(this);
  relayRoot();
}

BoxLibrary& BoxLibrary::operator=(const BoxLibrary& other) {
  if (this == &other)
    return *this;
  setParent(other.parent());
  // The previous model and root stay object children of this library until it goes.
  auto* model = other.m_project ? new zu::project::ProjectModel(*other.m_project)
                                : new zu::project::ProjectModel();
  model->setParent(this);
  if (m_project)
    disconnect(m_project, nullptr, this, nullptr);
  m_project = model;
  m_readOnly = other.m_readOnly;
  m_behaviorCompatible = other.m_behaviorCompatible;
  m_loadError = other.m_loadError;
  m_root = new BoxLibraryNode(this);
  return *this;
}

BoxLibrary::~BoxLibrary() {
  // Its own model going is no loss to report.
  if (m_project)
    disconnect(m_project, nullptr, this, nullptr);
  delete m_root;
  delete m_project;
}

void BoxLibrary::failOpening(const QString& path, const QString& reason, const char* kind) {
  zu::log::LogStream(zu::log::LogLevel_Warning, vocabulary::kLogCategory, "", "BoxLibrary", 0)
      << "Could not load the box library found at "
      << "\"" << text::toLatin1(path) << "\": " << kind << ".";
  m_loadError = reason.isEmpty() ? QLatin1String(kind)
                                 : reason + QLatin1String(" (") + QLatin1String(kind) + ')';
}

void BoxLibrary::relayRoot() {
  connect(m_root, &BoxLibraryNode::dataChanged, this, &BoxLibrary::dataChanged);
}

BoxLibraryNode* BoxLibrary::node(const QList<int>& indexPath) const {
  BoxLibraryNode* current = m_root;
  for (int index : indexPath) {
    current = current->child(index);
    if (!current)
      return nullptr;
  }
  return current;
}

QString BoxLibrary::path() const {
  return m_project->getSourcePath();
}

QString BoxLibrary::title() const {
  const QString stored = m_project->getMetadata(QLatin1String(kTitleKey));
  return stored.isEmpty() ? makeTitleFromPath(path()) : stored;
}

void BoxLibrary::setTitle(const QString& title) {
  if (title == this->title())
    return;
  m_project->setMetadata(QLatin1String(kTitleKey), title);
  emit titleChanged(title);
}

QString BoxLibrary::makeTitleFromPath(const QString& path) {
  QString name = QFileInfo(path).fileName();
  if (endsWithExtension(name, ".lbf") || endsWithExtension(name, ".vbk"))
    name.chop(4);
  return name;
}

void BoxLibrary::save() {
  m_project->save(QString(), zu::project::ArchiveFormat_Current, true);
  emit saved();
}

void BoxLibrary::saveOverwriting(const QStringList& paths) {
  m_project->acceptSourceChanges(paths);
  save();
}

void BoxLibrary::saveTo(const QString& path, LibraryFormat format) {
  setTitle(makeTitleFromPath(path));
  m_project->save(path, libraryFormatToProjectFormat(format), true);
  m_readOnly = false;
  emit saved();
}

zu::project::ArchiveFormat libraryFormatToProjectFormat(BoxLibrary::LibraryFormat format) {
  static const zu::project::ArchiveFormat kFormats[] = {zu::project::ArchiveFormat_Directory,
                                                        zu::project::ArchiveFormat_Zip};
  const auto index = static_cast<unsigned>(format);
  return index < sizeof kFormats / sizeof kFormats[0] ? kFormats[index]
                                                      : zu::project::ArchiveFormat_Auto;
}

}  // namespace KR
