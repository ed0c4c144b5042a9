#ifndef ZU_PROJECT_DIRECTORY_COMMIT_H
#define ZU_PROJECT_DIRECTORY_COMMIT_H

// Saving a model back into its source directory, writing only what changed. New files
// are staged inside the reserved pending entry and fsynced, then a record of the renames
// and removals to make is fsynced, then they are made; what they remove or replace waits
// in the pending entry until all are made. A save cut short at any moment is finished by
// the next load, and one whose step fails is taken back, so the directory reads as before
// or as after, never a mix. Not installed.

namespace zu {
namespace project {
namespace detail {

class Beneath;
class Changes;
class DirectorySource;

/// Applies changes to source (its own) and empties them. Throws Exception, leaving the
/// directory and the changes as they were, when a step fails.
void commitToDirectory(Changes& changes, DirectorySource& source);

/// Finishes or takes back (or, without a record, clears) a save cut short in this
/// directory; false when neither could be done, and the pending entry stays for a later try.
bool finishPendingSave(Beneath& files);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
