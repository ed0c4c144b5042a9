#ifndef KRBOXLIBRARY_BOX_LIBRARY_PROBLEM_H
#define KRBOXLIBRARY_BOX_LIBRARY_PROBLEM_H

#include <QString>

namespace KR {

/// Something a library's files hold that reading them reconciled or skipped, so that the tree
/// shows it otherwise than it is stored, or that another system could not hold.
struct BoxLibraryProblem {
  /// What kind of problem it is.
  enum Kind {
    ConflictedListing,  ///< a folder listing with a merge's conflict markers: not read
    UnreadableListing,  ///< a folder listing that is not XML or not a listing: not read
    MissingListing,     ///< a folder of several children without a listing: read in name order
    ListedTwice,        ///< a name listed again: the later mention is ignored
    MissingDirectory,   ///< a listed name without its directory: dropped from the tree
    UnlistedDirectory,  ///< a directory the listing does not name: read after the listed ones
    UnreadableBoxFile,  ///< a box file that does not read: its directory reads as a folder
    IgnoredBoxFile,     ///< a "box.bxd" beside a "behavior.bxd": only the latter is read
    SameName,           ///< a directory whose name unescapes to a sibling's display name
    NonPortableName     ///< a file name that Windows cannot hold, or that a system ignoring
                        ///< letter case or Unicode normal form takes for a sibling's
  };

  /// What kind of problem it is.
  Kind kind = ConflictedListing;
  /// The node concerned: its display names from below the top, joined by "/"; "" for the top.
  QString path;
  /// The file or directory concerned, relative to the top of the library.
  QString file;
  /// What is wrong and what the tree made of it, as a sentence without its final full stop.
  QString problem;
};

}  // namespace KR

#endif
