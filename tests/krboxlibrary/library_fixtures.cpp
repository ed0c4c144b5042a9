#include "library_fixtures.h"

#include <krboxlibrary/box_constants.h>
#include <krserial/xml_document.h>

#include <QDir>

#include "archive_builder.h"
#include "test_files.h"

namespace testutil {

void writeFixture(const QString& root, const Fixture& fixture) {
  for (const auto& entry : fixture) {
    const QString path = root + "/" + QString::fromStdString(entry.first);
    if (path.endsWith('/'))
      QDir().mkpath(path);
    else
      writeDiskFile(path, QByteArray::fromStdString(entry.second));
  }
}

void writeZipFixture(const QString& path, const Fixture& fixture) {
  std::vector<ArchiveEntry> entries;
  for (const auto& entry : fixture) {
    const std::string& name = entry.first;
    entries.push_back(name.back() == '/' ? dirEntry(name.substr(0, name.size() - 1))
                                         : fileEntry(name, entry.second));
  }
  writeArchive(path, entries, ArchiveKind::Zip);
}

const char kBehaviorInterface[] =
    R"(<Input name="onLoad" type="1" type_size="1" nature="0"/>)"
    R"(<Input name="onStart" type="1" type_size="1" nature="2"/>)"
    R"(<Input name="onStop" type="1" type_size="1" nature="3"/>)"
    R"(<Output name="onStopped" type="1" type_size="1" nature="1"/><Timeline/>)";

std::string boxFile(const std::string& box, const std::string& version) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VantorelBox bxd_version=\"" + version +
         "\">" + box + "</VantorelBox>\n";
}

std::string projectFile(const std::string& box) {
  return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VantorelProject xmlns=\"") +
         KR::BoxConstants::a_projectXsd + "\" bxd_version=\"3\">" + box + "</VantorelProject>\n";
}

KR::XmlElement::Ptr parseElement(const std::string& xml) {
  const KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(xml, nullptr, nullptr);
  return document ? document->root() : KR::XmlElement::Ptr();
}

std::string rootTag(const QByteArray& xml) {
  const KR::XmlElement::Ptr root = parseElement(xml.toStdString());
  if (!root)
    return "<unreadable>";
  std::string text = root->name();
  for (const auto& attribute : root->attributes())
    text += " " + attribute.first + "=" + attribute.second;
  return text;
}

Listing parseListing(const QByteArray& xml) {
  Listing listing;
  const KR::XmlElement::Ptr root = parseElement(xml.toStdString());
  if (!root || root->name() != "Folder")
    return listing;
  listing.present = true;
  listing.expanded = root->attribute("expanded", "<missing>");
  for (const KR::XmlElement::Ptr& node : root->children("Node"))
    listing.names.push_back(node->attribute("name", "<missing>"));
  return listing;
}

std::string treeText(const KR::BoxLibraryNode& node) {
  std::string text = node.name() + (node.isExpanded() ? "+" : "");
  if (node.isBox())
    text += ": " + node.boxData()->tooltip().toStdString();
  if (node.childCount() == 0)
    return text;
  text += " [";
  for (const KR::BoxLibraryNode* child : node.childList())
    text += treeText(*child) + (child == node.childList().back() ? "]" : ", ");
  return text;
}

Listing readListing(const zu::project::ProjectModel& model, const QString& path) {
  return parseListing(model.readFile(path.isEmpty() ? "lbfinfo" : path + "/lbfinfo"));
}

}  // namespace testutil
