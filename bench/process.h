#ifndef KRBOX_BENCH_PROCESS_H
#define KRBOX_BENCH_PROCESS_H

#include <string>
#include <vector>

namespace krbench {

// What becomes of a program's standard output.
enum class Output {
  Capture,  // returned by runProgram()
  Discard,  // sent to /dev/null, for output as large as a library
};

// Runs a program found in PATH with its arguments, in directory when one is given, and
// returns what it printed; throws when it cannot start or does not exit with 0.
std::string runProgram(const std::vector<std::string>& arguments,
                       const std::string& directory = std::string(),
                       Output output = Output::Capture);

// Writes dirty pages out, then empties the page cache, so that the next reads come from the
// disk. Needs root; returns false, having changed nothing else, when the cache stays.
bool dropPageCache();

// The load averages over 1, 5 and 15 minutes, as /proc/loadavg gives them ("1.02 0.80 0.51").
std::string loadAverage();

// The kind of file system path is on ("ext4", "tmpfs", ...), for the report.
std::string fileSystemType(const std::string& path);

// The peak resident size of this process so far (VmHWM), in KiB.
long peakResidentKiB();

struct PeakMemory {
  long beforeKiB = 0;  // the peak before the library was opened
  long afterKiB = 0;   // the peak once it is open and its tree read
  int boxes = 0;       // the boxes the opened tree holds
};

// Opens library in a fresh process (this program, started with memoryProbeFlag), so that
// nothing measured before inflates the peak.
PeakMemory probeMemory(const std::string& self, const std::string& library);

// The child's side: opens the library, prints its PeakMemory, returns the exit status.
int runMemoryProbe(const std::string& library);

inline const char kMemoryProbeFlag[] = "--memory-probe";

}  // namespace krbench

#endif
