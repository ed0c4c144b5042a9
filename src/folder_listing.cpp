#include <krboxlibrary/box_library_node.h>

#include <krboxlibrary/box_library.h>
#include <krboxlibrary/folder_listing.h>
#include <krserial/xml_element.h>
#include <zu/project/project_model.h>

#include "directory_read.h"
#include "listing_xml.h"
#include "refusal.h"
#include "text.h"
#include "tree_read_ahead.h"
#include "tree_read_progress.h"
#include "vocabulary.h"

#include <exception>
#include <unordered_map>
#include <vector>

namespace KR {

namespace {

using vocabulary::kListingFile;

BoxLibraryProblem::Kind listingProblem(FolderListing::Error error) {
  return error == FolderListing::ConflictMarkers ? BoxLibraryProblem::ConflictedListing
                                                 : BoxLibraryProblem::UnreadableListing;
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
  std::string error;
  const QByteArray bytes = listingXml(expanded, names, error);
  if (bytes.isEmpty())
    return error;
  try {
    model.writeFile(directory + kListingFile, bytes);
  } catch (const std::exception& e) {
    return *e.what() ? e.what() : "unknown failure";
  }
  return std::string();
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
  zu::project::ProjectModel* model = project();
  if (!model)
    return;
  m_name = unEscapeFileName(m_fileName);
  TreeReadAhead readAhead(*model);
  const DirectoryRead read = readAhead.take(directoryPrefix());
  // A directory is a box exactly when it holds an acceptable box file; anything else,
  // including a box file of an old version, reads as a folder.
  if (read.box) {
    initBoxFromProject(*read.box);
    if (read.ignoredBoxFile)
      reportProblem(BoxLibraryProblem::IgnoredBoxFile,
                    directoryPrefix() + QLatin1String(vocabulary::kBoxFile),
                    QStringLiteral("a behavior.bxd is beside it, and only that one is read"));
    return;
  }
  if (!read.unread.isEmpty())
    reportProblem(BoxLibraryProblem::UnreadableBoxFile, read.boxFile,
                  QStringLiteral("the box file does not read (%1), so its directory reads as a "
                                 "folder")
                      .arg(read.unread));
  initFolderFromProject(directoryPrefix(), read);
}

void BoxLibraryNode::initFolderFromProject(const QString& prefix, const DirectoryRead& read) {
  const std::vector<std::string> order = childOrder(prefix, read, m_expanded, true);
  TreeReadAhead readAhead(*project());
  QStringList prefixes;
  prefixes.reserve(static_cast<int>(order.size()));
  for (const std::string& fileName : order)
    prefixes.append(prefix + text::fromUtf8(fileName) + QLatin1Char('/'));
  readAhead.request(prefixes);
  TreeReadProgress progress(order.size());
  for (const std::string& fileName : order) {
    appendChildFromProject(fileName);
    progress.childRead();
  }
  checkChildNames();
  saveFolder();
}

std::vector<std::string> BoxLibraryNode::readChildOrder(const QString& prefix, bool& expanded,
                                                        bool report) {
  ModelFiles files(*project());
  DirectoryRead read;
  readFolderDirectory(files, prefix, read);
  return childOrder(prefix, read, expanded, report);
}

std::vector<std::string> BoxLibraryNode::childOrder(const QString& prefix,
                                                    const DirectoryRead& read, bool& expanded,
                                                    bool report) {
  const QString listingFile = prefix + kListingFile;
  FolderListing listing;
  const bool listed = !read.listing.isNull() && listing.read(read.listing);
  expanded = listed && listing.isExpanded();

  // Only the folder's own subdirectories, byte-wise sorted: files (the listing, stray files)
  // never become children, and deeper directories are their folders' business.
  std::vector<std::string> present;
  std::unordered_map<std::string, size_t> presentIndex;
  // A listing written on one system names directories that another stores in another
  // normal form; an exact match still comes first.
  std::unordered_map<std::string, size_t> composedIndex;
  present.reserve(static_cast<size_t>(read.directories.size()));
  for (const QString& entry : read.directories) {
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

  if (report && !listed && read.listingFile)
    reportProblem(listingProblem(listing.error()), listingFile,
                  QStringLiteral("the listing is not read: %1; the folder reads collapsed, its "
                                 "children in name order")
                      .arg(listing.errorString()));
  else if (report && !listed && present.size() > 1)
    reportProblem(BoxLibraryProblem::MissingListing, listingFile,
                  QStringLiteral("the folder has no listing; it reads collapsed, its children in "
                                 "name order"));

  // Listed order first; names without a directory, and second mentions, are dropped.
  std::vector<std::string> order;
  order.reserve(present.size());
  std::vector<bool> taken(present.size(), false);
  for (const QString& name : listing.names()) {
    const std::string fileName = text::toUtf8(escapedName(name));
    const size_t found = findPresent(fileName);
    if (found == present.size() || taken[found]) {
      if (report)
        reportProblem(found == present.size() ? BoxLibraryProblem::MissingDirectory
                                              : BoxLibraryProblem::ListedTwice,
                      listingFile,
                      found == present.size()
                          ? QStringLiteral("it is listed, but its directory \"%1\" is not there; "
                                           "it is left out")
                                .arg(prefix + text::fromUtf8(fileName))
                          : QStringLiteral("it is listed more than once; the later mentions are "
                                           "ignored"),
                      name);
      continue;
    }
    taken[found] = true;
    order.push_back(present[found]);
  }
  for (size_t i = 0; i < present.size(); ++i) {
    if (taken[i])
      continue;
    order.push_back(present[i]);
    if (report && listed)
      reportProblem(BoxLibraryProblem::UnlistedDirectory, prefix + text::fromUtf8(present[i]),
                    QStringLiteral("the folder's listing does not name it; it reads after the "
                                   "listed children"),
                    text::fromUtf8(unEscapeFileName(present[i])));
  }
  return order;
}

}  // namespace KR
