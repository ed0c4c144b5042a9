#include <krboxlibrary/box_library_node.h>

#include <zu/project/file_system.h>
#include <zu/project/project_model.h>

#include "refusal.h"
#include "text.h"
#include "vocabulary.h"

#include <QFileInfo>

#include <unordered_set>

namespace KR {

namespace {

// What the file systems a library lives on take as one name.
constexpr std::size_t kMaxFileNameBytes = 255;

// The characters a file name must not hold; the backslash is deliberately allowed.
bool needsEscape(QChar c) {
  switch (c.unicode()) {
    case '%':
    case '<':
    case '>':
    case ':':
    case '"':
    case '/':
    case '|':
    case '?':
    case '*': return true;
    default: return false;
  }
}

QString escapeOf(ushort code) {
  return QStringLiteral("%%1").arg(code, 2, 16, QLatin1Char('0'));
}

int hexValue(QChar c) {
  const ushort u = c.unicode();
  if (u >= '0' && u <= '9')
    return u - '0';
  if (u >= 'a' && u <= 'f')
    return u - 'a' + 10;
  if (u >= 'A' && u <= 'F')
    return u - 'A' + 10;
  return -1;
}

}  // namespace

std::string BoxLibraryNode::escapeFileName(const std::string& name) {
  return text::toUtf8(escapedName(text::fromUtf8(name)));
}

QString BoxLibraryNode::escapedName(const QString& in) {
  QString out;
  out.reserve(in.size() + 8);
  // Escapes are appended, never rescanned, so the "%" of an escape stays as it is.
  for (QChar c : in) {
    if (needsEscape(c))
      out += escapeOf(c.unicode());
    else
      out += c;
  }
  if (out.endsWith(QLatin1Char('.'))) {
    out.chop(1);
    out += escapeOf('.');
  }
  if (out.startsWith(QLatin1Char(' ')))
    out.replace(0, 1, escapeOf(' '));
  if (out.endsWith(QLatin1Char(' '))) {
    out.chop(1);
    out += escapeOf(' ');
  }
  return out;
}

std::string BoxLibraryNode::unEscapeFileName(const std::string& fileName) {
  const QString in = text::fromUtf8(fileName);
  QString out;
  out.reserve(in.size());
  // Any escape decodes, also upper-case ones and those escapeFileName never makes; the
  // scan resumes behind the decoded character, so a decoded "%" starts nothing.
  for (int i = 0; i < in.size(); ++i) {
    if (in[i] == QLatin1Char('%') && i + 2 < in.size() && hexValue(in[i + 1]) >= 0 &&
        hexValue(in[i + 2]) >= 0) {
      out += QChar(static_cast<ushort>(hexValue(in[i + 1]) * 16 + hexValue(in[i + 2])));
      i += 2;
    } else {
      out += in[i];
    }
  }
  return text::toUtf8(out);
}

std::string BoxLibraryNode::numberName(const std::string& name, int number) {
  return text::toUtf8(text::fromUtf8(name)) + " (" + std::to_string(number) + ")";
}

std::string BoxLibraryNode::unNumberName(const std::string& name) {
  std::string result = text::toUtf8(text::fromUtf8(name));
  // Only a final " (digits)" group goes, digits optional.
  if (result.empty() || result.back() != ')')
    return result;
  size_t open = result.size() - 1;
  while (open > 0 && result[open - 1] >= '0' && result[open - 1] <= '9')
    --open;
  if (open >= 2 && result[open - 1] == '(' && result[open - 2] == ' ')
    result.erase(open - 2);
  return result;
}

bool BoxLibraryNode::isUsableName(const std::string& name) {
  return nameRefusal(name).empty();
}

std::string BoxLibraryNode::nameRefusal(const std::string& name) {
  // The number goes when the name is taken, so the base is what names the directory.
  const std::string base = unNumberName(name);
  if (base.empty())
    return "it is empty without its number";
  if (text::fromUtf8(base).trimmed().isEmpty())
    return "it is blank";
  const std::string file = escapeFileName(base);
  // Compared in any letter case: a checkout on a system that ignores it would collide.
  const QString folded = text::fromUtf8(file).toLower();
  if (folded == QLatin1String(vocabulary::kListingFile) ||
      folded == QLatin1String(vocabulary::kMetadataFile) || zu::project::isReservedName(file))
    return "that name is kept for the library's own files";
  if (zu::project::isForeignMetadata(file))
    return "that name is kept for version control's own files";
  if (escapeFileName(name).size() > kMaxFileNameBytes)
    return "its file name would be longer than " + std::to_string(kMaxFileNameBytes) + " bytes";
  return std::string();
}

std::string BoxLibraryNode::freeName(const std::string& wanted, bool exact,
                                     const BoxLibraryNode* self) const {
  std::unordered_set<std::string> siblings;
  siblings.reserve(static_cast<size_t>(m_children.size()));
  for (const BoxLibraryNode* child : m_children) {
    if (child != self)
      siblings.insert(child->m_name);
  }
  const std::string whole = text::toUtf8(text::fromUtf8(wanted));
  if (exact && !siblings.count(whole))
    return whole;
  // A copy of "Box (3)" is numbered from "Box" again.
  const std::string base = unNumberName(wanted);
  std::string candidate = base;
  for (int counter = 2; siblings.count(candidate); ++counter)
    candidate = numberName(base, counter);
  return candidate;
}

void BoxLibraryNode::initName(const std::string& name) {
  m_name = m_parent ? m_parent->freeName(name, false, this) : unNumberName(name);
  m_fileName = escapeFileName(m_name);
}

void BoxLibraryNode::setName(const std::string& name) {
  // An empty name would make the node's directory its parent's.
  if (!isUsableName(name)) {
    refusal::warn("setName", "Refused the name \"" + name + "\": " + nameRefusal(name));
    return;
  }
  if (!m_parent) {
    m_name = name;
    return;
  }
  if (name == m_name)
    return;
  const std::string newName = m_parent->freeName(name, false, this);
  const std::string newFileName = escapeFileName(newName);
  if (newFileName != m_fileName) {
    if (zu::project::ProjectModel* model = project()) {
      const QString target = text::asDirectory(m_parent->path()) + text::fromUtf8(newFileName);
      // Directly under the root the source reads "./old": the model normalises it.
      const QString source =
          QFileInfo(target).path() + QLatin1Char('/') + text::fromUtf8(m_fileName);
      // A move the model refuses throws before the node changes.
      model->move(source, target, false);
    }
  }
  m_name = newName;
  m_fileName = newFileName;
  // The listing names children by name: unwritten, the node would move to the end.
  m_parent->saveFolder();
  emit dataChanged(this);
}

QString BoxLibraryNode::path() const {
  if (!m_parent)
    return QString();
  return text::asDirectory(m_parent->path()) + text::fromUtf8(m_fileName);
}

QString BoxLibraryNode::directoryPrefix() const {
  return text::asDirectory(path());
}

}  // namespace KR
