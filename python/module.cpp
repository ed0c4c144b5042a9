#include "bindings.h"

#include <zu/log.h>
#include <zu/project/exceptions.h>

#include <QFile>

#include <cstring>
#include <exception>
#include <mutex>
#include <vector>

namespace krboxpy {

PyObject* notFoundType = nullptr;

namespace {

// The exception types, owned by the module for the life of the process.
PyObject* errorType = nullptr;
PyObject* conflictType = nullptr;
PyObject* busyType = nullptr;

PyObject* newErrorType(py::module_& module, const char* name, PyObject* bases, const char* doc) {
  const std::string qualified = std::string("krboxlibrary.") + name;
  PyObject* type = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, bases, nullptr);
  if (!type)
    throw py::error_already_set();
  module.add_object(name, type);
  return type;
}

void setError(PyObject* type, const char* what) {
  PyErr_SetObject(type, utf8(what, std::strlen(what)).ptr());
}

void translate(std::exception_ptr failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const zu::project::Conflict& e) {
    setError(conflictType, e.what());
  } catch (const zu::project::Busy& e) {
    setError(busyType, e.what());
  } catch (const zu::project::PathNotFound& e) {
    setError(notFoundType, e.what());
  } catch (const zu::project::Exception& e) {
    setError(errorType, e.what());
  } catch (const py::builtin_exception&) {
    // pybind11's own (a value_error, say) keep their Python type.
    throw;
  } catch (const std::runtime_error& e) {
    // The library's other refusals are runtime errors with its own messages.
    setError(errorType, e.what());
  }
}

// The library logs through zu::log, also on the threads that read a library ahead of the
// one building its tree. Those hold no interpreter lock, and taking it there would deadlock
// with the caller waiting for them while holding it: their records wait here for the
// caller's thread.
std::mutex pendingMutex;
std::vector<zu::log::Record> pending;
unsigned handlerId = 0;

void toLogging(const zu::log::Record& record) {
  static const int kLevels[] = {0, 50, 40, 30, 20, 15, 10};
  const int level =
      record.level >= 0 && record.level <= zu::log::LogLevel_Debug ? kLevels[record.level] : 10;
  if (level == 0)
    return;
  // An exception being raised when the library logs stays the one raised.
  py::error_scope raised;
  try {
    const std::string name = record.category.empty() || record.category == "krboxlibrary"
                                 ? std::string("krboxlibrary")
                                 : "krboxlibrary." + record.category;
    py::module_::import("logging").attr("getLogger")(name).attr("log")(
        level, utf8(record.message.data(), record.message.size()));
  } catch (const std::exception&) {
    // A logging handler that fails must not turn a library call into a failure, and a zu::log
    // handler must not throw.
  }
}

void onRecord(const zu::log::Record& record) {
  if (!Py_IsInitialized())
    return;
  if (!PyGILState_Check()) {
    const std::lock_guard<std::mutex> lock(pendingMutex);
    pending.push_back(record);
    return;
  }
  flushLog();
  toLogging(record);
}

const char kModuleDoc[] = R"(Box libraries of a robot behavior-authoring tool.

A box library is a tree of folders and boxes stored as a directory tree or a zip archive.
Library opens one (or makes a new one), its root and every Node below it show the tree,
and the edits of a Node change it the way every other front end does; save() writes them.

    import krboxlibrary

    with krboxlibrary.Library("Robot Basics") as library:
        for box in library.find("tag:posture"):
            print(box.path, box.tags)
        gestures = library.root.new_folder("Gestures")
        library.root.child("Motions").child("Postures").child("Crouch").move(gestures)
        library.save()

A failure raises Error (or a subclass) with the library's own message. What the library
logs goes to the logger "krboxlibrary" of the logging module.)";

}  // namespace

py::str utf8(const char* text, std::size_t size) {
  PyObject* string = PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(size), "replace");
  if (!string)
    throw py::error_already_set();
  return py::reinterpret_steal<py::str>(string);
}

KR::BoxLibrary& LibraryHolder::get() const {
  if (!library)
    raise(QStringLiteral("the library is closed"));
  return *library;
}

void raise(const QString& message, PyObject* kind) {
  PyErr_SetObject(kind ? kind : errorType, py::cast(message).ptr());
  throw py::error_already_set();
}

void check(bool made, const KR::BoxLibraryEditor& editor) {
  if (!made)
    raise(editor.errorString());
}

QString localPath(py::handle path) {
  const py::bytes encoded = py::module_::import("os").attr("fsencode")(path);
  char* data = nullptr;
  Py_ssize_t size = 0;
  PyBytes_AsStringAndSize(encoded.ptr(), &data, &size);
  const QByteArray bytes(data, static_cast<int>(size));
  if (bytes.contains('\0'))
    throw py::value_error("embedded null byte");
  return QFile::decodeName(bytes);
}

py::object pathObject(const QString& path) {
  const QByteArray bytes = QFile::encodeName(path);
  return py::module_::import("os").attr("fsdecode")(
      py::bytes(bytes.constData(), static_cast<std::size_t>(bytes.size())));
}

py::list stringList(const QList<QString>& strings) {
  py::list list(strings.size());
  for (int i = 0; i < strings.size(); ++i)
    list[static_cast<std::size_t>(i)] = py::cast(strings.at(i));
  return list;
}

QStringList toStringList(py::iterable strings) {
  if (py::isinstance<py::str>(strings) || py::isinstance<py::bytes>(strings))
    throw py::type_error("expected a sequence of strings, not a single string");
  QStringList list;
  for (py::handle string : strings)
    list.append(string.cast<QString>());
  return list;
}

void flushLog() {
  std::vector<zu::log::Record> records;
  {
    const std::lock_guard<std::mutex> lock(pendingMutex);
    records.swap(pending);
  }
  for (const zu::log::Record& record : records)
    toLogging(record);
}

}  // namespace krboxpy

PYBIND11_MODULE(krboxlibrary, module) {
  using namespace krboxpy;
  module.doc() = kModuleDoc;

  errorType = newErrorType(module, "Error", PyExc_Exception,
                           "A failure of the box library: an edit it refused, a library it "
                           "cannot open or save. str() is the library's message.");
  conflictType = newErrorType(module, "ConflictError", errorType,
                              "A save refused because another writer changed, since this "
                              "library read them, files it would replace.");
  busyType = newErrorType(module, "BusyError", errorType,
                          "A save refused because another writer still held the library's "
                          "lock when the wait for it ended.");
  const py::tuple notFoundBases =
      py::make_tuple(py::handle(errorType), py::handle(PyExc_FileNotFoundError));
  notFoundType = newErrorType(module, "NotFoundError", notFoundBases.ptr(),
                              "A path that does not exist, or that would leave the library.");
  py::register_exception_translator(translate);

  bindNode(module);
  bindLibrary(module);

  // Every failure reaches Python as an exception; the rest goes to logging, not to stderr.
  zu::log::setDefaultHandlerEnabled(false);
  handlerId = zu::log::addHandler(onRecord);
  py::module_::import("atexit").attr("register")(
      py::cpp_function([] { zu::log::removeHandler(handlerId); }));
}
