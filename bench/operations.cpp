#include "operations.h"

#include "process.h"
#include "tree_walk.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>
#include <krserial/xml_document.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <vector>

namespace krbench {

namespace {

namespace fs = std::filesystem;

using Work = std::function<void()>;

// A path in the scratch directory that nothing uses yet.
std::string freshPath(const LibraryUnderTest& library, const char* stem) {
  static std::atomic<int> counter{0};
  return library.scratch + "/" + stem + "-" + std::to_string(++counter);
}

// Times work alone: preparing and cleaning up around it are not counted.
void timeEach(
    benchmark::State& state, const Work& prepare, const Work& work, const Work& cleanUp = [] {}) {
  try {
    for (auto _ : state) {
      prepare();
      const auto start = std::chrono::steady_clock::now();
      work();
      const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
      state.SetIterationTime(elapsed.count());
      cleanUp();
    }
  } catch (const std::exception& error) {
    state.SkipWithError(error.what());
  }
}

void add(const std::string& name, int iterations, const RunCounts& counts,
         std::function<void(benchmark::State&)> body) {
  benchmark::RegisterBenchmark(name.c_str(), std::move(body))
      ->Iterations(iterations)
      ->Repetitions(counts.repetitions)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

void removeAll(const std::string& path) {
  fs::remove_all(path);
}

// Where the library keeps its files while it is open: what the baselines start from.
std::string workingCopyOf(const KR::BoxLibrary& opened) {
  return opened.projectModel()->getFileLocalPath(QString()).toStdString();
}

void checkBoxes(const KR::BoxLibrary& opened, const LibraryUnderTest& library) {
  const int boxes = readWholeTree(*opened.boxRoot()).boxes;
  if (boxes != library.generated.boxes)
    throw std::runtime_error("opened " + std::to_string(boxes) + " boxes of " +
                             std::to_string(library.generated.boxes));
}

void registerOpening(const LibraryUnderTest& library, const RunCounts& counts) {
  const std::string prefix = library.name + "/";
  add(prefix + op::kOpenZip, 1, counts, [library](benchmark::State& state) {
    std::unique_ptr<KR::BoxLibrary> opened;
    timeEach(
        state, [] {},
        [&] {
          opened = std::make_unique<KR::BoxLibrary>(QString::fromStdString(library.zip), true);
          checkBoxes(*opened, library);
        },
        [&] { opened.reset(); });
  });
  add(prefix + op::kExtractZip, 1, counts, [library](benchmark::State& state) {
    std::string target;
    timeEach(
        state,
        [&] {
          target = freshPath(library, "extracted");
          fs::create_directory(target);
        },
        [&] {
          runProgram({"bsdtar", "-xf", library.zip, "-C", target});
        },
        [&] { removeAll(target); });
  });
  add(prefix + op::kOpenDirectory, 1, counts, [library](benchmark::State& state) {
    std::unique_ptr<KR::BoxLibrary> opened;
    timeEach(
        state, [] {},
        [&] {
          opened =
              std::make_unique<KR::BoxLibrary>(QString::fromStdString(library.directory), true);
          checkBoxes(*opened, library);
        },
        [&] { opened.reset(); });
  });
  add(prefix + op::kCopyDirectory, 1, counts, [library](benchmark::State& state) {
    std::string target;
    timeEach(
        state, [&] { target = freshPath(library, "copied"); },
        [&] {
          runProgram({"cp", "-a", library.directory, target});
        },
        [&] { removeAll(target); });
  });
}

void registerSaving(const LibraryUnderTest& library, KR::BoxLibrary* opened,
                    const RunCounts& counts) {
  const std::string prefix = library.name + "/";
  add(prefix + op::kSaveZip, 1, counts, [library, opened](benchmark::State& state) {
    std::string target;
    timeEach(
        state, [&] { target = freshPath(library, "saved") + ".lbf"; },
        [&] { opened->saveTo(QString::fromStdString(target), KR::BoxLibrary::ZipFormat); },
        [&] { removeAll(target); });
  });
  add(prefix + op::kWriteZip, 1, counts, [library, opened](benchmark::State& state) {
    const std::string workingCopy = workingCopyOf(*opened);
    std::string target;
    timeEach(
        state, [&] { target = freshPath(library, "written") + ".zip"; },
        [&] {
          runProgram({"bsdtar", "-cf", target, "--format", "zip", "-C", workingCopy, "."});
        },
        [&] { removeAll(target); });
  });
}

void registerExport(const LibraryUnderTest& library, KR::BoxLibrary* opened,
                    const RunCounts& counts) {
  const std::string prefix = library.name + "/";
  add(prefix + op::kExportBehaviors, 1, counts, [library, opened](benchmark::State& state) {
    std::string target;
    timeEach(
        state,
        [&] {
          target = freshPath(library, "exported");
          fs::create_directory(target);
        },
        [&] { opened->exportBehaviors(QString::fromStdString(target)); },
        [&] { removeAll(target); });
  });
  add(prefix + op::kCopyBehaviors, 1, counts, [library, opened](benchmark::State& state) {
    QStringList behaviors;
    KR::BoxLibrary::xFindBehaviors(opened->boxRoot(), behaviors);
    std::vector<std::string> command = {"cp", "-a", "--parents"};
    for (const QString& path : behaviors)
      command.push_back(path.toStdString());
    const std::string workingCopy = workingCopyOf(*opened);
    timeEach(
        state,
        [&] {
          command.push_back(freshPath(library, "behaviors"));
          fs::create_directory(command.back());
        },
        [&] { runProgram(command, workingCopy); },
        [&] {
          removeAll(command.back());
          command.pop_back();
        });
  });
}

// The deepest box met last in a depth-first walk: the one with the longest path.
KR::BoxLibraryNode* deepestBox(KR::BoxLibraryNode* node) {
  KR::BoxLibraryNode* found = node->isBox() ? node : nullptr;
  for (KR::BoxLibraryNode* child : node->childList()) {
    if (KR::BoxLibraryNode* below = deepestBox(child))
      found = below;
  }
  return found;
}

KR::BoxLibraryNode* addFolderOfBoxes(KR::BoxLibraryNode* parent, int boxes) {
  KR::BoxLibraryNode* folder = parent->appendChild("Bench: Folder", true);
  for (int i = 0; i < boxes; ++i) {
    const auto document = KR::XmlDocument::loadFromXmlString(
        generateBoxFile(LibraryShape().seed, i, i % 10 == 3), nullptr, nullptr);
    KR::RootBoxDescription description;
    description.name = "Moved box " + std::to_string(i);
    description.box = document->root()->firstChild("Box");
    folder->appendChild(description);
  }
  return folder;
}

}  // namespace

std::shared_ptr<KR::BoxLibrary> registerFileOperations(const LibraryUnderTest& library,
                                                       const RunCounts& counts) {
  registerOpening(library, counts);
  auto opened = std::make_shared<KR::BoxLibrary>(QString::fromStdString(library.directory), true);
  registerSaving(library, opened.get(), counts);
  registerExport(library, opened.get(), counts);
  return opened;
}

void registerEdits(const std::string& name, KR::BoxLibrary& library, const RunCounts& counts) {
  // Made when the first edit runs, so that saving and exporting, which run before, see the
  // library as it was generated.
  struct Scene {
    KR::BoxLibraryNode* box = nullptr;
    KR::BoxLibraryNode* folder = nullptr;
    KR::BoxLibraryNode* shelves[2] = {};
  };
  auto scene = std::make_shared<Scene>();
  const Work ready = [scene, &library, name] {
    if (scene->box)
      return;
    KR::BoxLibraryNode* root = library.boxRoot();
    scene->box = deepestBox(root);
    if (!scene->box)
      throw std::runtime_error(name + ": the library holds no box to edit");
    scene->shelves[0] = root->appendChild("Bench Shelf A", true);
    scene->shelves[1] = root->appendChild("Bench Shelf B", true);
    scene->folder = addFolderOfBoxes(scene->shelves[0], 100);
  };
  const std::string prefix = name + "/";
  const int iterations = counts.editIterations;

  // The scene is made in the untimed preparation of whichever edit runs first.
  add(prefix + op::kTooltipEdit, iterations, counts, [ready, scene](benchmark::State& state) {
    int flip = 0;
    timeEach(state, ready, [&] {
      scene->box->boxData()->setTooltip(++flip % 2 ? "Edited.\ntags:\n bench" : "Original.");
    });
  });
  add(prefix + op::kFolderRename, iterations, counts, [ready, scene](benchmark::State& state) {
    int flip = 0;
    timeEach(state, ready, [&] {
      scene->folder->setName(++flip % 2 ? "Bench: Renamed Folder" : "Bench: Folder");
      scene->folder->parent()->saveFolder();
    });
  });
  add(prefix + op::kFolderMove, iterations, counts,
      [ready, scene, &library](benchmark::State& state) {
        timeEach(state, ready, [&] {
          // A move as the library's users make one: take() copies the folder out, and its
          // old directory, listing entry and relay are removed by hand.
          KR::BoxLibraryNode* folder = scene->folder;
          KR::BoxLibraryNode* oldParent = folder->parent();
          KR::BoxLibraryNode* target =
              oldParent == scene->shelves[0] ? scene->shelves[1] : scene->shelves[0];
          const QString oldPath = folder->path();
          folder->take();
          library.projectModel()->remove(oldPath);
          oldParent->saveFolder();
          QObject::disconnect(folder, &KR::BoxLibraryNode::dataChanged, oldParent,
                              &KR::BoxLibraryNode::dataChanged);
          target->appendChild(folder);
        });
      });
}

}  // namespace krbench
