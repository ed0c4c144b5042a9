#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>

#include "text.h"

#include <QStringList>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

namespace KR {

namespace {

// Why a Windows checkout cannot hold fileName; "" when it can.
QString windowsRefusal(const std::string& fileName) {
  for (const char c : fileName) {
    if (static_cast<unsigned char>(c) < 0x20)
      return QStringLiteral("it holds a control character");
    if (std::strchr("<>:\"\\|?*", c))
      return QStringLiteral("it holds \"%1\"").arg(QLatin1Char(c));
  }
  if (!fileName.empty() && (fileName.back() == '.' || fileName.back() == ' '))
    return QStringLiteral("it ends in a full stop or a blank");
  // Device names stay devices whatever extension follows them.
  size_t end = std::min(fileName.find('.'), fileName.size());
  while (end > 0 && fileName[end - 1] == ' ')
    --end;
  if (end != 3 && end != 4)
    return QString();
  std::string base = fileName.substr(0, end);
  std::transform(base.begin(), base.end(), base.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const bool numbered = end == 4 &&
                        (base.compare(0, 3, "COM") == 0 || base.compare(0, 3, "LPT") == 0) &&
                        base[3] >= '1' && base[3] <= '9';
  if (numbered || base == "CON" || base == "PRN" || base == "AUX" || base == "NUL")
    return QStringLiteral("\"%1\" names a device there").arg(text::fromUtf8(base));
  return QString();
}

// The file name as a system that ignores letter case, or Unicode normal form, compares it.
std::string folded(const std::string& fileName) {
  if (!text::isAscii(fileName))
    return text::toUtf8(text::fromUtf8(text::composed(fileName)).toCaseFolded());
  std::string lower = fileName;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

}  // namespace

void BoxLibraryNode::reportProblem(BoxLibraryProblem::Kind kind, const QString& file,
                                   const QString& problem, const QString& child) const {
  BoxLibrary* owner = library();
  if (!owner)
    return;
  QStringList names;
  for (const BoxLibraryNode* node = this; node->m_parent; node = node->m_parent)
    names.prepend(text::fromUtf8(node->m_name));
  if (!child.isNull())
    names.append(child);
  owner->m_problems.append({kind, names.join(QLatin1Char('/')), file, problem});
}

void BoxLibraryNode::checkChildNames() const {
  if (!library())
    return;
  // Keyed by views into the children's own names: nothing is copied for names that are fine.
  std::unordered_map<std::string_view, const BoxLibraryNode*> byName;
  std::unordered_map<std::string, const BoxLibraryNode*> byFolded;
  byName.reserve(static_cast<size_t>(m_children.size()));
  byFolded.reserve(static_cast<size_t>(m_children.size()));
  for (const BoxLibraryNode* child : m_children) {
    const auto sameName = byName.emplace(child->m_name, child);
    const auto sameFolded = byFolded.emplace(folded(child->m_fileName), child);
    const auto report = [this, child](BoxLibraryProblem::Kind kind, const QString& problem) {
      reportProblem(kind, child->path(), problem, text::fromUtf8(child->m_name));
    };
    if (!sameName.second)
      report(BoxLibraryProblem::SameName,
             QStringLiteral("its name unescapes to \"%1\", as does \"%2\" beside it")
                 .arg(text::fromUtf8(child->m_name),
                      text::fromUtf8(sameName.first->second->m_fileName)));
    else if (!sameFolded.second)
      report(BoxLibraryProblem::NonPortableName,
             QStringLiteral("a system that ignores letter case or Unicode normal form "
                            "(Windows, macOS) takes it for \"%1\" beside it")
                 .arg(text::fromUtf8(sameFolded.first->second->m_fileName)));
    const QString refusal = windowsRefusal(child->m_fileName);
    if (!refusal.isEmpty())
      report(BoxLibraryProblem::NonPortableName,
             QStringLiteral("Windows cannot hold this file name: %1").arg(refusal));
  }
}

}  // namespace KR
