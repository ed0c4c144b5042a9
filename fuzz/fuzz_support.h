#ifndef KRBOX_FUZZ_SUPPORT_H
#define KRBOX_FUZZ_SUPPORT_H

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/log.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Shared by the harnesses: each one defines LLVMFuzzerTestOneInput, and runs either under
// libFuzzer or under the plain corpus replayer that every build runs as a test.
namespace fuzz {

// A crash that ASan would not see: a broken round trip or invariant.
#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (0)

// Once per process: an application object as in a host, a quiet log (every bad input
// logs a warning), and one scratch directory that the harnesses reuse run after run.
inline const QString& scratch() {
  static int argc = 1;
  static char name[] = "fuzz";
  static char* argv[] = {name, nullptr};
  static QCoreApplication* app =
      QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
  static QTemporaryDir dir;
  static const QString path = [] {
    zu::log::setDefaultHandlerEnabled(false);
    return dir.path();
  }();
  (void)app;
  return path;
}

inline QByteArray bytes(const uint8_t* data, size_t size) {
  return QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size));
}

inline void writeFile(const QString& path, const QByteArray& content) {
  QDir().mkpath(path.section('/', 0, -2));
  QFile file(path);
  FUZZ_CHECK(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
}

// Empties a directory of the scratch space for the next run.
inline QString freshDir(const QString& name) {
  const QString path = scratch() + "/" + name;
  QDir(path).removeRecursively();
  QDir().mkpath(path);
  return path;
}

// The tree as one line per node, its path first, and every value a host would read on the
// way.
inline void walk(const KR::BoxLibraryNode* node, const std::string& prefix, std::string& out) {
  for (const KR::BoxLibraryNode* child : node->childList()) {
    FUZZ_CHECK(child->parent() == node);
    const std::string path = prefix + child->name();
    out += path + (child->isBox() ? " box" : " folder");
    if (const auto& data = child->boxData()) {
      (void)data->tags();
      (void)data->xmlData();
      if (const auto resources = child->resources())
        out += ", " + std::to_string(resources->files.size()) + " resources";
    }
    out += '\n';
    walk(child, path + "/", out);
  }
}

inline std::string walk(const KR::BoxLibrary& library) {
  std::string out;
  walk(library.boxRoot(), std::string(), out);
  return out;
}

}  // namespace fuzz

#endif
