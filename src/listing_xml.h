#ifndef KRBOXLIBRARY_SRC_LISTING_XML_H
#define KRBOXLIBRARY_SRC_LISTING_XML_H

#include <QByteArray>

#include <string>
#include <vector>

namespace KR {

// The text of a folder listing of names (UTF-8) in order; empty, with error set, when the
// XML writer refuses it. FolderListing::toXml() and the tree's own listings share it, so that
// both write one format without converting every name of a large library twice.
QByteArray listingXml(bool expanded, const std::vector<std::string>& names, std::string& error);

}  // namespace KR

#endif
