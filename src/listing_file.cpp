#include <krboxlibrary/folder_listing.h>

#include <krserial/xml_document.h>
#include <krserial/xml_element.h>

#include "listing_xml.h"
#include "text.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <exception>
#include <string>
#include <vector>

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

QByteArray listingXml(bool expanded, const std::vector<std::string>& names, std::string& error) {
  auto folder = boost::make_shared<XmlElement>(kFolderElement);
  folder->setAttribute(kExpandedAttribute, expanded ? "yes" : "no", true);
  for (const std::string& name : names) {
    auto node = boost::make_shared<XmlElement>(kNodeElement);
    node->setAttribute(vocabulary::kNameAttribute, name, true);
    folder->addChild(node);
  }
  std::string bytes;
  try {
    if (XmlDocument(folder).saveToXmlString(bytes, &error))
      return QByteArray(bytes.data(), static_cast<int>(bytes.size()));
  } catch (const std::exception& e) {
    error = *e.what() ? e.what() : "unknown failure";
  }
  return QByteArray();
}

QByteArray FolderListing::toXml(QString* error) const {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(m_names.size()));
  for (const QString& name : m_names)
    names.push_back(text::toUtf8(name));
  std::string failure;
  const QByteArray xml = listingXml(m_expanded, names, failure);
  if (xml.isEmpty() && error)
    *error = text::fromUtf8(failure);
  return xml;
}

bool FolderListing::hasConflictMarkers(const QByteArray& text) {
  // An editor on Windows may have put a byte order mark before the first line.
  const char* const mark = "\xEF\xBB\xBF";
  const QByteArray body = text.startsWith(mark) ? text.mid(3) : text;
  return body.startsWith("<<<<<<<") || body.contains("\n<<<<<<<");
}

}  // namespace KR
