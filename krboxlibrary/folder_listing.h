#ifndef KRBOXLIBRARY_FOLDER_LISTING_H
#define KRBOXLIBRARY_FOLDER_LISTING_H

#include <krboxlibrary/krboxlibrary_export.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace KR {

/// The contents of a folder listing ("lbfinfo"): the display names of a folder's children in
/// their order, and whether the folder is shown expanded. Reads and writes the file's text,
/// and merges two versions of one listing made from a common one, as a version control
/// system's merge needs.
class KRBOXLIBRARY_EXPORT FolderListing {
public:
  /// Why read() refused its input.
  enum Error {
    NoError = 0,      ///< the input was a listing
    ConflictMarkers,  ///< the text holds a merge's conflict markers ("<<<<<<<" lines)
    NotXml,           ///< the text is not well-formed XML
    NotListing        ///< the XML's root element is not "Folder"
  };

  /// An empty, collapsed listing.
  FolderListing() = default;
  /// A listing of names, in order, expanded or not.
  FolderListing(const QStringList& names, bool expanded);

  /// Reads the text of a listing file. False, with error() and errorString() set and this
  /// listing left empty and collapsed, when the text is no listing.
  bool read(const QByteArray& text);
  /// Why the last read() failed; NoError after one that succeeded.
  Error error() const { return m_error; }
  /// The reason of the last failed read(), as a clause ("it is not XML: ..."); "" after one
  /// that succeeded.
  QString errorString() const { return m_errorString; }

  /// The names in the order listed, with any repeats; entries without a name are left out.
  QStringList names() const { return m_names; }
  /// Whether the folder is shown expanded: read as expanded unless the attribute is "no".
  bool isExpanded() const { return m_expanded; }

  /// The text of the listing file, as the library writes it. Empty, with error set when
  /// given, when the XML writer refuses it (a name holding a control character, say).
  QByteArray toXml(QString* error = nullptr) const;

  /// Whether text holds a line that opens a merge conflict ("<<<<<<<" at a line's start).
  static bool hasConflictMarkers(const QByteArray& text);

  /// The three-way merge of two listings, ours and theirs, made from base. A name added on
  /// either side is kept, placed after the neighbour that side gives it; a name removed on
  /// either side is removed, so a rename is the old name's removal and the new one's
  /// addition; a side's reorder is kept beside the other side's additions and removals.
  /// Where both sides moved one name, ours' place wins. The expanded state is ours when
  /// ours changed it, else theirs. Repeated names count once, at their first place.
  static FolderListing merge(const FolderListing& base, const FolderListing& ours,
                             const FolderListing& theirs);

private:
  QStringList m_names;
  bool m_expanded = false;
  Error m_error = NoError;
  QString m_errorString;
};

}  // namespace KR

#endif
