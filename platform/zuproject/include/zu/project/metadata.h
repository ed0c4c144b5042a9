#ifndef ZU_PROJECT_METADATA_H
#define ZU_PROJECT_METADATA_H

#include <zu/project/zuproject_export.h>

#include <map>
#include <string>

namespace zu {
namespace project {

/// The ".metadata" document for these entries: UTF-8 XML, root "Metadata",
/// one "Entry" element (attributes "key" and "value") per entry.
ZUPROJECT_EXPORT std::string serializeMetadata(const std::map<std::string, std::string>& entries);

/// The entries of a ".metadata" document; anything else in it is ignored, and text that
/// does not parse gives no entries.
ZUPROJECT_EXPORT std::map<std::string, std::string> parseMetadata(const std::string& text);

}  // namespace project
}  // namespace zu

#endif
