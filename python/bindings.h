#ifndef KRBOX_PYTHON_BINDINGS_H
#define KRBOX_PYTHON_BINDINGS_H

// Python's headers name a member "slots", which Qt's headers define away: pybind11 first.
#include <pybind11/pybind11.h>

#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_node.h>

#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>
#include <string>

namespace pybind11 {
namespace detail {

// QString as Python's str, both ways.
template <>
struct type_caster<QString> {
  PYBIND11_TYPE_CASTER(QString, const_name("str"));

  bool load(handle source, bool) {
    if (!source || !PyUnicode_Check(source.ptr()))
      return false;
    // A str holding lone surrogates (a file name decoded with surrogateescape) has no UTF-8
    // form; they become U+FFFD rather than a confusing TypeError.
    object bytes =
        reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "replace"));
    if (!bytes) {
      PyErr_Clear();
      return false;
    }
    value = QString::fromUtf8(PyBytes_AS_STRING(bytes.ptr()),
                              static_cast<int>(PyBytes_GET_SIZE(bytes.ptr())));
    return true;
  }

  static handle cast(const QString& text, return_value_policy, handle) {
    const QByteArray utf8 = text.toUtf8();
    return PyUnicode_DecodeUTF8(utf8.constData(), utf8.size(), "replace");
  }
};

}  // namespace detail
}  // namespace pybind11

namespace krboxpy {

namespace py = pybind11;

// One open library and its one editor, shared by the Python Library and every Node made
// from it, so that the C++ library outlives them all. close() deletes both early: the nodes'
// guarded pointers then read null.
struct LibraryHolder {
  std::unique_ptr<KR::BoxLibrary> library;
  // Declared after the library, so destroyed before it: the editor must not outlive it.
  std::unique_ptr<KR::BoxLibraryEditor> editor;

  ~LibraryHolder() { close(); }
  void close() {
    editor.reset();
    library.reset();
  }
  KR::BoxLibrary& get() const;
};

using Holder = std::shared_ptr<LibraryHolder>;

// What a Python Node holds: never a bare pointer, since the node may be removed or its
// library closed while Python still has the object.
struct NodeRef {
  QPointer<KR::BoxLibraryNode> node;
  Holder holder;
  // Identity for __eq__ and __hash__, kept after the node is gone.
  const void* id;

  KR::BoxLibraryNode& get() const;
  KR::BoxLibraryEditor& editor() const;
};

// UTF-8 text as a str; bytes that are no UTF-8 become U+FFFD.
py::str utf8(const char* text, std::size_t size);
py::object nodeObject(KR::BoxLibraryNode* node, const Holder& holder);

// krboxlibrary.NotFoundError, also a FileNotFoundError.
extern PyObject* notFoundType;

// Raises krboxlibrary.Error (or kind, one of its subclasses) with message.
[[noreturn]] void raise(const QString& message, PyObject* kind = nullptr);
// Raises krboxlibrary.Error with the editor's reason when made is false.
void check(bool made, const KR::BoxLibraryEditor& editor);
// A local path from a str, bytes or os.PathLike, any file-name bytes kept.
QString localPath(py::handle path);
// A local path as Python gives file names: str, undecodable bytes escaped.
py::object pathObject(const QString& path);
py::list stringList(const QList<QString>& strings);
QStringList toStringList(py::iterable strings);
// Hands what the library logged on threads without the interpreter lock to logging.
void flushLog();

void bindNode(py::module_& module);
void bindLibrary(py::module_& module);

}  // namespace krboxpy

#endif
