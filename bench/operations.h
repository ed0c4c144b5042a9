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
  std::string name;  // "nested-10000": the prefix of its operations' benchmark names
  LibraryShape shape;
  GeneratedLibrary generated;
  std::string directory;
  std::string zip;
  std::string scratch;  // where operations put what they write
};

// Operation names, each registered as "<library name>/<operation>".
namespace op {
inline const char kOpenZip[] = "open_zip";
inline const char kExtractZip[] = "extract_zip";
inline const char kOpenDirectory[] = "open_directory";
inline const char kCopyDirectory[] = "copy_directory";
inline const char kSaveZip[] = "save_zip";
inline const char kWriteZip[] = "write_zip";
inline const char kExportBehaviors[] = "export_behaviors";
inline const char kCopyBehaviors[] = "copy_behaviors";
inline const char kTooltipEdit[] = "tooltip_edit";
inline const char kFolderRename[] = "folder_rename";
inline const char kFolderMove[] = "folder_move";
}  // namespace op

// Registers opening, saving and exporting, each beside its baseline. The library opened for
// saving and exporting is kept by the returned handle, which must outlive the run.
std::shared_ptr<KR::BoxLibrary> registerFileOperations(const LibraryUnderTest& library,
                                                       const RunCounts& counts);

// Registers the three edits on library, opened from directory; a folder of 100 boxes to
// move and rename is added to it first.
void registerEdits(const std::string& name, KR::BoxLibrary& library, const RunCounts& counts);

}  // namespace krbench

#endif
