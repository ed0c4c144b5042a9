#include <krboxlibrary/box_library_node.h>

#include <krserial/xml_document.h>
#include <zu/project/project_model.h>

#include "refusal.h"
#include "text.h"
#include "tree_read_progress.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <cstdio>
#include <unordered_map>
#include <vector>

namespace KR {

namespace {

using vocabulary::kListingFile;
using vocabulary::kNameAttribute;

const char kFolderElement[] = "Folder";
const char kNodeElement[] = "Node";
const char kExpandedAttribute[] = "expanded";

// A missing, unreadable or foreign listing all read as no listing.
XmlElement::Ptr readListing(zu::project::ProjectModel* model, const QString& path) {
  FILE* file = model->fopen(path, "rb");
  if (!file)
    return XmlElement::Ptr();
  const XmlDocument::Ptr document = XmlDocument::loadFromXmlFile(file, nullptr, nullptr);
  std::fclose(file);
  if (!document || !document->root() || document->root()->name() != kFolderElement)
    return XmlElement::Ptr();
  return document->root();
}

}  // namespace

std::vector<std::string> BoxLibraryNode::childNames() const {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(m_children.size()));
  for (const BoxLibraryNode* child : m_children)
    names.push_back(child->m_name);
  return names;
}

std::string BoxLibraryNode::writeListing(zu::project::ProjectModel& model, const QString& directory,
                                         bool expanded, const std::vector<std::string>& names) {
  auto folder = boost::make_shared<XmlElement>(kFolderElement);
  folder->setAttribute(kExpandedAttribute, expanded ? "yes" : "no", true);
  for (const std::string& name : names) {
    auto node = boost::make_shared<XmlElement>(kNodeElement);
    node->setAttribute(kNameAttribute, name, true);
    folder->addChild(node);
  }
  const XmlDocument document(folder);
  std::string bytes;
  std::string error;
  try {
    if (document.saveToXmlString(bytes, &error))
      model.writeFile(directory + kListingFile,
                      QByteArray(bytes.data(), static_cast<int>(bytes.size())));
  } catch (const std::exception& e) {
    error = *e.what() ? e.what() : "unknown failure";
  }
  return error;
}

void BoxLibraryNode::saveFolder() {
  zu::project::ProjectModel* model = project();
  if (!model)
    return;
  // A listing that cannot be written is logged and the old one kept: the tree in memory
  // stays authoritative.
  const std::string error = writeListing(*model, directoryPrefix(), m_expanded, childNames());
  if (!error.empty())
    refusal::writeFailed("saveFolder", text::toLatin1(directoryPrefix() + kListingFile), error);
}

void BoxLibraryNode::init(const std::string& name, bool expanded) {
  if (!isUsableName(name)) {
    refusal::warn("init", "Refused the name \"" + name + "\": " + nameRefusal(name));
    return;
  }
  initName(name);
  if (zu::project::ProjectModel* model = project())
    model->mkdir(path(), false);
  m_expanded = expanded;
  saveFolder();
}

BoxLibraryNode* BoxLibraryNode::appendChildFromProject(const std::string& fileName) {
  if (fileName.empty())
    return nullptr;
  auto* node = new BoxLibraryNode();
  m_children.append(node);
  node->m_parent = this;
  node->m_fileName = fileName;
  node->initFromProject();
  relay(node);
  return node;
}

void BoxLibraryNode::initFromProject() {
  if (!project())
    return;
  // A directory is a box exactly when it holds an acceptable box file; anything else,
  // including a box file of an old version, reads as a folder.
  if (const XmlElement::Ptr box = loadBox())
    initBoxFromProject(box);
  else
    initFolderFromProject(directoryPrefix());
}

void BoxLibraryNode::initFolderFromProject(const QString& prefix) {
  zu::project::ProjectModel* model = project();
  const XmlElement::Ptr listing = readListing(model, prefix + kListingFile);
  m_name = unEscapeFileName(m_fileName);
  m_expanded = listing && listing->attribute(kExpandedAttribute, "no") != "no";

  // Only the folder's own subdirectories, byte-wise sorted: files (the listing, stray files)
  // never become children, and deeper directories are their folders' business.
  std::vector<std::string> present;
  std::unordered_map<std::string, size_t> presentIndex;
  // A listing written on one system names directories that another stores in another
  // normal form; an exact match still comes first.
  std::unordered_map<std::string, size_t> composedIndex;
  const QStringList entries = model->getFileList(prefix, true, false, false);
  present.reserve(static_cast<size_t>(entries.size()));
  for (const QString& entry : entries) {
    present.push_back(text::toUtf8(entry));
    presentIndex.emplace(present.back(), present.size() - 1);
    if (!text::isAscii(present.back()))
      composedIndex.emplace(text::composed(present.back()), present.size() - 1);
  }
  const auto findPresent = [&](const std::string& fileName) {
    const auto exact = presentIndex.find(fileName);
    if (exact != presentIndex.end())
      return exact->second;
    const std::string composed = text::composed(fileName);
    for (const auto* index : {&presentIndex, &composedIndex}) {
      const auto found = index->find(composed);
      if (found != index->end())
        return found->second;
    }
    return present.size();
  };

  // Listed order first; names without a directory, and second mentions, are dropped.
  TreeReadProgress progress(present.size());
  std::vector<bool> taken(present.size(), false);
  if (listing) {
    for (const XmlElement::Ptr& listed : listing->children(kNodeElement)) {
      if (!listed->hasAttribute(kNameAttribute))
        continue;
      const size_t found = findPresent(escapeFileName(listed->attribute(kNameAttribute, "")));
      if (found == present.size() || taken[found])
        continue;
      taken[found] = true;
      appendChildFromProject(present[found]);
      progress.childRead();
    }
  }
  for (size_t i = 0; i < present.size(); ++i) {
    if (!taken[i]) {
      appendChildFromProject(present[i]);
      progress.childRead();
    }
  }
  saveFolder();
}

}  // namespace KR
