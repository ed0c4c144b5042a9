#include "bindings.h"

#include <krboxlibrary/box_library_query.h>

#include <QDir>
#include <QFileInfo>

#include <iterator>
#include <vector>

namespace krboxpy {

namespace {

// The BoxLibraryProblem::Kind names, in the enum's order.
const char* const kProblemKinds[] = {
    "ConflictedListing", "UnreadableListing", "MissingListing", "ListedTwice", "MissingDirectory",
    "UnlistedDirectory", "UnreadableBoxFile", "IgnoredBoxFile", "SameName",    "NonPortableName"};

// Owned by the module for the life of the process.
py::handle problemType;

QString decodedPath(py::handle path) {
  return py::module_::import("os").attr("fsdecode")(path).cast<QString>();
}

Holder open(py::object path, bool readOnly) {
  auto holder = std::make_shared<LibraryHolder>();
  QString given, local;
  if (!path.is_none()) {
    given = decodedPath(path);
    local = localPath(path);
    // An empty path would make a new library instead.
    if (local.isEmpty())
      raise(QStringLiteral("no library path given"));
    // Absolute, so that "." is titled by the directory's name.
    local = QDir::cleanPath(QFileInfo(local).absoluteFilePath());
  }
  holder->library = std::make_unique<KR::BoxLibrary>(local, readOnly);
  flushLog();
  const QString error = holder->library->loadError();
  if (!error.isEmpty())
    raise(QStringLiteral("cannot open \"%1\": %2").arg(given, error));
  holder->editor = std::make_unique<KR::BoxLibraryEditor>(holder->library.get());
  return holder;
}

// The nodes below the root, depth first in tree order, that query matches (all without
// one). A stack of its own: an archive may nest folders deeper than the call stack likes.
py::list nodesBelow(const Holder& holder, const KR::BoxLibraryQuery* query) {
  const KR::BoxLibraryNode* root = holder->get().boxRoot();
  std::vector<KR::BoxLibraryNode*> pending(root->childList().crbegin(), root->childList().crend());
  py::list nodes;
  while (!pending.empty()) {
    KR::BoxLibraryNode* node = pending.back();
    pending.pop_back();
    if (!query || query->matches(*node))
      nodes.append(nodeObject(node, holder));
    pending.insert(pending.end(), node->childList().crbegin(), node->childList().crend());
  }
  return nodes;
}

void saveTo(const Holder& holder, py::object path, const std::string& format) {
  KR::BoxLibrary& library = holder->get();
  if (format != "dir" && format != "zip")
    throw py::value_error("format must be \"dir\" or \"zip\", not \"" + format + "\"");
  const QString local = localPath(path);
  library.saveTo(local,
                 format == "zip" ? KR::BoxLibrary::ZipFormat : KR::BoxLibrary::DirectoryFormat);
  flushLog();
}

py::list problems(const Holder& holder) {
  py::list list;
  for (const KR::BoxLibraryProblem& problem : holder->get().problems()) {
    const unsigned kind = problem.kind;
    list.append(problemType(kind < std::size(kProblemKinds) ? kProblemKinds[kind] : "Unknown",
                            problem.path, problem.file, problem.problem));
  }
  return list;
}

py::str repr(const Holder& holder) {
  if (!holder->library)
    return py::str("<krboxlibrary.Library (closed)>");
  if (holder->library->path().isEmpty())
    return py::str("<krboxlibrary.Library (new)>");
  return py::str("<krboxlibrary.Library {}>").format(py::repr(pathObject(holder->library->path())));
}

const char kLibraryDoc[] = R"(A box library, opened from a directory or an archive, or new.

Library(path) opens the library at path (str, bytes or os.PathLike): a directory, or an
archive (zip or a tar form). Library() makes a new, empty one, written by save_to().
read_only=True marks it as opened only to be read: save() then refuses to write it back.
A path that does not exist or is no library raises Error('cannot open "PATH": REASON').

Edits are made through the nodes and held by the library until save() or save_to() writes
them. Used as a context manager, the library is closed on leaving the block.)";

}  // namespace

void bindLibrary(py::module_& module) {
  problemType = py::module_::import("collections")
                    .attr("namedtuple")("Problem", "kind path file problem",
                                        py::arg("module") = "krboxlibrary")
                    .release();
  problemType.attr("__doc__") =
      "Something the library's files hold that reading them reconciled or skipped: kind (a "
      "name such as \"MissingListing\"), path (the node's display names joined by \"/\"), "
      "file (relative to the top of the library) and problem (a sentence).";
  module.attr("Problem") = problemType;

  py::class_<LibraryHolder, Holder>(module, "Library", kLibraryDoc)
      .def(py::init(&open), py::arg("path") = py::none(), py::arg("read_only") = false,
           "Opens the library at path, or makes a new, empty one when path is None.")
      .def_property_readonly(
          "root", [](const Holder& holder) { return nodeObject(holder->get().boxRoot(), holder); },
          "The root folder of the tree (its name and path are empty).")
      .def_property_readonly(
          "path",
          [](const Holder& holder) -> py::object {
            const QString path = holder->get().path();
            return path.isEmpty() ? py::none() : pathObject(path);
          },
          "The absolute path the library was opened from or last saved to; None for a new "
          "library not saved yet.")
      .def_property(
          "title", [](const Holder& holder) { return holder->get().title(); },
          [](const Holder& holder, const QString& title) { holder->get().setTitle(title); },
          "The title: the stored one, else the file name without \".lbf\". Saved with the "
          "library.")
      .def_property_readonly(
          "read_only", [](const Holder& holder) { return holder->get().isReadOnly(); },
          "Whether the library was opened read-only and has not been saved elsewhere since.")
      .def_property_readonly("problems", &problems,
                             "What reading the files reconciled or skipped, as a list of "
                             "Problem, in the order read; [] when they read as stored.")
      .def(
          "save",
          [](const Holder& holder) {
            KR::BoxLibrary& library = holder->get();
            if (library.isReadOnly())
              raise(QStringLiteral("the library was opened read-only"));
            library.save();
            flushLog();
          },
          "Writes the library back to its path; only what changed is written, and a failed "
          "save leaves the files as they were. Raises ConflictError when another writer "
          "changed files it would replace, BusyError when another writer holds the library.")
      .def("save_to", &saveTo, py::arg("path"), py::arg("format") = "dir",
           "Writes the library to path, a directory (format \"dir\") or a zip archive "
           "(\"zip\"), which becomes its path; the title follows the new file name.")
      .def(
          "export_behaviors",
          [](const Holder& holder, py::object destination) {
            KR::BoxLibrary& library = holder->get();
            const QString local = localPath(destination);
            // The library's own refusal cannot name a directory that is not there.
            if (!QFileInfo(local).isDir())
              raise(QStringLiteral("no directory \"%1\"").arg(decodedPath(destination)),
                    notFoundType);
            library.exportBehaviors(local);
            flushLog();
          },
          py::arg("destination"),
          "Writes every behavior box into destination, an existing directory, as a behavior "
          "project at the box's path. Raises NotFoundError when destination does not exist.")
      .def(
          "find",
          [](const Holder& holder, const QString& text) {
            const KR::BoxLibraryQuery query(text);
            return nodesBelow(holder, &query);
          },
          py::arg("query"),
          "The nodes matching query, depth-first in tree order: blank-separated words that "
          "must all be part of the name or tooltip (any letter case or accent); a word "
          "\"tag:WORD\" must be part of a tag.")
      .def(
          "walk", [](const Holder& holder) { return nodesBelow(holder, nullptr); },
          "Every node below the root, depth-first in tree order.")
      .def(
          "close", [](const Holder& holder) { holder->close(); },
          "Releases the library without saving; its nodes can no longer be used.")
      .def(
          "__enter__", [](const Holder& holder) { return holder; }, "Returns the library.")
      .def(
          "__exit__", [](const Holder& holder, py::args) { holder->close(); },
          "Closes the library (without saving).")
      .def("__repr__", &repr);
}

}  // namespace krboxpy
