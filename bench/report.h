#ifndef KRBOX_BENCH_REPORT_H
#define KRBOX_BENCH_REPORT_H

#include "library_generator.h"
#include "operations.h"
#include "process.h"

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace krbench {

// One operation's timings over its runs, in seconds.
struct Figure {
  double median = 0;
  double min = 0;
  double max = 0;
  int runs = 0;
  std::string error;  // why the operation stopped, when it did
  bool measured() const { return runs > 0 && error.empty(); }
};

// Keeps every run's time per iteration, keyed by benchmark name, and says what is done.
class Collector : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  Figure figure(const std::string& name) const;
  // Whether any operation stopped with an error.
  bool failed() const { return !m_errors.empty(); }

private:
  std::map<std::string, std::vector<double>> m_seconds;
  std::map<std::string, std::string> m_errors;
};

struct LibraryResult {
  LibraryUnderTest library;
  PeakMemory memory;  // opening the zip form, whose extraction adds libarchive's buffers
};

// One series: the libraries of one work directory, on the disk or in memory.
struct MediumResult {
  std::string name;  // "disk" or "tmpfs"
  std::string directory;
  std::string fileSystem;
  bool coldCache = false;     // whether opening was also timed with the page cache dropped
  std::string referenceName;  // whose edits the others' are compared with
  std::vector<LibraryResult> libraries;
  std::string loadBefore;  // the load averages when the series started and ended: the
  std::string loadAfter;   // figures count for little on a busy machine
};

struct Results {
  RunCounts counts;
  int referenceBoxes = 0;
  std::vector<MediumResult> mediums;  // the disk first
  const Collector* collector = nullptr;
};

// For each medium, the table of times, ratios, time per box and memory per box; then the
// targets.
void printReport(std::ostream& out, const Results& results);
// The same figures as a JSON document.
void writeJson(const std::string& path, const Results& results);

}  // namespace krbench

#endif
