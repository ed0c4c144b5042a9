#ifndef KRBOXLIBRARY_BOX_LIBRARY_QUERY_H
#define KRBOXLIBRARY_BOX_LIBRARY_QUERY_H

#include <krboxlibrary/krboxmodels_export.h>

#include <QString>
#include <QStringList>

namespace KR {

class BoxLibraryNode;

/// A search of a box library's tree, as typed in a search field: blank-separated words, all
/// of which must match. A word matches when it is part of the node's name or (for a box) of
/// its tooltip, which holds its tags; a word written "tag:WORD" matches the box's tags only.
/// Matching ignores letter case and accents ("Eté" finds "ete", "ÉTÉ" and "été").
class KRBOXMODELS_EXPORT BoxLibraryQuery {
public:
  /// The query typed as text; an empty or blank text matches every node.
  explicit BoxLibraryQuery(const QString& text = QString());

  /// The text the query was made from.
  const QString& text() const { return m_text; }
  /// Whether the query has no word, so that every node matches.
  bool isEmpty() const { return m_words.isEmpty() && m_tagWords.isEmpty(); }
  /// Whether node matches every word of the query.
  bool matches(const BoxLibraryNode& node) const;
  /// Whether a node of that name, tooltip and tags matches every word of the query.
  bool matches(const QString& name, const QString& tooltip, const QStringList& tags) const;
  /// The words a node's name or tooltip must each hold, folded.
  const QStringList& words() const { return m_words; }
  /// The words a box's tags must each hold, folded and without "tag:".
  const QStringList& tagWords() const { return m_tagWords; }

  /// text in the form words are compared in: accents stripped (canonical decomposition,
  /// marks dropped) and case folded.
  static QString fold(const QString& text);

private:
  QString m_text;
  QStringList m_words;     // folded
  QStringList m_tagWords;  // folded, without "tag:"
};

}  // namespace KR

#endif
