#include <krboxlibrary/folder_listing.h>

#include <krserial/xml_document.h>
#include <krserial/xml_element.h>

#include "text.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <exception>
#include <string>

namespace KR {

namespace {

const char kFolderElement[] = "Folder";
const char kNodeElement[] = "Node";
const char kExpandedAttribute[] = "expanded";

}  // namespace

FolderListing::FolderListing(const QStringList& names, bool expanded)
    : m_names(names), m_expanded(expanded) {}

bool FolderListing::read(const QByteArray& text) {
  m_names.clear();
  m_expanded = false;
  std::string parseError;
  const XmlDocument::Ptr document = XmlDocument::loadFromXmlString(
      std::string(text.constData(), static_cast<size_t>(text.size())), &parseError, nullptr);
  if (!document || !document->root()) {
    // A merge left unfinished is the likely reason, and the one a user can act on.
    m_error = hasConflictMarkers(text) ? ConflictMarkers : NotXml;
    m_errorString = m_error == ConflictMarkers
                        ? QStringLiteral("it holds conflict markers left by a merge")
                        : QStringLiteral("it is not XML: ") + text::fromUtf8(parseError);
    return false;
  }
  const XmlElement& root = *document->root();
  if (root.name() != kFolderElement) {
    m_error = NotListing;
    m_errorString = QStringLiteral("its root element is \"%1\", not \"%2\"")
                        .arg(text::fromUtf8(root.name()), QLatin1String(kFolderElement));
    return false;
  }
  m_error = NoError;
  m_errorString.clear();
  m_expanded = root.attribute(kExpandedAttribute, "no") != "no";
  for (const XmlElement::Ptr& node : root.children(kNodeElement)) {
    if (node->hasAttribute(vocabulary::kNameAttribute))
      m_names.append(text::fromUtf8(node->attribute(vocabulary::kNameAttribute, "")));
  }
  return true;
}

QByteArray FolderListing::toXml(QString* error) const {
  auto folder = boost::make_shared<XmlElement>(kFolderElement);
  folder->setAttribute(kExpandedAttribute, m_expanded ? "yes" : "no", true);
  for (const QString& name : m_names) {
    auto node = boost::make_shared<XmlElement>(kNodeElement);
    node->setAttribute(vocabulary::kNameAttribute, text::toUtf8(name), true);
    folder->addChild(node);
  }
  std::string bytes;
  std::string failure;
  try {
    if (XmlDocument(folder).saveToXmlString(bytes, &failure))
      return QByteArray(bytes.data(), static_cast<int>(bytes.size()));
  } catch (const std::exception& e) {
    failure = *e.what() ? e.what() : "unknown failure";
  }
  if (error)
    *error = text::fromUtf8(failure);
  return QByteArray();
}

bool FolderListing::hasConflictMarkers(const QByteArray& text) {
  return text.startsWith("<<<<<<<") || text.contains("\n<<<<<<<");
}

}  // namespace KR
