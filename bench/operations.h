#ifndef KRBOX_BENCH_OPERATIONS_H
#define KRBOX_BENCH_OPERATIONS_H

#include "library_generator.h"

#include <memory>
#include <string>

namespace KR {
class BoxLibrary;
}

namespace krbench {

// How often each operation runs: the median of `repetitions` runs is reported, and an
// edit run times `editIterations` edits in a row.
struct RunCounts {
  int repetitions = 3;
  int editIterations = 20;
};

// A generated library on disk, in both forms.
struct LibraryUnderTest {
  std::string name;        // "disk-nested-10000": the prefix of its operations' benchmark names
  std::string medium;      // "disk" or "tmpfs": where it and everything written from it are
  bool coldCache = false;  // whether its opening is also timed with the page cache dropped
  LibraryShape shape;
  GeneratedLibrary generated;
  std::string directory;
  std::string zip;
  std::string scratch;  // where operations put what they write
};

// Operation names, each registered as "<library name>/<operation>".
namespace op {
inline const char kOpenZip[] = "open_zip";
inline const char kReadZip[] = "read_zip_entries";
inline const char kOpenZipCold[] = "open_zip_cold";
inline const char kReadZipCold[] = "read_zip_entries_cold";
inline const char kOpenDirectory[] = "open_directory";
inline const char kReadDirectory[] = "read_directory_files";
inline const char kOpenDirectoryCold[] = "open_directory_cold";
inline const char kReadDirectoryCold[] = "read_directory_files_cold";
// Opening with one reading thread beside the caller's, and with the caller's alone.
inline const char kOpenZipOneWorker[] = "open_zip_one_worker";
inline const char kOpenZipCallerOnly[] = "open_zip_caller_only";
inline const char kOpenDirectoryOneWorker[] = "open_directory_one_worker";
inline const char kOpenDirectoryCallerOnly[] = "open_directory_caller_only";
inline const char kClose[] = "close";
inline const char kSaveDirectoryInPlace[] = "save_directory_in_place";
inline const char kSaveZipInPlace[] = "save_zip_in_place";
inline const char kCopyZip[] = "copy_zip";
inline const char kSaveZip[] = "save_zip";
inline const char kWriteZip[] = "write_zip";
inline const char kExportBehaviors[] = "export_behaviors";
inline const char kCopyBehaviors[] = "copy_behaviors";
inline const char kTooltipEdit[] = "tooltip_edit";
inline const char kFolderRename[] = "folder_rename";
inline const char kFolderMove[] = "folder_move";
inline const char kToolTree[] = "krbox_tree";
inline const char kToolSetTooltip[] = "krbox_set_tooltip";
inline const char kToolRename[] = "krbox_rename";
inline const char kToolMove[] = "krbox_mv";
}  // namespace op

// Registers opening, closing, saving and exporting, each beside its baseline when it has one.
// The library opened from the directory for saving and exporting is kept by the returned
// handle, which must outlive the run; saving to zip makes the last zip saved its path.
std::shared_ptr<KR::BoxLibrary> registerFileOperations(const LibraryUnderTest& library,
                                                       const RunCounts& counts);

// Registers krbox's tree and its edits of the directory form, each a whole process as a
// user runs it. opened, the same library read before, names the boxes they edit.
void registerToolCommands(const LibraryUnderTest& library, const KR::BoxLibrary& opened,
                          const std::string& krbox, const RunCounts& counts);

// Registers the three edits on library, opened from directory; a folder of 100 boxes to
// move and rename is added to it first.
void registerEdits(const std::string& name, KR::BoxLibrary& library, const RunCounts& counts);

}  // namespace krbench

#endif
