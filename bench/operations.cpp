#include "operations.h"

#include "process.h"
#include "tree_walk.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>
#include <krserial/xml_document.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

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

void checkBoxes(const KR::BoxLibrary& opened, const LibraryUnderTest& library) {
  const int boxes = readWholeTree(*opened.boxRoot()).boxes;
  if (boxes != library.generated.boxes)
    throw std::runtime_error("opened " + std::to_string(boxes) + " boxes of " +
                             std::to_string(library.generated.boxes));
}

// Opens the library at path and reads its whole tree, as the library panel does.
std::unique_ptr<KR::BoxLibrary> openAndRead(const std::string& path,
                                            const LibraryUnderTest& library, bool readOnly) {
  auto opened = std::make_unique<KR::BoxLibrary>(QString::fromStdString(path), readOnly);
  checkBoxes(*opened, library);
  return opened;
}

// Reads every regular file below directory once, the least a reader of the whole library
// does: nothing is copied or kept, and links are not followed.
void readEveryFile(const std::string& directory) {
  std::vector<char> buffer(1 << 16);
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
    if (!fs::is_regular_file(entry.symlink_status()))
      continue;
    const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0)
      throw std::runtime_error("cannot read " + entry.path().string());
    while (::read(file, buffer.data(), buffer.size()) > 0) {
    }
    ::close(file);
  }
}

// Opening each form beside reading all its bytes once. Cold, the page cache is dropped
// before each run, so that both read from the disk.
void registerOpening(const LibraryUnderTest& library, const RunCounts& counts, bool cold) {
  const std::string prefix = library.name + "/";
  const Work ready = [cold] {
    if (cold && !dropPageCache())
      throw std::runtime_error("cannot drop the page cache");
  };
  // threads: as many reading threads as setReadThreads() takes, -1 for the machine's choice.
  const auto opening = [library, ready](const std::string& path, int threads) {
    return [library, ready, path, threads](benchmark::State& state) {
      std::unique_ptr<KR::BoxLibrary> opened;
      KR::BoxLibrary::setReadThreads(threads);
      timeEach(
          state, ready, [&] { opened = openAndRead(path, library, true); },
          [&] { opened.reset(); });
      KR::BoxLibrary::setReadThreads(-1);
    };
  };
  add(prefix + (cold ? op::kOpenZipCold : op::kOpenZip), 1, counts, opening(library.zip, -1));
  if (!cold) {
    add(prefix + op::kOpenZipOneWorker, 1, counts, opening(library.zip, 1));
    add(prefix + op::kOpenZipCallerOnly, 1, counts, opening(library.zip, 0));
  }
  add(prefix + (cold ? op::kReadZipCold : op::kReadZip), 1, counts,
      [library, ready](benchmark::State& state) {
        timeEach(state, ready, [&] {
          runProgram({"bsdtar", "-xOf", library.zip}, std::string(), Output::Discard);
        });
      });
  add(prefix + (cold ? op::kOpenDirectoryCold : op::kOpenDirectory), 1, counts,
      opening(library.directory, -1));
  if (!cold) {
    add(prefix + op::kOpenDirectoryOneWorker, 1, counts, opening(library.directory, 1));
    add(prefix + op::kOpenDirectoryCallerOnly, 1, counts, opening(library.directory, 0));
  }
  add(prefix + (cold ? op::kReadDirectoryCold : op::kReadDirectory), 1, counts,
      [library, ready](benchmark::State& state) {
        timeEach(state, ready, [&] { readEveryFile(library.directory); });
      });
}

// The box whose tooltip edits flip: the deepest one.
KR::BoxLibraryNode* boxToEdit(const KR::BoxLibrary& library, const std::string& name) {
  KR::BoxLibraryNode* box = deepestBox(library.boxRoot());
  if (!box)
    throw std::runtime_error(name + ": the library holds no box to edit");
  return box;
}

// Sets one of two tooltips on box in turn, so that every edit changes it.
void flipTooltip(KR::BoxLibraryNode* box, int& flips) {
  box->boxData()->setTooltip(++flips % 2 ? "Edited.\ntags:\n bench" : "Original.");
}

// A library opened for editing, and the box whose tooltip its edits flip.
struct Editing {
  std::unique_ptr<KR::BoxLibrary> library;
  KR::BoxLibraryNode* box = nullptr;
  int flips = 0;

  void open(const std::string& path, const LibraryUnderTest& generated) {
    library = openAndRead(path, generated, false);
    box = boxToEdit(*library, generated.name);
  }
  void edit() { flipTooltip(box, flips); }
};

// Closing a library opened from the directory, with one edit made and not saved.
void registerClosing(const LibraryUnderTest& library, const RunCounts& counts) {
  add(library.name + "/" + op::kClose, 1, counts, [library](benchmark::State& state) {
    Editing editing;
    timeEach(
        state,
        [&] {
          editing.open(library.directory, library);
          editing.edit();
        },
        [&] { editing.library.reset(); });
  });
}

// One tooltip edit saved in place, in each form. The edited libraries are opened at their
// first run and kept across repetitions; the zip is a copy, so that the generated one stays.
void registerSavingInPlace(const LibraryUnderTest& library, const RunCounts& counts) {
  const std::string prefix = library.name + "/";
  auto directory = std::make_shared<Editing>();
  add(prefix + op::kSaveDirectoryInPlace, 1, counts, [library, directory](benchmark::State& state) {
    timeEach(
        state,
        [&] {
          if (!directory->library)
            directory->open(library.directory, library);
        },
        [&] {
          directory->edit();
          directory->library->save();
        });
  });
  auto zip = std::make_shared<Editing>();
  add(prefix + op::kSaveZipInPlace, 1, counts, [library, zip](benchmark::State& state) {
    timeEach(
        state,
        [&] {
          if (zip->library)
            return;
          const std::string copy = freshPath(library, "in-place") + ".lbf";
          fs::copy_file(library.zip, copy);
          zip->open(copy, library);
        },
        [&] {
          zip->edit();
          zip->library->save();
        });
  });
  add(prefix + op::kCopyZip, 1, counts, [library](benchmark::State& state) {
    std::string target;
    timeEach(
        state, [&] { target = freshPath(library, "copied") + ".lbf"; },
        [&] { fs::copy_file(library.zip, target); }, [&] { removeAll(target); });
  });
}

void registerSaving(const LibraryUnderTest& library, KR::BoxLibrary* opened,
                    const RunCounts& counts) {
  const std::string prefix = library.name + "/";
  // The zip saved last is the library's path, and what it reads from, until the next is saved.
  auto previous = std::make_shared<std::string>();
  add(prefix + op::kSaveZip, 1, counts, [library, opened, previous](benchmark::State& state) {
    std::string target;
    timeEach(
        state,
        [&] {
          // A library saved once reads from its zip, and a save from there copies the
          // entries as stored: every run starts from the directory again.
          if (!previous->empty())
            *opened = KR::BoxLibrary(QString::fromStdString(library.directory), true);
          target = freshPath(library, "saved") + ".lbf";
        },
        [&] { opened->saveTo(QString::fromStdString(target), KR::BoxLibrary::ZipFormat); },
        [&] {
          if (!previous->empty())
            removeAll(*previous);
          *previous = target;
        });
  });
  add(prefix + op::kWriteZip, 1, counts, [library](benchmark::State& state) {
    std::string target;
    timeEach(
        state, [&] { target = freshPath(library, "written") + ".zip"; },
        [&] {
          runProgram({"bsdtar", "-cf", target, "--format", "zip", "-C", library.directory, "."});
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
    timeEach(
        state,
        [&] {
          command.push_back(freshPath(library, "behaviors"));
          fs::create_directory(command.back());
        },
        [&] { runProgram(command, library.directory); },
        [&] {
          removeAll(command.back());
          command.pop_back();
        });
  });
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
  registerOpening(library, counts, false);
  if (library.coldCache)
    registerOpening(library, counts, true);
  registerClosing(library, counts);
  registerSavingInPlace(library, counts);
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
    scene->box = boxToEdit(library, name);
    scene->shelves[0] = root->appendChild("Bench Shelf A", true);
    scene->shelves[1] = root->appendChild("Bench Shelf B", true);
    scene->folder = addFolderOfBoxes(scene->shelves[0], 100);
  };
  const std::string prefix = name + "/";
  const int iterations = counts.editIterations;

  // The scene is made in the untimed preparation of whichever edit runs first.
  add(prefix + op::kTooltipEdit, iterations, counts, [ready, scene](benchmark::State& state) {
    int flips = 0;
    timeEach(state, ready, [&] { flipTooltip(scene->box, flips); });
  });
  add(prefix + op::kFolderRename, iterations, counts, [ready, scene](benchmark::State& state) {
    int flip = 0;
    timeEach(state, ready, [&] {
      renameNode(scene->folder, ++flip % 2 ? "Bench: Renamed Folder" : "Bench: Folder");
    });
  });
  add(prefix + op::kFolderMove, iterations, counts,
      [ready, scene, &library](benchmark::State& state) {
        timeEach(state, ready, [&] {
          KR::BoxLibraryNode* folder = scene->folder;
          moveNode(folder,
                   folder->parent() == scene->shelves[0] ? scene->shelves[1] : scene->shelves[0]);
        });
      });
}

namespace {

void collectBoxes(const KR::BoxLibraryNode* node, std::vector<const KR::BoxLibraryNode*>& boxes) {
  if (node->isBox())
    boxes.push_back(node);
  for (const KR::BoxLibraryNode* child : node->childList())
    collectBoxes(child, boxes);
}

}  // namespace

void registerToolCommands(const LibraryUnderTest& library, const KR::BoxLibrary& opened,
                          const std::string& krbox, const RunCounts& counts) {
  // One box per edit, so that no edit changes the path another one names.
  std::vector<const KR::BoxLibraryNode*> boxes;
  collectBoxes(opened.boxRoot(), boxes);
  if (boxes.size() < 3)
    throw std::runtime_error(library.name + ": krbox's edits need three boxes");
  const std::string edited = displayPath(*boxes.back());
  const std::string renamedFolder = displayPath(*boxes[0]->parent());
  const std::string renamed = boxes[0]->name();
  const std::string movedFolder = displayPath(*boxes[1]->parent());
  const std::string moved = boxes[1]->name();
  const std::string prefix = library.name + "/";
  const std::string directory = library.directory;
  // Each command changes the library on disk; what was done, across repetitions, says how.
  struct Done {
    int tooltips = 0;
    int renames = 0;
    int moves = 0;
  };
  auto done = std::make_shared<Done>();
  const auto command = [krbox](const std::vector<std::string>& arguments) {
    return [krbox, arguments] {
      std::vector<std::string> line = {krbox};
      line.insert(line.end(), arguments.begin(), arguments.end());
      runProgram(line, std::string(), Output::Discard);
    };
  };

  add(prefix + op::kToolTree, 1, counts, [command, directory](benchmark::State& state) {
    timeEach(
        state, [] {}, command({"tree", directory}));
  });
  add(prefix + op::kToolSetTooltip, 1, counts,
      [command, directory, edited, done](benchmark::State& state) {
        timeEach(
            state, [] {},
            [&] {
              command({"set-tooltip", directory, edited,
                       ++done->tooltips % 2 ? "Set by krbox.\ntags:\n bench" : "Original."})();
            });
      });
  add(prefix + op::kToolRename, 1, counts,
      [command, directory, renamedFolder, renamed, done](benchmark::State& state) {
        timeEach(
            state, [] {},
            [&] {
              const bool back = done->renames++ % 2;
              const std::string other = renamed + " (renamed)";
              command({"rename", directory, joinedPath(renamedFolder, back ? other : renamed),
                       back ? renamed : other})();
            });
      });
  // Out to the top of the library and back.
  add(prefix + op::kToolMove, 1, counts,
      [command, directory, movedFolder, moved, done](benchmark::State& state) {
        timeEach(
            state, [] {},
            [&] {
              if (done->moves++ % 2)
                command({"mv", directory, moved, movedFolder})();
              else
                command({"mv", directory, joinedPath(movedFolder, moved), ""})();
            });
      });
}

}  // namespace krbench
