#ifndef KRBOX_TOOL_PROGRESS_LINE_H
#define KRBOX_TOOL_PROGRESS_LINE_H

#include <zu/project/progress_scope.h>

#include <chrono>
#include <cstddef>
#include <optional>

namespace krbox {

/// While alive, shows how far the library has got with what it does ("opening", "saving") as
/// one line on stderr that updates itself, "krbox: saving 1200 of 5000 (24%)", and erases the
/// line when it ends. The line appears only once the operation has taken half a second, and
/// only where enable() allowed it.
class ProgressLine {
public:
  explicit ProgressLine(const char* what);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// Whether lines are shown at all: for a terminal, unless --quiet was given.
  static void enable(bool enabled);

private:
  void show(std::size_t done, std::size_t total);

  const char* m_what;
  std::chrono::steady_clock::time_point m_start;
  bool m_shown = false;
  std::optional<zu::project::ProgressScope> m_scope;
};

}  // namespace krbox

#endif
