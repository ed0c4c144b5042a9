#ifndef KRBOX_LIBRARY_FIXTURES_H
#define KRBOX_LIBRARY_FIXTURES_H

// Included first by every library test: the headers, fixtures and file helpers they share.

#include <gtest/gtest.h>
#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krserial/xml_document.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive_builder.h"
#include "test_files.h"

namespace testutil {

/// Files of a library on disk as (relative path, content); a path ending in "/" is a
/// directory.
using Fixture = std::vector<std::pair<std::string, std::string>>;

/// Writes fixture below the directory root.
void writeFixture(const QString& root, const Fixture& fixture);
/// Writes fixture as a zip archive at path.
void writeZipFixture(const QString& path, const Fixture& fixture);

/// The children of a box element that make it a behavior: the standard inputs and output
/// and a timeline.
extern const char kBehaviorInterface[];

/// A box file in box form around the box element box.
std::string boxFile(const std::string& box, const std::string& version = "3");
/// A box file in project form around the box element box.
std::string projectFile(const std::string& box);

/// The root element of xml; null when it does not parse.
KR::XmlElement::Ptr parseElement(const std::string& xml);
/// The root element of a document as "name attribute=value ...", or "<unreadable>".
std::string rootTag(const QByteArray& xml);

/// A folder listing as read back from a project: null when absent or not a "Folder".
struct Listing {
  bool present = false;
  std::string expanded;            ///< The raw "expanded" attribute.
  std::vector<std::string> names;  ///< The "name" of every "Node", in order.
};

/// Parses the bytes of a listing file.
Listing parseListing(const QByteArray& xml);
/// Reads the "lbfinfo" of the folder at path ("" for the top) in model.
Listing readListing(const zu::project::ProjectModel& model, const QString& path);

/// The tree below node on one line: each name, "+" when expanded, ": tooltip" for a box,
/// and its children in brackets.
std::string treeText(const KR::BoxLibraryNode& node);

}  // namespace testutil

#endif
