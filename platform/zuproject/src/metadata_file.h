#ifndef ZU_PROJECT_METADATA_FILE_H
#define ZU_PROJECT_METADATA_FILE_H

// The ".metadata" document as an element tree, shared by Project and BehaviorProject;
// not installed.

#include <zu/project/project.h>

#include <krserial/xml_element.h>

#include <functional>

#include <string>

namespace zu {
namespace project {
namespace detail {

/// The root of a parsed ".metadata" text; a new empty "Metadata" element when the text is
/// not such a document.
KR::XmlElement::Ptr parseMetadataRoot(const std::string& text);
/// The root of the ".metadata" file at path; a new empty one when absent or unreadable.
KR::XmlElement::Ptr readMetadataFile(const std::string& path);
/// Reads the project's ".metadata" document, lets edit change it, and writes it back at
/// once (atomically) when edit returns true; everything edit leaves alone stays.
/// Throws PathNotFound when the project's directory does not exist.
void editMetadataFile(const Project& project,
                      const std::function<bool(const KR::XmlElement::Ptr& root)>& edit);
/// The "Entry" element for key, null when there is none.
KR::XmlElement::Ptr findEntry(const KR::XmlElement::Ptr& root, const std::string& key);
/// The value of key in a ".metadata" document; "" when unset.
QString entryValue(const KR::XmlElement::Ptr& root, const QString& key);
/// Sets key to value, keeping everything else; false when it already had that value.
bool setEntry(const KR::XmlElement::Ptr& root, const QString& key, const QString& value);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
