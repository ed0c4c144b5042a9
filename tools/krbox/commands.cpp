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
      {"tree", "PATH", "print the folder tree of the library at PATH (a directory or an archive)",
       1, 1, runTree},
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

// Boxes will get their own mark; folders show whether they are unfolded.
const char* marker(const KR::BoxLibraryNode& node) {
  return node.isExpanded() ? "[-] " : "[+] ";
}

// Depth first with a stack of its own: an archive may nest folders deeper than the call
// stack would like.
void printChildren(const KR::BoxLibraryNode& root, std::ostream& out) {
  struct Pending {
    const KR::BoxLibraryNode* node;
    std::size_t depth;
  };
  std::vector<Pending> pending;
  const auto pushChildren = [&pending](const KR::BoxLibraryNode& parent, std::size_t depth) {
    const QList<KR::BoxLibraryNode*>& children = parent.childList();
    for (auto it = children.crbegin(); it != children.crend(); ++it)
      pending.push_back({*it, depth});
  };
  pushChildren(root, 1);
  while (!pending.empty()) {
    const Pending current = pending.back();
    pending.pop_back();
    out << std::string(2 * current.depth, ' ') << marker(*current.node) << current.node->name()
        << '\n';
    pushChildren(*current.node, current.depth + 1);
  }
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

int runTree(const Arguments& arguments, std::ostream& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  out << library->title().toUtf8().constData() << '\n';
  printChildren(*library->boxRoot(), out);
  return 0;
}

}  // namespace krbox
