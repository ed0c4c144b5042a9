#include "library_fixtures.h"

#include <krserial/xml_document.h>

namespace testutil {

Listing parseListing(const QByteArray& xml) {
  Listing listing;
  const KR::XmlDocument::Ptr document =
      KR::XmlDocument::loadFromXmlString(xml.toStdString(), nullptr, nullptr);
  if (!document || !document->root() || document->root()->name() != "Folder")
    return listing;
  listing.present = true;
  listing.expanded = document->root()->attribute("expanded", "<missing>");
  for (const KR::XmlElement::Ptr& node : document->root()->children("Node"))
    listing.names.push_back(node->attribute("name", "<missing>"));
  return listing;
}

Listing readListing(const zu::project::ProjectModel& model, const QString& path) {
  return parseListing(model.readFile(path.isEmpty() ? "lbfinfo" : path + "/lbfinfo"));
}

}  // namespace testutil
