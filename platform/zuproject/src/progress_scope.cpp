#include <zu/project/progress_scope.h>

namespace zu {
namespace project {

namespace {

thread_local ProgressScope* t_current = nullptr;

// Reports come once per entry, so the clock is read only every so many of them.
constexpr unsigned kReportsPerClockCheck = 16;
constexpr std::chrono::milliseconds kInterval(100);

}  // namespace

ProgressScope::ProgressScope(Handler handler)
    : m_handler(std::move(handler)), m_outer(t_current), m_last(std::chrono::steady_clock::now()) {
  t_current = this;
}

ProgressScope::~ProgressScope() {
  t_current = m_outer;
}

void ProgressScope::report(std::size_t done, std::size_t total) {
  ProgressScope* scope = t_current;
  if (!scope || !scope->m_handler)
    return;
  if (done < total) {
    if (++scope->m_skipped < kReportsPerClockCheck)
      return;
    scope->m_skipped = 0;
    const auto now = std::chrono::steady_clock::now();
    if (now - scope->m_last < kInterval)
      return;
    scope->m_last = now;
  }
  scope->m_handler(done, total);
}

}  // namespace project
}  // namespace zu
