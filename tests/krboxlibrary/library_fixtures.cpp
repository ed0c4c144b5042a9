#include "library_fixtures.h"

#include <krserial/xml_document.h>

namespace testutil {

Listing readListing(const zu::project::ProjectModel& model, const QString& path) {
  Listing listing;
  const QByteArray bytes = model.readFile(path.isEmpty() ? "lbfinfo" : path + "/lbfinfo");
  const KR::XmlDocument::Ptr document =
      KR::XmlDocument::loadFromXmlString(bytes.toStdString(), nullptr, nullptr);
  if (!document || !document->root() || document->root()->name() != "Folder")
    return listing;
  listing.present = true;
  listing.expanded = document->root()->attribute("expanded", "<missing>");
  for (const KR::XmlElement::Ptr& node : document->root()->children("Node"))
    listing.names.push_back(node->attribute("name", "<missing>"));
  return listing;
}

}  // namespace testutil
