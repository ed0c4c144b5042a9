#include "bindings.h"

#include <krboxlibrary/box_data.h>

#include <functional>

namespace krboxpy {

namespace {

// A value read from a live node's box data, or otherwise for a folder. The box data is never
// kept: it is an object child of the node and goes with it, whatever shared pointers remain.
template <class Value, class Read>
Value boxValue(const NodeRef& ref, Value otherwise, Read read) {
  const KR::BoxData* data = ref.get().boxData().get();
  return data ? Value(read(*data)) : otherwise;
}

py::list children(const NodeRef& ref) {
  const QList<KR::BoxLibraryNode*>& list = ref.get().childList();
  py::list result(list.size());
  for (int i = 0; i < list.size(); ++i)
    result[static_cast<std::size_t>(i)] = nodeObject(list.at(i), ref.holder);
  return result;
}

py::object newFolder(const NodeRef& ref, const QString& name, int index, bool expanded) {
  KR::BoxLibraryNode& folder = ref.get();
  KR::BoxLibraryEditor& editor = ref.editor();
  KR::BoxLibraryNode* made = editor.newFolder(&folder, index, name, expanded);
  check(made, editor);
  return nodeObject(made, ref.holder);
}

py::object addBoxFile(const NodeRef& ref, py::object boxFile, py::iterable resources, int index) {
  KR::BoxLibraryNode& folder = ref.get();
  KR::BoxLibraryEditor& editor = ref.editor();
  if (py::isinstance<py::str>(resources) || py::isinstance<py::bytes>(resources))
    throw py::type_error("resources must be a sequence of paths, not a single path");
  QStringList files;
  for (py::handle resource : resources)
    files.append(localPath(resource));
  KR::BoxLibraryNode* made = editor.addBoxFile(&folder, index, localPath(boxFile), files);
  check(made, editor);
  return nodeObject(made, ref.holder);
}

// Makes one edit of the node with the library's editor, raising its refusal.
template <class Change>
void edit(const NodeRef& ref, Change change) {
  KR::BoxLibraryNode& node = ref.get();
  KR::BoxLibraryEditor& editor = ref.editor();
  check(change(editor, &node), editor);
}

py::str repr(const NodeRef& ref) {
  if (!ref.holder->library || !ref.node)
    return py::str("<krboxlibrary.Node (removed)>");
  return py::str("<krboxlibrary.Node {} {}>")
      .format(py::repr(py::cast(ref.node->path())), ref.node->isBox() ? "box" : "folder");
}

const char kNodeDoc[] = R"(A folder or a box of a Library's tree.

A Node is made by the library (Library.root, Node.children, walk(), find() ...) and stays
valid as long as its node is in the library: once it is removed (or the library closed),
touching it raises Error. Two Node objects are equal when they refer to the same node.
Iterating over a Node gives its children; len() counts them.

Edits (new_folder, add_box_file, rename, move, remove, and setting tooltip, bitmaps,
bitmap_expanded or expanded) go through the library's editor: a refused edit raises Error
with its reason and changes nothing. Library.save() writes them.)";

}  // namespace

KR::BoxLibraryNode& NodeRef::get() const {
  holder->get();
  if (!node)
    raise(QStringLiteral("the node was removed from its library"));
  return *node;
}

KR::BoxLibraryEditor& NodeRef::editor() const {
  holder->get();
  return *holder->editor;
}

py::object nodeObject(KR::BoxLibraryNode* node, const Holder& holder) {
  if (!node)
    return py::none();
  return py::cast(NodeRef{node, holder, node});
}

void bindNode(py::module_& module) {
  using Node = KR::BoxLibraryNode;
  py::class_<NodeRef>(module, "Node", kNodeDoc)
      .def_property_readonly(
          "name",
          [](const NodeRef& ref) {
            const std::string& name = ref.get().name();
            return utf8(name.data(), name.size());
          },
          "The display name, unique among the node's siblings.")
      .def_property_readonly(
          "path", [](const NodeRef& ref) { return ref.get().path(); },
          "The file names from below the root down to this node, joined by \"/\" (display "
          "names escape \"/\" and other characters); \"\" for the root.")
      .def_property_readonly(
          "is_box", [](const NodeRef& ref) { return ref.get().isBox(); },
          "Whether the node is a box rather than a folder.")
      .def_property_readonly("children", &children, "The children, in display order.")
      .def_property_readonly(
          "parent", [](const NodeRef& ref) { return nodeObject(ref.get().parent(), ref.holder); },
          "The folder holding this node; None for the root.")
      .def_property_readonly(
          "index", [](const NodeRef& ref) { return ref.get().index(); },
          "The position among the parent's children; 0 for the root.")
      .def_property_readonly(
          "library", [](const NodeRef& ref) { return ref.holder; }, "The Library of the node.")
      .def_property(
          "expanded", [](const NodeRef& ref) { return ref.get().isExpanded(); },
          [](const NodeRef& ref, bool expanded) {
            edit(ref, [=](KR::BoxLibraryEditor& e, Node* n) { return e.setExpanded(n, expanded); });
          },
          "Whether the folder is shown expanded; False for a box. Settable on a folder.")
      .def_property(
          "tooltip",
          [](const NodeRef& ref) {
            return boxValue(ref, py::object(py::none()), [](const KR::BoxData& data) {
              return data.tooltip().isNull() ? py::none() : py::cast(data.tooltip());
            });
          },
          [](const NodeRef& ref, py::object tooltip) {
            const QString text = tooltip.is_none() ? QString() : tooltip.cast<QString>();
            edit(ref, [&](KR::BoxLibraryEditor& e, Node* n) { return e.setTooltip(n, text); });
          },
          "The box's tooltip, which may end with a \"tags:\" line and a line of tags; None for "
          "a folder or a box without one. Settable on a box (None clears it).")
      .def_property_readonly(
          "tags",
          [](const NodeRef& ref) {
            return boxValue(ref, py::list(),
                            [](const KR::BoxData& d) { return stringList(d.tags()); });
          },
          "The box's tags: the \";\"-separated items on the tooltip's line after \"tags:\".")
      .def_property(
          "bitmaps",
          [](const NodeRef& ref) {
            return boxValue(ref, py::list(),
                            [](const KR::BoxData& d) { return stringList(d.bitmaps()); });
          },
          [](const NodeRef& ref, py::iterable bitmaps) {
            const QStringList list = toStringList(bitmaps);
            edit(ref, [&](KR::BoxLibraryEditor& e, Node* n) { return e.setBitmaps(n, list); });
          },
          "The box's bitmaps (image paths), in order; [] for a folder. Settable on a box.")
      .def_property(
          "bitmap_expanded",
          [](const NodeRef& ref) {
            return boxValue(ref, false, [](const KR::BoxData& d) { return d.bitmapExpanded(); });
          },
          [](const NodeRef& ref, bool expanded) {
            edit(ref, [=](KR::BoxLibraryEditor& e, Node* n) {
              return e.setBitmapExpanded(n, expanded);
            });
          },
          "Whether the box is shown with its expanded bitmap; False for a folder. Settable on "
          "a box.")
      .def_property_readonly(
          "behavior",
          [](const NodeRef& ref) {
            return boxValue(ref, false, [](const KR::BoxData& d) { return d.behavior(); });
          },
          "Whether the box is a complete behavior (it can be exported).")
      .def(
          "child",
          [](const NodeRef& ref, const QString& name) {
            return nodeObject(ref.get().child(name.toUtf8().toStdString()), ref.holder);
          },
          py::arg("name"), "The child of that display name, or None.")
      .def("new_folder", &newFolder, py::arg("name"), py::arg("index") = -1,
           py::arg("expanded") = true,
           "Makes a folder named name (numbered when a sibling has the name) in this folder "
           "at index (-1: after the last child) and returns it.")
      .def("add_box_file", &addBoxFile, py::arg("box_file"), py::arg("resources") = py::tuple(),
           py::arg("index") = -1,
           "Makes a box from the box file box_file (a path) in this folder at index, copying "
           "the resources (paths) into its directory, and returns it. The box takes the name "
           "in the file, else that of its directory for box.bxd and behavior.bxd, else the "
           "file's base name.")
      .def(
          "rename",
          [](const NodeRef& ref, const QString& name) {
            edit(ref, [&](KR::BoxLibraryEditor& e, Node* n) { return e.rename(n, name); });
          },
          py::arg("name"),
          "Renames the node to name (numbered when a sibling has it); it keeps its place.")
      .def(
          "move",
          [](const NodeRef& ref, const NodeRef& folder, int index) {
            KR::BoxLibraryNode& target = folder.get();
            edit(ref, [&](KR::BoxLibraryEditor& e, Node* n) { return e.move(n, &target, index); });
          },
          py::arg("folder"), py::arg("index") = -1,
          "Moves the node into folder at index (-1: last), counted once the node has left its "
          "place; it keeps its name unless a sibling there has it.")
      .def(
          "remove",
          [](const NodeRef& ref) {
            edit(ref, [](KR::BoxLibraryEditor& e, Node* n) { return e.remove(n); });
          },
          "Removes the node with everything below it. This Node, and every Node of a node "
          "below it, can no longer be used.")
      .def("__iter__", [](const NodeRef& ref) { return py::iter(children(ref)); })
      .def("__len__", [](const NodeRef& ref) { return ref.get().childCount(); })
      // An empty folder or a box is still a node, not a false value.
      .def("__bool__", [](const NodeRef&) { return true; })
      .def("__repr__", &repr)
      .def(
          "__eq__",
          [](const NodeRef& a, const NodeRef& b) { return a.id == b.id && a.node == b.node; },
          py::is_operator())
      .def("__hash__", [](const NodeRef& ref) { return std::hash<const void*>()(ref.id); });
}

}  // namespace krboxpy
