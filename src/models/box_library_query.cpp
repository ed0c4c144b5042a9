#include <krboxlibrary/box_library_query.h>

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library_node.h>

#include <QRegularExpression>

#include <algorithm>

namespace KR {

namespace {

const QLatin1String kTagPrefix("tag:");

bool isAscii(const QString& text) {
  for (const QChar c : text) {
    if (c.unicode() >= 0x80)
      return false;
  }
  return true;
}

// A character of ASCII text as a UTF-16 code, lower-case.
char16_t lowerAscii(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}
char16_t lowerAscii(char c) {
  return lowerAscii(static_cast<char16_t>(static_cast<unsigned char>(c)));
}

// Whether the ASCII text of size characters holds word, which is folded: a plain scan that
// lowers the text as it goes, several times faster than a case-insensitive QString search.
template <class Char>
bool containsFolded(const Char* text, qsizetype size, const QString& word) {
  const qsizetype length = word.size();
  if (length == 0)
    return true;
  const char16_t* w = reinterpret_cast<const char16_t*>(word.utf16());
  for (qsizetype i = 0; i + length <= size; ++i) {
    if (lowerAscii(text[i]) != w[0])
      continue;
    qsizetype j = 1;
    while (j < length && lowerAscii(text[i + j]) == w[j])
      ++j;
    if (j == length)
      return true;
  }
  return false;
}

// word is folded. ASCII text, the common case, is searched as it is: no copy per node.
bool contains(const QString& text, const QString& word) {
  if (isAscii(text))
    return containsFolded(reinterpret_cast<const char16_t*>(text.utf16()), text.size(), word);
  return BoxLibraryQuery::fold(text).contains(word);
}

bool anyTagContains(const QStringList& tags, const QString& word) {
  for (const QString& tag : tags) {
    if (contains(tag, word))
      return true;
  }
  return false;
}

}  // namespace

BoxLibraryQuery::BoxLibraryQuery(const QString& text) : m_text(text) {
  static const QRegularExpression blanks(QStringLiteral("\\s+"));
  for (const QString& word : text.split(blanks, Qt::SkipEmptyParts)) {
    if (word.startsWith(kTagPrefix, Qt::CaseInsensitive)) {
      if (word.size() > kTagPrefix.size())
        m_tagWords.append(fold(word.mid(kTagPrefix.size())));
    } else {
      m_words.append(fold(word));
    }
  }
}

QString BoxLibraryQuery::fold(const QString& text) {
  if (isAscii(text))
    return text.toCaseFolded();
  QString decomposed = text.normalized(QString::NormalizationForm_D);
  QString result;
  result.reserve(decomposed.size());
  for (const QChar c : decomposed) {
    const QChar::Category category = c.category();
    if (category != QChar::Mark_NonSpacing && category != QChar::Mark_SpacingCombining &&
        category != QChar::Mark_Enclosing)
      result.append(c);
  }
  return result.toCaseFolded();
}

bool BoxLibraryQuery::matches(const QString& name, const QString& tooltip,
                              const QStringList& tags) const {
  for (const QString& word : m_words) {
    if (!contains(name, word) && !contains(tooltip, word))
      return false;
  }
  for (const QString& word : m_tagWords) {
    if (!anyTagContains(tags, word))
      return false;
  }
  return true;
}

bool BoxLibraryQuery::matches(const BoxLibraryNode& node) const {
  if (isEmpty())
    return true;
  const std::string& utf8 = node.name();
  // An ASCII name, the common case, is searched in place: no string made per node.
  if (m_tagWords.isEmpty() &&
      std::all_of(utf8.begin(), utf8.end(), [](char c) { return (c & 0x80) == 0; })) {
    const BoxData* data = node.boxData().get();
    for (const QString& word : m_words) {
      if (!containsFolded(utf8.data(), static_cast<qsizetype>(utf8.size()), word) &&
          !(data && contains(data->tooltip(), word)))
        return false;
    }
    return true;
  }
  const QString name = QString::fromUtf8(utf8.c_str());
  const BoxData* data = node.boxData().get();
  if (!data)
    return m_tagWords.isEmpty() && matches(name, QString(), QStringList());
  // The tags are read from the tooltip only when a "tag:" word asks for them.
  return matches(name, data->tooltip(), m_tagWords.isEmpty() ? QStringList() : data->tags());
}

}  // namespace KR
