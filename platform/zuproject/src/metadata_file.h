#ifndef ZU_PROJECT_METADATA_FILE_H
#define ZU_PROJECT_METADATA_FILE_H

// The ".metadata" document as an element tree, shared by Project and BehaviorProject;
// not installed.

#include <krserial/xml_element.h>

#include <string>

namespace zu {
namespace project {
namespace detail {

/// The root of a parsed ".metadata" text; a new empty "Metadata" element when the text is
/// not such a document.
KR::XmlElement::Ptr parseMetadataRoot(const std::string& text);
/// The root of the ".metadata" file at path; a new empty one when absent or unreadable.
KR::XmlElement::Ptr readMetadataFile(const std::string& path);
/// Writes the document atomically to the ".metadata" file at path.
void writeMetadataFile(const std::string& path, const KR::XmlElement::Ptr& root);
/// The "Entry" element for key, null when there is none.
KR::XmlElement::Ptr findEntry(const KR::XmlElement::Ptr& root, const std::string& key);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
