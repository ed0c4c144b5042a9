#include "report.h"

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
  const char* baseline;  // an operation of the same library, or of the reference for edits
  const char* baselineTitle;
  bool edit;
};

const Comparison kComparisons[] = {
    {"open zip, read tree", op::kOpenZip, op::kExtractZip, "bsdtar -x", false},
    {"open directory", op::kOpenDirectory, op::kCopyDirectory, "cp -a", false},
    {"save to zip", op::kSaveZip, op::kWriteZip, "bsdtar -c zip", false},
    {"export behaviors", op::kExportBehaviors, op::kCopyBehaviors, "cp -a --parents", false},
    {"tooltip edit", op::kTooltipEdit, op::kTooltipEdit, "same, reference", true},
    {"folder rename", op::kFolderRename, op::kFolderRename, "same, reference", true},
    {"move 100-box folder", op::kFolderMove, op::kFolderMove, "same, reference", true},
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
std::pair<Figure, Figure> compared(const Results& results, const LibraryUnderTest& library,
                                   const Comparison& row) {
  const Collector& figures = *results.collector;
  return {figures.figure(key(library.name, row.operation)),
          figures.figure(key(row.edit ? results.referenceName : library.name, row.baseline))};
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

const LibraryResult* libraryWithBoxes(const Results& results, int boxes, bool flat) {
  for (const LibraryResult& result : results.libraries) {
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

std::vector<Target> targets(const Results& results) {
  std::vector<Target> list;
  const Collector& figures = *results.collector;
  if (const LibraryResult* tenThousand = libraryWithBoxes(results, 10000, false)) {
    const std::string name = tenThousand->library.name;
    for (const auto& [open, base] : {std::pair(op::kOpenZip, op::kExtractZip),
                                     std::pair(op::kOpenDirectory, op::kCopyDirectory)})
      list.push_back({std::string(open) + " vs its baseline", label(tenThousand->library),
                      ratio(figures.figure(key(name, open)), figures.figure(key(name, base))), 2,
                      "x"});
  }
  const LibraryResult* thousand = libraryWithBoxes(results, 1000, false);
  for (const LibraryResult& result : results.libraries) {
    if (!thousand || &result == thousand || result.library.generated.boxes < 20000)
      continue;
    for (const char* open : {op::kOpenZip, op::kOpenDirectory})
      list.push_back({std::string(open) + " time per box vs nested 1,000", label(result.library),
                      perBoxRatio(results, result, *thousand, open), 1.3, "x"});
  }
  for (const LibraryResult& result : results.libraries) {
    const std::string name = result.library.name;
    const std::string where = label(result.library);
    list.push_back(
        {"save zip vs its baseline", where,
         ratio(figures.figure(key(name, op::kSaveZip)), figures.figure(key(name, op::kWriteZip))),
         1.5, "x"});
    list.push_back({"export vs its baseline", where,
                    ratio(figures.figure(key(name, op::kExportBehaviors)),
                          figures.figure(key(name, op::kCopyBehaviors))),
                    2, "x"});
    for (const Comparison& edit : kComparisons) {
      if (!edit.edit)
        continue;
      const Figure figure = figures.figure(key(name, edit.operation));
      list.push_back({std::string(edit.operation) + " vs reference", where,
                      ratio(figure, figures.figure(key(results.referenceName, edit.operation))),
                      1.5, "x"});
      list.push_back({std::string(edit.operation) + " time", where,
                      figure.measured() ? figure.median * 1e3 : NAN, 5, "ms"});
    }
    list.push_back({"memory per box", where, perBoxKiB(result.memory), 4, "KiB"});
  }
  return list;
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
      << thousands(results.referenceBoxes) << "-box reference library.\n";
  for (const LibraryResult& result : results.libraries) {
    const LibraryUnderTest& library = result.library;
    const GeneratedLibrary& generated = library.generated;
    out << "\n"
        << label(library) << " (fan-out " << library.shape.fanOut << ", depth "
        << library.shape.depth << "): " << thousands(generated.boxes) << " boxes, "
        << thousands(generated.folders) << " folders, " << thousands(generated.behaviors)
        << " behaviors, " << thousands(generated.resourceFiles) << " resource files, "
        << format("%.1f MB", generated.bytes / 1e6) << "\n";
    std::snprintf(line, sizeof line, "  %-22s %-28s %-17s %-28s %7s %9s\n", "operation",
                  "library [min-max]", "baseline", "baseline [min-max]", "ratio", "per box");
    out << line;
    for (const Comparison& row : kComparisons) {
      const auto [mine, base] = compared(results, library, row);
      auto cell = [](const Figure& figure) {
        if (!figure.measured())
          return figure.error.empty() ? std::string("not measured") : "failed: " + figure.error;
        return duration(figure.median) + " [" + duration(figure.min) + "-" + duration(figure.max) +
               "]";
      };
      const double r = ratio(mine, base);
      const std::string perBox = !row.edit && mine.measured() && generated.boxes > 0
                                     ? duration(mine.median / generated.boxes)
                                     : std::string("-");
      std::snprintf(line, sizeof line, "  %-22s %-28s %-17s %-28s %7s %9s\n", row.title,
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
  out << "\nTargets\n";
  for (const Target& target : targets(results)) {
    const std::string measured = std::isnan(target.measured)
                                     ? "not measured"
                                     : format("%.2f", target.measured) + " " + target.unit;
    std::snprintf(line, sizeof line, "  %-6s %-44s %-14s %-16s (limit %s %s)\n",
                  target.met() ? "met" : "MISSED", target.goal.c_str(), target.library.c_str(),
                  measured.c_str(), format("%.1f", target.limit).c_str(), target.unit.c_str());
    out << line;
  }
}

void writeJson(const std::string& path, const Results& results) {
  QJsonArray libraries;
  for (const LibraryResult& result : results.libraries) {
    const LibraryUnderTest& library = result.library;
    QJsonObject operations;
    for (const Comparison& row : kComparisons) {
      const auto [mine, base] = compared(results, library, row);
      QJsonObject entry = figureJson(mine);
      entry["baseline"] = figureJson(base);
      entry["baseline_command"] = row.baselineTitle;
      entry["ratio"] = number(ratio(mine, base));
      if (!row.edit && mine.measured())
        entry["per_box_s"] = mine.median / library.generated.boxes;
      operations[row.operation] = entry;
    }
    libraries.append(QJsonObject{{"name", QString::fromStdString(library.name)},
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
                             {"libraries", libraries},
                             {"targets", targetList}};
  QFile file(QString::fromStdString(path));
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
      file.write(QJsonDocument(document).toJson()) < 0 || !file.flush())
    throw std::runtime_error("could not write " + path);
}

}  // namespace krbench
