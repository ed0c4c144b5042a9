#ifndef ZU_PROJECT_PROGRESS_SCOPE_H
#define ZU_PROJECT_PROGRESS_SCOPE_H

#include <zu/project/zuproject_export.h>

#include <chrono>
#include <cstddef>
#include <functional>

namespace zu {
namespace project {

/// Hands the progress of long operations on this thread to a handler while it lives: reading a
/// box library's tree, saving a project (but for a save back into its own directory, which
/// writes only what changed), exporting behaviors. Each operation reports the entries it has
/// done of its total, and the next one counts from the start again. The handler hears at most about
/// ten reports a second, and always the last one of an operation (done equal to total). Scopes nest
/// like the locals they are: the innermost one takes the reports while it lives.
///
/// ```cpp
/// zu::project::ProgressScope progress([&](std::size_t done, std::size_t total) {
///   bar.setValue(total ? 100 * done / total : 100);
/// });
/// KR::BoxLibrary library(path);
/// ```
class ZUPROJECT_EXPORT ProgressScope {
public:
  /// Receives done of total entries. While a tree of unknown size is read, total is an estimate
  /// that may change as the read goes on.
  using Handler = std::function<void(std::size_t done, std::size_t total)>;

  /// Sends this thread's reports to handler until the scope ends.
  explicit ProgressScope(Handler handler);
  /// Gives the reports back to the scope that had them before.
  ~ProgressScope();
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;

  /// Reports done of total entries to this thread's scope; costs next to nothing without one.
  static void report(std::size_t done, std::size_t total);

private:
  Handler m_handler;
  ProgressScope* m_outer;
  unsigned m_skipped = 0;
  std::chrono::steady_clock::time_point m_last;
};

}  // namespace project
}  // namespace zu

#endif
