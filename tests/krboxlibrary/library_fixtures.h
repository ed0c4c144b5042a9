#ifndef KRBOX_LIBRARY_FIXTURES_H
#define KRBOX_LIBRARY_FIXTURES_H

#include <zu/project/project_model.h>

#include <QByteArray>
#include <QString>

#include <string>
#include <vector>

namespace testutil {

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

}  // namespace testutil

#endif
