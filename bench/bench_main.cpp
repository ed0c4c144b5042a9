// krbox-bench: times the library's file operations and edits on generated libraries of
// growing size, each beside the least work the same job needs, and reports the targets.

#include "library_generator.h"
#include "operations.h"
#include "process.h"
#include "report.h"

#include <krboxlibrary/box_library.h>
#include <zu/project/project_model.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QtGlobal>

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace krbench;

const char kUsage[] =
    "usage: krbox-bench [--library BOXES[:FANOUT:DEPTH | :flat]]... [--repetitions N]\n"
    "                   [--edit-iterations N] [--reference-boxes N] [--json FILE]\n"
    "                   [--disk-dir DIR] [--tmpfs-dir DIR] [--disk-only | --tmpfs-only]\n"
    "                   [--krbox PATH] [--benchmark_filter=REGEX]\n"
    "It runs a series on the disk (in /var/tmp), then one in memory (in /dev/shm). Without\n"
    "--library they are 1000:10:2 10000:10:3 50000:10:3, and 20000:flat in memory.\n";

#ifdef KRBOX_TOOL_PATH
const char kDefaultKrbox[] = KRBOX_TOOL_PATH;
#else
const char kDefaultKrbox[] = "";
#endif

// A series runs in a work directory on one medium.
struct Medium {
  std::string name;
  std::string parent;  // where its work directory is made
  std::vector<LibraryShape> shapes;
};

struct Options {
  std::vector<LibraryShape> shapes;
  RunCounts counts;
  int referenceBoxes = 1000;
  std::string json;
  std::vector<Medium> mediums = {{"disk", "/var/tmp", {}}, {"tmpfs", "/dev/shm", {}}};
  std::string krbox = kDefaultKrbox;  // krbox's commands are not run without it
};

int positive(const std::string& text, const char* what) {
  size_t used = 0;
  int value = 0;
  try {
    value = std::stoi(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used != text.size() || value < 1)
    throw std::invalid_argument(std::string(what) + " must be a positive number, not \"" + text +
                                "\"");
  return value;
}

// "BOXES", "BOXES:FANOUT:DEPTH" or "BOXES:flat".
LibraryShape parseShape(const std::string& text) {
  LibraryShape shape;
  const size_t colon = text.find(':');
  shape.boxes = positive(text.substr(0, colon), "BOXES");
  if (colon == std::string::npos)
    return shape;
  const std::string rest = text.substr(colon + 1);
  if (rest == "flat") {
    shape.fanOut = shape.depth = 1;
    return shape;
  }
  const size_t second = rest.find(':');
  if (second == std::string::npos)
    throw std::invalid_argument("--library takes BOXES:FANOUT:DEPTH, not \"" + text + "\"");
  shape.fanOut = positive(rest.substr(0, second), "FANOUT");
  shape.depth = positive(rest.substr(second + 1), "DEPTH");
  return shape;
}

Options parseOptions(int argc, char** argv) {
  Options options;
  std::string only;
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--disk-only" || flag == "--tmpfs-only") {
      if (!only.empty() && only != flag)
        throw std::invalid_argument("--disk-only and --tmpfs-only exclude each other");
      only = flag;
      continue;
    }
    if (i + 1 >= argc)
      throw std::invalid_argument("unknown or incomplete option \"" + flag + "\"");
    const std::string value = argv[++i];
    if (flag == "--library")
      options.shapes.push_back(parseShape(value));
    else if (flag == "--repetitions")
      options.counts.repetitions = positive(value, "--repetitions");
    else if (flag == "--edit-iterations")
      options.counts.editIterations = positive(value, "--edit-iterations");
    else if (flag == "--reference-boxes")
      options.referenceBoxes = positive(value, "--reference-boxes");
    else if (flag == "--json")
      options.json = value;
    else if (flag == "--disk-dir")
      options.mediums[0].parent = value;
    else if (flag == "--tmpfs-dir")
      options.mediums[1].parent = value;
    else if (flag == "--krbox")
      options.krbox = value;
    else
      throw std::invalid_argument("unknown option \"" + flag + "\"");
  }
  if (only == "--disk-only")
    options.mediums.pop_back();
  else if (only == "--tmpfs-only")
    options.mediums.erase(options.mediums.begin());
  const bool chosen = !options.shapes.empty();
  if (!chosen)
    options.shapes = {parseShape("1000:10:2"), parseShape("10000:10:3"), parseShape("50000:10:3")};
  for (Medium& medium : options.mediums) {
    medium.shapes = options.shapes;
    // The flat layout only in memory, which keeps the default run within about ten minutes.
    if (!chosen && medium.name == "tmpfs")
      medium.shapes.push_back(parseShape("20000:flat"));
  }
  return options;
}

class Stopwatch {
public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  }

private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

std::string shapeName(const LibraryShape& shape) {
  return (shape.isFlat() ? "flat-" : "nested-") + std::to_string(shape.boxes);
}

// Writes the library in directory form, then the same files as a zip, and syncs them so
// that no write-back runs during the timings.
LibraryUnderTest prepare(const std::string& shapeName, const LibraryShape& shape,
                         const MediumResult& medium) {
  LibraryUnderTest library;
  library.name = medium.name + "-" + shapeName;
  library.medium = medium.name;
  library.coldCache = medium.coldCache;
  library.shape = shape;
  const std::string base = medium.directory + "/" + shapeName;
  fs::create_directories(base + "/scratch");
  library.directory = base + "/library";
  library.zip = base + "/library.lbf";
  library.scratch = base + "/scratch";
  const Stopwatch watch;
  std::cerr << "generating " << library.name << "..." << std::flush;
  library.generated = generateLibrary(library.directory, shape);
  zu::project::ProjectModel model;
  model.load(QString::fromStdString(library.directory), zu::project::ArchiveFormat_Directory);
  model.save(QString::fromStdString(library.zip), zu::project::ArchiveFormat_Zip, false);
  ::sync();
  std::cerr << " " << watch.seconds() << " s" << std::endl;
  return library;
}

void runRegistered(Collector& collector) {
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::ClearRegisteredBenchmarks();
}

// Runs the reference and every library in a fresh work directory under medium's parent.
MediumResult runSeries(const Options& options, const Medium& where, Collector& collector) {
  QTemporaryDir work(QString::fromStdString(where.parent) + "/krbox-bench-XXXXXX");
  if (!work.isValid())
    throw std::runtime_error("cannot create a work directory in " + where.parent + ": " +
                             work.errorString().toStdString());
  MediumResult medium;
  medium.name = where.name;
  medium.directory = work.path().toStdString();
  medium.fileSystem = fileSystemType(medium.directory);
  medium.coldCache = medium.fileSystem != "tmpfs" && dropPageCache();
  medium.referenceName = medium.name + "-reference-" + std::to_string(options.referenceBoxes);
  medium.loadBefore = loadAverage();
  // The library's working files, and krbox's, go to the same medium as the library.
  qputenv("TMPDIR", work.path().toLocal8Bit());
  const std::string self = fs::canonical("/proc/self/exe").string();
  std::cerr << medium.name << ": working in " << medium.directory << " (" << medium.fileSystem
            << ")" << std::endl;
  {
    LibraryShape shape;
    shape.boxes = options.referenceBoxes;
    const std::string shapeName = "reference-" + std::to_string(options.referenceBoxes);
    const LibraryUnderTest reference = prepare(shapeName, shape, medium);
    KR::BoxLibrary opened(QString::fromStdString(reference.directory), true);
    registerEdits(reference.name, opened, options.counts);
    runRegistered(collector);
    fs::remove_all(medium.directory + "/" + shapeName);
  }
  for (const LibraryShape& shape : where.shapes) {
    LibraryResult result;
    result.library = prepare(shapeName(shape), shape, medium);
    result.memory = probeMemory(self, result.library.zip);
    {
      const auto opened = registerFileOperations(result.library, options.counts);
      registerEdits(result.library.name, *opened, options.counts);
      if (!options.krbox.empty())
        registerToolCommands(result.library, *opened, options.krbox, options.counts);
      runRegistered(collector);
    }
    fs::remove_all(medium.directory + "/" + shapeName(shape));
    medium.libraries.push_back(result);
  }
  medium.loadAfter = loadAverage();
  return medium;
}

int run(int argc, char** argv) {
  const Options options = parseOptions(argc, argv);
  Collector collector;
  Results results;
  results.counts = options.counts;
  results.collector = &collector;
  results.referenceBoxes = options.referenceBoxes;
  for (const Medium& medium : options.mediums)
    results.mediums.push_back(runSeries(options, medium, collector));
  printReport(std::cout, results);
  if (!options.json.empty())
    writeJson(options.json, results);
  return collector.failed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], kMemoryProbeFlag) == 0)
    return runMemoryProbe(argv[2]);
  QCoreApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  try {
    return run(argc, argv);
  } catch (const std::invalid_argument& error) {
    std::cerr << "krbox-bench: " << error.what() << "\n" << kUsage;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "krbox-bench: " << error.what() << std::endl;
    return 1;
  }
}
