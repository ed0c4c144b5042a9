#include "progress_line.h"

#include <cstdlib>
#include <iostream>

namespace krbox {

namespace {

bool g_enabled = false;

// KRBOX_PROGRESS_DELAY_MS replaces the half second, so that the tests see the line of an
// operation that is over at once.
std::chrono::milliseconds delay() {
  static const std::chrono::milliseconds value = [] {
    const char* text = std::getenv("KRBOX_PROGRESS_DELAY_MS");
    return std::chrono::milliseconds(text && *text ? std::atol(text) : 500);
  }();
  return value;
}

}  // namespace

ProgressLine::ProgressLine(const char* what)
    : m_what(what), m_start(std::chrono::steady_clock::now()) {
  if (g_enabled)
    m_scope.emplace([this](std::size_t done, std::size_t total) { show(done, total); });
}

ProgressLine::~ProgressLine() {
  m_scope.reset();
  if (m_shown)
    std::cerr << "\r\033[K" << std::flush;
}

void ProgressLine::enable(bool enabled) {
  g_enabled = enabled;
}

void ProgressLine::show(std::size_t done, std::size_t total) {
  if (!m_shown && std::chrono::steady_clock::now() - m_start < delay())
    return;
  m_shown = true;
  const int percent = total ? static_cast<int>(100.0 * static_cast<double>(done) / total) : 100;
  // "\033[K" clears what a longer line before left.
  std::cerr << "\rkrbox: " << m_what << ' ' << done << " of " << total << " (" << percent
            << "%)\033[K" << std::flush;
}

}  // namespace krbox
