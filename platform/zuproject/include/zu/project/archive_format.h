#ifndef ZU_PROJECT_ARCHIVE_FORMAT_H
#define ZU_PROJECT_ARCHIVE_FORMAT_H

namespace zu {
namespace project {

/// The file form of a project on disk.
enum ArchiveFormat {
  ArchiveFormat_Auto = -2,     ///< Loading: a directory or any archive. Saving: by file name.
  ArchiveFormat_Current = -1,  ///< Saving: the form the project was loaded or last saved in.
  ArchiveFormat_Directory = 0,
  ArchiveFormat_Tar = 1,
  ArchiveFormat_TarGz = 2,
  ArchiveFormat_TarBz2 = 3,
  ArchiveFormat_TarXz = 4,
  ArchiveFormat_Zip = 5
};

}  // namespace project
}  // namespace zu

#endif
