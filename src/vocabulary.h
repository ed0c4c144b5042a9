#ifndef KRBOXLIBRARY_SRC_VOCABULARY_H
#define KRBOXLIBRARY_SRC_VOCABULARY_H

// File, attribute and metadata names shared by several sources; names used by one source
// only stay in it.
namespace KR {
namespace vocabulary {

inline constexpr char kLogCategory[] = "krboxlibrary";

inline constexpr char kBoxFile[] = "box.bxd";
inline constexpr char kBehaviorFile[] = "behavior.bxd";
inline constexpr char kMetadataFile[] = ".metadata";
inline constexpr char kListingFile[] = "lbfinfo";

inline constexpr char kNameAttribute[] = "name";
inline constexpr char kTooltipAttribute[] = "tooltip";
inline constexpr char kVersionAttribute[] = "bxd_version";
inline constexpr char kSchemaAttribute[] = "xmlns";
inline constexpr char kBitmapExpandedAttribute[] = "bitmap_expanded";
inline constexpr char kBitmapsElement[] = "Bitmaps";
inline constexpr char kBitmapElement[] = "bitmap";

inline constexpr char kTypeKey[] = "Type";
inline constexpr char kVersionKey[] = "Version";

}  // namespace vocabulary
}  // namespace KR

#endif
