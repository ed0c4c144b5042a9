#include "commands.h"

#include <krboxlibrary/box_library_node.h>
#include <zu/log.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

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
  };
  return table;
}

namespace {

// The library reports a path it cannot open with a warning record, not an exception, and
// leaves an empty library behind. While a library opens, the first such record is kept and
// the default stderr handler is silenced, so that the failure reaches the user as the
// tool's single error line rather than as log output plus an empty tree.
class OpenFailureCapture {
public:
  OpenFailureCapture() : m_defaultWasEnabled(zu::log::isDefaultHandlerEnabled()) {
    zu::log::setDefaultHandlerEnabled(false);
    m_handler = zu::log::addHandler([this](const zu::log::Record& record) {
      if (m_message.empty() && record.level <= zu::log::LogLevel_Warning &&
          record.category == "krboxlibrary")
        m_message = record.message;
    });
  }
  ~OpenFailureCapture() {
    zu::log::removeHandler(m_handler);
    zu::log::setDefaultHandlerEnabled(m_defaultWasEnabled);
  }
  OpenFailureCapture(const OpenFailureCapture&) = delete;
  OpenFailureCapture& operator=(const OpenFailureCapture&) = delete;

  /// The failure's message; empty when the library opened.
  const std::string& message() const { return m_message; }

private:
  std::string m_message;
  bool m_defaultWasEnabled;
  unsigned m_handler = 0;
};

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

std::unique_ptr<KR::BoxLibrary> openLibrary(const std::string& path, bool readOnly) {
  // An empty path would make the library create a new, empty one.
  if (path.empty())
    throw std::runtime_error("no library path given");
  // Absolute, so that "." is titled by the directory's name.
  const QString absolute =
      QDir::cleanPath(QFileInfo(QFile::decodeName(path.c_str())).absoluteFilePath());
  OpenFailureCapture capture;
  auto library = std::make_unique<KR::BoxLibrary>(absolute, readOnly);
  if (!capture.message().empty())
    throw std::runtime_error(capture.message());
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

}  // namespace krbox
