// krbox-panel-bench: times the library panel's models on generated libraries: building the
// model and its first screen, one search keystroke, edits through the model beside the same
// edits on the nodes, the memory the model adds per node, and one box changed on disk by
// another writer reaching the rows, beside opening the library anew.

#include "library_generator.h"
#include "tree_walk.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>
#include <krserial/xml_document.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>
#include <QPersistentModelIndex>
#include <QSaveFile>
#include <QTemporaryDir>

#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace krbench;

const char kUsage[] =
    "usage: krbox-panel-bench [--library BOXES[:FANOUT:DEPTH | :flat]]... [--dir DIR]\n"
    "                         [--iterations N] [--benchmark_...]\n"
    "Without --library: 1000:10:2 (the reference), 50000:10:3 and 20000:flat, in /var/tmp.\n";

// What a view asks of a row it paints.
void paint(const QAbstractItemModel& model, const QModelIndex& index) {
  benchmark::DoNotOptimize(model.data(index, Qt::DisplayRole));
  benchmark::DoNotOptimize(model.data(index, Qt::ToolTipRole));
  benchmark::DoNotOptimize(model.data(index, KR::BoxLibraryModel::KindRole));
  benchmark::DoNotOptimize(model.data(index, KR::BoxLibraryModel::BehaviorRole));
  benchmark::DoNotOptimize(model.parent(index));
  benchmark::DoNotOptimize(model.hasChildren(index));
}

// The first rows a tree view shows, top down, with every stored-expanded folder open.
int firstScreen(const QAbstractItemModel& model, const QModelIndex& parent, int rows) {
  for (int row = 0; row < model.rowCount(parent) && rows < 50; ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    paint(model, index);
    ++rows;
    if (index.data(KR::BoxLibraryModel::ExpandedRole).toBool())
      rows = firstScreen(model, index, rows);
  }
  return rows;
}

// Every index of the model, as a user scrolling through the whole tree makes them, and the
// row of every node looked up (as a change announced by a node makes the model do).
long touchAll(const KR::BoxLibraryModel& model, const QModelIndex& parent) {
  long count = 0;
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    benchmark::DoNotOptimize(model.parent(index));
    benchmark::DoNotOptimize(model.indexOf(model.node(index)));
    count += 1 + touchAll(model, index);
  }
  return count;
}

// The folder with the most children: a flat library's only one.
KR::BoxLibraryNode* largestFolder(KR::BoxLibraryNode* node) {
  KR::BoxLibraryNode* largest = node;
  for (KR::BoxLibraryNode* child : node->childList()) {
    if (child->isBox())
      continue;
    KR::BoxLibraryNode* below = largestFolder(child);
    if (below->childCount() > largest->childCount())
      largest = below;
  }
  return largest;
}

long heapBytes() {
  return static_cast<long>(mallinfo2().uordblks);
}

// What this process has read from files so far, the page cache's share included: a box file
// read again shows here even when the disk is not touched.
long bytesRead() {
  QFile io(QStringLiteral("/proc/self/io"));
  if (io.open(QIODevice::ReadOnly)) {
    for (const QByteArray& line : io.readAll().split('\n')) {
      if (line.startsWith("rchar: "))
        return line.mid(7).toLong();
    }
  }
  return 0;
}

[[noreturn]] void fail(const QString& why) {
  std::cerr << "krbox-panel-bench: " << why.toStdString() << std::endl;
  std::exit(1);
}

// The first box of a depth-first walk kept in a box.bxd, in the generated part of the tree.
KR::BoxLibraryNode* firstPlainBox(KR::BoxLibraryNode* node, const QString& root) {
  for (KR::BoxLibraryNode* child : node->childList()) {
    if (!child->isBox()) {
      if (KR::BoxLibraryNode* box = firstPlainBox(child, root))
        return box;
    } else if (QFile::exists(root + "/" + child->path() + "/box.bxd")) {
      return child;
    }
  }
  return nullptr;
}

// What another writer does to a box: its file read, its tooltip replaced, and the file
// saved whole over the old one.
void rewriteTooltip(const QString& file, const QString& tooltip) {
  QFile in(file);
  if (!in.open(QIODevice::ReadOnly))
    fail("cannot read " + file);
  QByteArray content = in.readAll();
  const QByteArray attribute = "tooltip=\"";
  const qsizetype start = content.indexOf(attribute);
  const qsizetype end = start < 0 ? -1 : content.indexOf('"', start + attribute.size());
  if (end < 0)
    fail("no tooltip in " + file);
  content.replace(start + attribute.size(), end - start - attribute.size(), tooltip.toUtf8());
  QSaveFile out(file);
  if (!out.open(QIODevice::WriteOnly) || out.write(content) != content.size() || !out.commit())
    fail("cannot write " + file);
}

// A library opened from its directory with a model over it, and one of its boxes that
// another writer changes.
struct Follower {
  Follower(const QString& directory, bool followsDisk)
      : library(directory, false), model(&library) {
    model.setFollowsDisk(followsDisk);
    box = firstPlainBox(library.boxRoot(), directory);
    if (!box)
      fail("no box kept in a box.bxd in " + directory);
    file = directory + "/" + box->path() + "/box.bxd";
    row = model.indexOf(box);
  }
  // The new tooltip, on disk.
  QString rewrite() {
    const QString tooltip = QStringLiteral("Rewritten by another writer, %1.").arg(++rewrites);
    rewriteTooltip(file, tooltip);
    return tooltip;
  }
  void expect(const QString& tooltip) const {
    const QString shown = row.data(Qt::ToolTipRole).toString();
    if (shown != tooltip)
      fail(QStringLiteral("the row of %1 shows the tooltip \"%2\", not \"%3\", after the update")
               .arg(file, shown, tooltip));
  }
  KR::BoxLibrary library;
  KR::BoxLibraryModel model;
  KR::BoxLibraryNode* box = nullptr;
  QString file;
  QPersistentModelIndex row;
  int rewrites = 0;
};

// Times update alone, each time after another writer changed the box; the bytes the last
// update read are reported.
void timedDiskChange(benchmark::State& state, Follower& follower,
                     const std::function<void()>& update) {
  long read = 0;
  for (auto _ : state) {
    const QString tooltip = follower.rewrite();
    const long before = bytesRead();
    const auto start = std::chrono::steady_clock::now();
    update();
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    read = bytesRead() - before;
    follower.expect(tooltip);
  }
  state.counters["bytes_read"] = static_cast<double>(read);
}

// One generated library opened, with a folder of 100 boxes on a shelf to rename and move.
struct Scene {
  explicit Scene(const std::string& directory) : library(QString::fromStdString(directory), false) {
    KR::BoxLibraryNode* root = library.boxRoot();
    box = deepestBox(root);
    shelves[0] = root->appendChild("Bench Shelf A", true);
    shelves[1] = root->appendChild("Bench Shelf B", true);
    folder = shelves[0]->appendChild("Bench: Folder", true);
    for (int i = 0; i < 100; ++i) {
      const auto document = KR::XmlDocument::loadFromXmlString(
          generateBoxFile(LibraryShape().seed, i, false), nullptr, nullptr);
      KR::RootBoxDescription description;
      description.name = "Moved box " + std::to_string(i);
      description.box = document->root()->firstChild("Box");
      folder->appendChild(description);
    }
  }
  KR::BoxLibrary library;
  KR::BoxLibraryNode* box = nullptr;
  KR::BoxLibraryNode* folder = nullptr;
  KR::BoxLibraryNode* shelves[2] = {};
};

void timed(benchmark::State& state, const std::function<void()>& work) {
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    work();
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
}

void registerLibrary(const std::string& name, const std::shared_ptr<Scene>& scene, int iterations) {
  const auto add = [&](const std::string& op, std::function<void(benchmark::State&)> body) {
    benchmark::RegisterBenchmark((name + "/" + op).c_str(), std::move(body))
        ->Iterations(iterations)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  };
  add("model_first_screen", [scene](benchmark::State& state) {
    timed(state, [&] {
      KR::BoxLibraryModel model(&scene->library);
      benchmark::DoNotOptimize(firstScreen(model, QModelIndex(), 0));
    });
  });
  add("model_memory", [scene](benchmark::State& state) {
    double perNode = 0;
    timed(state, [&] {
      const long before = heapBytes();
      auto model = std::make_unique<KR::BoxLibraryModel>(&scene->library);
      const long nodes = touchAll(*model, QModelIndex());
      perNode = static_cast<double>(heapBytes() - before) / static_cast<double>(nodes);
    });
    state.counters["bytes_per_node"] = perNode;
  });
  add("filter_keystroke", [scene](benchmark::State& state) {
    KR::BoxLibraryModel model(&scene->library);
    KR::BoxLibraryFilterModel filter;
    filter.setSourceModel(&model);
    firstScreen(filter, QModelIndex(), 0);
    // The panel's event loop runs before the first key comes.
    QCoreApplication::processEvents();
    // Typing on: each keystroke narrows or widens the last query.
    const char* const queries[] = {"mo", "mov", "move", "moved", "moved b", "moved bo"};
    int typed = 0;
    timed(state, [&] {
      filter.setFilterText(QString::fromLatin1(queries[typed++ % 6]));
      benchmark::DoNotOptimize(firstScreen(filter, QModelIndex(), 0));
    });
  });
  // The same three edits through the model and on the nodes.
  struct Edits {
    KR::BoxLibraryModel model;
    int flips = 0;
    explicit Edits(KR::BoxLibrary* library) : model(library) {}
  };
  add("model_tooltip_edit", [scene](benchmark::State& state) {
    Edits edits(&scene->library);
    const QModelIndex box = edits.model.indexOf(scene->box);
    timed(state, [&] {
      edits.model.setData(box, ++edits.flips % 2 ? "Edited.\ntags:\n bench" : "Original.",
                          Qt::ToolTipRole);
    });
  });
  add("node_tooltip_edit", [scene](benchmark::State& state) {
    int flips = 0;
    timed(state, [&] {
      scene->box->boxData()->setTooltip(++flips % 2 ? "Edited.\ntags:\n bench" : "Original.");
    });
  });
  add("model_folder_rename", [scene](benchmark::State& state) {
    Edits edits(&scene->library);
    const QModelIndex folder = edits.model.indexOf(scene->folder);
    timed(state, [&] {
      edits.model.setData(folder, ++edits.flips % 2 ? "Bench: Renamed Folder" : "Bench: Folder");
    });
  });
  add("node_folder_rename", [scene](benchmark::State& state) {
    int flip = 0;
    timed(state, [&] {
      renameNode(scene->folder, ++flip % 2 ? "Bench: Renamed Folder" : "Bench: Folder");
    });
  });
  add("model_folder_move", [scene](benchmark::State& state) {
    Edits edits(&scene->library);
    timed(state, [&] {
      const QModelIndex folder = edits.model.indexOf(scene->folder);
      const QModelIndex from = folder.parent();
      const QModelIndex to = edits.model.indexOf(
          scene->folder->parent() == scene->shelves[0] ? scene->shelves[1] : scene->shelves[0]);
      edits.model.moveRows(from, folder.row(), 1, to, edits.model.rowCount(to));
    });
  });
  add("node_folder_move", [scene](benchmark::State& state) {
    timed(state, [&] {
      KR::BoxLibraryNode* folder = scene->folder;
      moveNode(folder,
               folder->parent() == scene->shelves[0] ? scene->shelves[1] : scene->shelves[0]);
    });
  });
  // One box to the front of the largest folder, and back to its end in turn.
  add("model_move_in_largest_folder", [scene](benchmark::State& state) {
    Edits edits(&scene->library);
    const QModelIndex folder = edits.model.indexOf(largestFolder(scene->library.boxRoot()));
    const int last = edits.model.rowCount(folder) - 1;
    timed(state, [&] {
      const bool back = ++edits.flips % 2 == 0;
      edits.model.moveRows(folder, back ? 0 : last, 1, folder, back ? last + 1 : 0);
    });
  });
  add("node_move_in_largest_folder", [scene](benchmark::State& state) {
    KR::BoxLibraryNode* folder = largestFolder(scene->library.boxRoot());
    int flips = 0;
    timed(state, [&] {
      const bool back = ++flips % 2 == 0;
      moveNode(folder->child(back ? 0 : folder->childCount() - 1), folder, back ? -1 : 0);
    });
  });
  // One box changed on disk by another writer. What the watcher's event of its directory
  // leads to, through the editor (the watcher off, so that only this update reads), and
  // through the model, whose watcher has the event queued; beside a reopen, which reads
  // every file.
  const QString directory = scene->library.path();
  add("editor_disk_change", [directory](benchmark::State& state) {
    Follower follower(directory, false);
    const QStringList directories{follower.box->path()};
    timedDiskChange(state, follower, [&] { follower.model.editor()->updateFromDisk(directories); });
  });
  add("model_disk_change", [directory](benchmark::State& state) {
    Follower follower(directory, true);
    timedDiskChange(state, follower, [&] { follower.model.updateFromDisk(); });
  });
  add("model_reopen", [directory](benchmark::State& state) {
    std::unique_ptr<KR::BoxLibrary> library;
    std::unique_ptr<KR::BoxLibraryModel> model;
    long read = 0;
    for (auto _ : state) {
      model.reset();
      library.reset();
      const long before = bytesRead();
      const auto start = std::chrono::steady_clock::now();
      library = std::make_unique<KR::BoxLibrary>(directory, false);
      model = std::make_unique<KR::BoxLibraryModel>(library.get());
      state.SetIterationTime(
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      read = bytesRead() - before;
    }
    state.counters["bytes_read"] = static_cast<double>(read);
  });
}

int run(int argc, char** argv) {
  std::vector<std::pair<std::string, LibraryShape>> shapes;
  std::string dir = "/var/tmp";
  int iterations = 10;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string flag = argv[i];
    const std::string value = argv[i + 1];
    if (flag == "--dir") {
      dir = value;
    } else if (flag == "--iterations") {
      iterations = std::stoi(value);
    } else if (flag == "--library") {
      LibraryShape shape;
      const auto colon = value.find(':');
      shape.boxes = std::stoi(value.substr(0, colon));
      const std::string rest = colon == std::string::npos ? "" : value.substr(colon + 1);
      if (rest == "flat") {
        shape.fanOut = shape.depth = 1;
      } else if (!rest.empty()) {
        shape.fanOut = std::stoi(rest.substr(0, rest.find(':')));
        shape.depth = std::stoi(rest.substr(rest.find(':') + 1));
      }
      shapes.emplace_back((shape.isFlat() ? "flat-" : "nested-") + std::to_string(shape.boxes),
                          shape);
    } else {
      std::cerr << kUsage;
      return 2;
    }
  }
  if (shapes.empty()) {
    LibraryShape reference;
    reference.boxes = 1000;
    LibraryShape nested;
    nested.boxes = 50000;
    nested.depth = 3;
    LibraryShape flat;
    flat.boxes = 20000;
    flat.fanOut = flat.depth = 1;
    shapes = {{"reference-1000", reference}, {"nested-50000", nested}, {"flat-20000", flat}};
  }
  QTemporaryDir work(QString::fromStdString(dir) + "/krbox-panel-bench-XXXXXX");
  if (!work.isValid()) {
    std::cerr << "krbox-panel-bench: cannot work in " << dir << "\n";
    return 1;
  }
  qputenv("TMPDIR", work.path().toLocal8Bit());
  std::vector<std::shared_ptr<Scene>> scenes;
  for (const auto& [name, shape] : shapes) {
    const std::string directory = work.path().toStdString() + "/" + name;
    std::cerr << "generating " << name << "..." << std::endl;
    generateLibrary(directory, shape);
    scenes.push_back(std::make_shared<Scene>(directory));
    registerLibrary(name, scenes.back(), iterations);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  return run(argc, argv);
}
