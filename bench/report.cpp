#include "report.h"

#include <krboxlibrary/box_library.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace krbench {

namespace {

// A library operation beside the least work that does the same job.
struct Comparison {
  const char* title;
  const char* operation;
  const char* baseline;  // an operation of the same library, or of the reference for edits;
                         // null when the operation has a time limit of its own
  const char* baselineTitle;
  bool edit;
  bool perBox;  // whether the work grows with the library, so that time per box tells
};

const Comparison kComparisons[] = {
    {"open zip, read tree", op::kOpenZip, op::kReadZip, "bsdtar -xO", false, true},
    {"  one reading thread", op::kOpenZipOneWorker, op::kReadZip, "bsdtar -xO", false, true},
    {"  caller's thread only", op::kOpenZipCallerOnly, op::kReadZip, "bsdtar -xO", false, true},
    {"  cold cache", op::kOpenZipCold, op::kReadZipCold, "bsdtar -xO, cold", false, true},
    {"open directory", op::kOpenDirectory, op::kReadDirectory, "read each file", false, true},
    {"  one reading thread", op::kOpenDirectoryOneWorker, op::kReadDirectory, "read each file",
     false, true},
    {"  caller's thread only", op::kOpenDirectoryCallerOnly, op::kReadDirectory, "read each file",
     false, true},
    {"  cold cache", op::kOpenDirectoryCold, op::kReadDirectoryCold, "read each file, cold", false,
     true},
    {"close after an edit", op::kClose, nullptr, "-", false, false},
    {"edit, save dir in place", op::kSaveDirectoryInPlace, nullptr, "-", false, false},
    {"edit, save zip in place", op::kSaveZipInPlace, op::kCopyZip, "copy the zip", false, false},
    {"save to zip", op::kSaveZip, op::kWriteZip, "bsdtar -c zip", false, true},
    {"export behaviors", op::kExportBehaviors, op::kCopyBehaviors, "cp -a --parents", false, true},
    {"krbox set-tooltip", op::kToolSetTooltip, op::kToolTree, "krbox tree", false, false},
    {"krbox rename", op::kToolRename, op::kToolTree, "krbox tree", false, false},
    {"krbox mv", op::kToolMove, op::kToolTree, "krbox tree", false, false},
    {"tooltip edit", op::kTooltipEdit, op::kTooltipEdit, "same, reference", true, false},
    {"folder rename", op::kFolderRename, op::kFolderRename, "same, reference", true, false},
    {"move 100-box folder", op::kFolderMove, op::kFolderMove, "same, reference", true, false},
};

// The targets below hold from this size on; smaller libraries show the fixed costs.
const int kLargeLibrary = 10000;

// An operation's limit: a ratio to its baseline, or a time in ms when it has none.
struct Limit {
  const char* operation;
  const char* baseline;
  double limit;
  int fromBoxes;
};

// Opening on every core is held to what two cores give; a single reading thread has to keep
// up with reading the files once on one core.
const Limit kLimits[] = {
    {op::kOpenZip, op::kReadZip, 0.6, kLargeLibrary},
    {op::kOpenZipOneWorker, op::kReadZip, 1.0, kLargeLibrary},
    {op::kOpenZipCold, op::kReadZipCold, 1.1, kLargeLibrary},
    {op::kOpenDirectory, op::kReadDirectory, 0.6, kLargeLibrary},
    {op::kOpenDirectoryOneWorker, op::kReadDirectory, 1.0, kLargeLibrary},
    {op::kOpenDirectoryCold, op::kReadDirectoryCold, 1.1, kLargeLibrary},
    {op::kClose, nullptr, 10, kLargeLibrary},
    {op::kSaveDirectoryInPlace, nullptr, 20, kLargeLibrary},
    {op::kSaveZipInPlace, op::kCopyZip, 1.5, kLargeLibrary},
    {op::kSaveZip, op::kWriteZip, 1.5, 0},
    {op::kExportBehaviors, op::kCopyBehaviors, 2, 0},
    {op::kToolSetTooltip, op::kToolTree, 1.3, kLargeLibrary},
    {op::kToolRename, op::kToolTree, 1.3, kLargeLibrary},
    {op::kToolMove, op::kToolTree, 1.3, kLargeLibrary},
};

std::string format(const char* pattern, double value) {
  char text[64];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

std::string duration(double seconds) {
  if (seconds >= 1)
    return format("%.2f s", seconds);
  if (seconds >= 1e-3)
    return format("%.1f ms", seconds * 1e3);
  return format("%.0f us", seconds * 1e6);
}

std::string thousands(long value) {
  std::string digits = std::to_string(value);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3)
    digits.insert(static_cast<size_t>(i), ",");
  return digits;
}

std::string label(const LibraryUnderTest& library) {
  return (library.shape.isFlat() ? "flat " : "nested ") + thousands(library.shape.boxes);
}

std::string key(const std::string& library, const char* operation) {
  return library + "/" + operation;
}

// An operation of library and its baseline: the library's own, or the reference's for edits.
// A row without a baseline has an empty one.
std::pair<Figure, Figure> compared(const Results& results, const MediumResult& medium,
                                   const LibraryUnderTest& library, const Comparison& row) {
  const Collector& figures = *results.collector;
  return {figures.figure(key(library.name, row.operation)),
          row.baseline
              ? figures.figure(key(row.edit ? medium.referenceName : library.name, row.baseline))
              : Figure()};
}

// Whether an operation was run at all: cold runs and krbox's are not in every series.
bool ran(const Figure& figure) {
  return figure.runs > 0 || !figure.error.empty();
}

double perBoxKiB(const PeakMemory& memory) {
  return memory.boxes > 0 ? double(memory.afterKiB - memory.beforeKiB) / memory.boxes : 0;
}

struct Target {
  std::string goal;
  std::string library;
  double measured = 0;  // NAN when a figure is missing
  double limit = 0;
  std::string unit;
  bool met() const { return !std::isnan(measured) && measured <= limit; }
};

double ratio(const Figure& a, const Figure& b) {
  return a.measured() && b.measured() && b.median > 0 ? a.median / b.median : NAN;
}

const LibraryResult* libraryWithBoxes(const MediumResult& medium, int boxes, bool flat) {
  for (const LibraryResult& result : medium.libraries) {
    const LibraryShape& shape = result.library.shape;
    if (shape.boxes == boxes && shape.isFlat() == flat)
      return &result;
  }
  return nullptr;
}

double perBoxRatio(const Results& results, const LibraryResult& large, const LibraryResult& small,
                   const char* operation) {
  const Figure a = results.collector->figure(key(large.library.name, operation));
  const Figure b = results.collector->figure(key(small.library.name, operation));
  return ratio(a, b) * small.library.generated.boxes / large.library.generated.boxes;
}

void addTargets(const Results& results, const MediumResult& medium, std::vector<Target>& list) {
  const Collector& figures = *results.collector;
  const LibraryResult* thousand = libraryWithBoxes(medium, 1000, false);
  for (const LibraryResult& result : medium.libraries) {
    const std::string name = result.library.name;
    const std::string where = label(result.library) + ", " + medium.name;
    const int boxes = result.library.generated.boxes;
    for (const Limit& limit : kLimits) {
      const Figure figure = figures.figure(key(name, limit.operation));
      if (boxes < limit.fromBoxes || !ran(figure))
        continue;
      if (limit.baseline)
        list.push_back({std::string(limit.operation) + " vs " + limit.baseline, where,
                        ratio(figure, figures.figure(key(name, limit.baseline))), limit.limit,
                        "x"});
      else
        list.push_back({std::string(limit.operation) + " time", where,
                        figure.measured() ? figure.median * 1e3 : NAN, limit.limit, "ms"});
    }
    if (thousand && &result != thousand && boxes >= kLargeLibrary) {
      for (const char* open : {op::kOpenZip, op::kOpenDirectory})
        list.push_back({std::string(open) + " time per box vs nested 1,000", where,
                        perBoxRatio(results, result, *thousand, open), 1.3, "x"});
    }
    for (const Comparison& edit : kComparisons) {
      if (!edit.edit)
        continue;
      const Figure figure = figures.figure(key(name, edit.operation));
      list.push_back({std::string(edit.operation) + " vs reference", where,
                      ratio(figure, figures.figure(key(medium.referenceName, edit.operation))), 1.5,
                      "x"});
      list.push_back({std::string(edit.operation) + " time", where,
                      figure.measured() ? figure.median * 1e3 : NAN, 5, "ms"});
    }
    list.push_back({"memory per box", where, perBoxKiB(result.memory), 4, "KiB"});
  }
}

std::vector<Target> targets(const Results& results) {
  std::vector<Target> list;
  for (const MediumResult& medium : results.mediums)
    addTargets(results, medium, list);
  return list;
}

// What the page cache holds while the medium's operations run.
std::string cacheState(const MediumResult& medium) {
  if (medium.fileSystem == "tmpfs")
    return "in memory: there is no page cache to miss.";
  std::string state =
      "page cache warm: each library is written, then synced (sync), just before its runs, so "
      "its files are cached and no write-back is pending.";
  state += medium.coldCache
               ? " The cold rows drop the page cache (sync; echo 3 > /proc/sys/vm/drop_caches) "
                 "before each run."
               : " The page cache cannot be dropped here: there are no cold rows.";
  return state;
}

QJsonObject figureJson(const Figure& figure) {
  QJsonObject object;
  if (!figure.error.empty())
    object["error"] = QString::fromStdString(figure.error);
  if (figure.runs > 0) {
    object["median_s"] = figure.median;
    object["min_s"] = figure.min;
    object["max_s"] = figure.max;
    object["runs"] = figure.runs;
  }
  return object;
}

QJsonObject memoryJson(const PeakMemory& memory) {
  return QJsonObject{{"before_kib", double(memory.beforeKiB)},
                     {"after_kib", double(memory.afterKiB)},
                     {"boxes", memory.boxes},
                     {"per_box_kib", perBoxKiB(memory)}};
}

QJsonValue number(double value) {
  return std::isnan(value) ? QJsonValue() : QJsonValue(value);
}

}  // namespace

bool Collector::ReportContext(const Context&) {
  return true;
}

void Collector::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration)
      continue;
    const std::string name = run.run_name.function_name;
    if (run.error_occurred) {
      m_errors[name] = run.error_message;
      std::cerr << "  " << name << ": " << run.error_message << std::endl;
      continue;
    }
    const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
    m_seconds[name].push_back(seconds);
    std::cerr << "  " << name << ": " << duration(seconds) << std::endl;
  }
}

Figure Collector::figure(const std::string& name) const {
  Figure figure;
  const auto error = m_errors.find(name);
  if (error != m_errors.end())
    figure.error = error->second;
  const auto found = m_seconds.find(name);
  if (found == m_seconds.end() || found->second.empty())
    return figure;
  std::vector<double> seconds = found->second;
  std::sort(seconds.begin(), seconds.end());
  const size_t n = seconds.size();
  figure.runs = static_cast<int>(n);
  figure.min = seconds.front();
  figure.max = seconds.back();
  figure.median = n % 2 ? seconds[n / 2] : (seconds[n / 2 - 1] + seconds[n / 2]) / 2;
  return figure;
}

void printReport(std::ostream& out, const Results& results) {
  char line[256];
  out << "\nEach time is the median of " << results.counts.repetitions
      << " runs [min-max]; an edit run is " << results.counts.editIterations
      << " edits in a row. Edits are compared with the same edit on the "
      << thousands(results.referenceBoxes)
      << "-box reference library. The library's own scratch files (TMPDIR) are in the same "
         "work directory as the library.\nOpening reads the files on "
      << KR::BoxLibrary::readThreads()
      << " threads beside the caller's (one per core this process may use), then on one, then "
         "on the caller's alone.\n";
  for (const MediumResult& medium : results.mediums) {
    out << "\n== " << medium.name << ": " << medium.directory << " (" << medium.fileSystem
        << ") ==\n"
        << cacheState(medium) << "\nLoad averages (1, 5, 15 min): " << medium.loadBefore
        << " at the start, " << medium.loadAfter << " at the end.\n";
    for (const LibraryResult& result : medium.libraries) {
      const LibraryUnderTest& library = result.library;
      const GeneratedLibrary& generated = library.generated;
      out << "\n"
          << label(library) << " (fan-out " << library.shape.fanOut << ", depth "
          << library.shape.depth << "), " << medium.name << ": " << thousands(generated.boxes)
          << " boxes, " << thousands(generated.folders) << " folders, "
          << thousands(generated.behaviors) << " behaviors, " << thousands(generated.resourceFiles)
          << " resource files, " << format("%.1f MB", generated.bytes / 1e6) << "\n";
      std::snprintf(line, sizeof line, "  %-24s %-28s %-21s %-28s %7s %9s\n", "operation",
                    "library [min-max]", "baseline", "baseline [min-max]", "ratio", "per box");
      out << line;
      for (const Comparison& row : kComparisons) {
        const auto [mine, base] = compared(results, medium, library, row);
        if (!ran(mine) && !ran(base))
          continue;
        auto cell = [](const Figure& figure) {
          if (!figure.measured())
            return figure.error.empty() ? std::string("-") : "failed: " + figure.error;
          return duration(figure.median) + " [" + duration(figure.min) + "-" +
                 duration(figure.max) + "]";
        };
        const double r = ratio(mine, base);
        const std::string perBox = row.perBox && mine.measured() && generated.boxes > 0
                                       ? duration(mine.median / generated.boxes)
                                       : std::string("-");
        std::snprintf(line, sizeof line, "  %-24s %-28s %-21s %-28s %7s %9s\n", row.title,
                      cell(mine).c_str(), row.baselineTitle, cell(base).c_str(),
                      std::isnan(r) ? "-" : format("%.2fx", r).c_str(), perBox.c_str());
        out << line;
      }
      std::snprintf(
          line, sizeof line,
          "  peak RSS, opening the zip: %.1f MiB before, %.1f MiB after: %.2f KiB per box\n",
          result.memory.beforeKiB / 1024.0, result.memory.afterKiB / 1024.0,
          perBoxKiB(result.memory));
      out << line;
    }
  }
  out << "\nTargets\n";
  for (const Target& target : targets(results)) {
    const std::string measured = std::isnan(target.measured)
                                     ? "not measured"
                                     : format("%.2f", target.measured) + " " + target.unit;
    std::snprintf(line, sizeof line, "  %-6s %-48s %-22s %-16s (limit %s %s)\n",
                  target.met() ? "met" : "MISSED", target.goal.c_str(), target.library.c_str(),
                  measured.c_str(), format("%.1f", target.limit).c_str(), target.unit.c_str());
    out << line;
  }
}

void writeJson(const std::string& path, const Results& results) {
  QJsonArray mediums;
  QJsonArray libraries;
  for (const MediumResult& medium : results.mediums) {
    mediums.append(QJsonObject{{"name", QString::fromStdString(medium.name)},
                               {"directory", QString::fromStdString(medium.directory)},
                               {"file_system", QString::fromStdString(medium.fileSystem)},
                               {"cold_cache", medium.coldCache},
                               {"cache", QString::fromStdString(cacheState(medium))},
                               {"reference", QString::fromStdString(medium.referenceName)},
                               {"load_before", QString::fromStdString(medium.loadBefore)},
                               {"load_after", QString::fromStdString(medium.loadAfter)},
                               {"read_threads", KR::BoxLibrary::readThreads()}});
    for (const LibraryResult& result : medium.libraries) {
      const LibraryUnderTest& library = result.library;
      QJsonObject operations;
      for (const Comparison& row : kComparisons) {
        const auto [mine, base] = compared(results, medium, library, row);
        if (!ran(mine) && !ran(base))
          continue;
        QJsonObject entry = figureJson(mine);
        if (row.baseline) {
          entry["baseline"] = figureJson(base);
          entry["baseline_command"] = row.baselineTitle;
          entry["ratio"] = number(ratio(mine, base));
        }
        if (row.perBox && mine.measured())
          entry["per_box_s"] = mine.median / library.generated.boxes;
        operations[row.operation] = entry;
      }
      libraries.append(QJsonObject{{"name", QString::fromStdString(library.name)},
                                   {"medium", QString::fromStdString(medium.name)},
                                   {"label", QString::fromStdString(label(library))},
                                   {"fan_out", library.shape.fanOut},
                                   {"depth", library.shape.depth},
                                   {"seed", double(library.shape.seed)},
                                   {"boxes", library.generated.boxes},
                                   {"folders", library.generated.folders},
                                   {"behaviors", library.generated.behaviors},
                                   {"resource_files", library.generated.resourceFiles},
                                   {"bytes", double(library.generated.bytes)},
                                   {"operations", operations},
                                   {"memory", memoryJson(result.memory)}});
    }
  }
  QJsonArray targetList;
  for (const Target& target : targets(results))
    targetList.append(QJsonObject{{"target", QString::fromStdString(target.goal)},
                                  {"library", QString::fromStdString(target.library)},
                                  {"measured", number(target.measured)},
                                  {"limit", target.limit},
                                  {"unit", QString::fromStdString(target.unit)},
                                  {"met", target.met()}});
  const QJsonObject document{{"repetitions", results.counts.repetitions},
                             {"edit_iterations", results.counts.editIterations},
                             {"reference_boxes", results.referenceBoxes},
                             {"mediums", mediums},
                             {"libraries", libraries},
                             {"targets", targetList}};
  QFile file(QString::fromStdString(path));
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
      file.write(QJsonDocument(document).toJson()) < 0 || !file.flush())
    throw std::runtime_error("could not write " + path);
}

}  // namespace krbench
