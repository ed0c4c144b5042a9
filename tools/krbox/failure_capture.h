#ifndef KRBOX_TOOL_FAILURE_CAPTURE_H
#define KRBOX_TOOL_FAILURE_CAPTURE_H

#include <string>

namespace krbox {

/// While alive, keeps the first warning or error the box library logs and silences the
/// default stderr handler.
///
/// The library reports some failures (a path it cannot open, a file it cannot write) as log
/// records rather than exceptions. Captured, such a failure reaches the user as the tool's
/// single error line, and an edit it spoilt is not saved.
class FailureCapture {
public:
  FailureCapture();
  ~FailureCapture();
  FailureCapture(const FailureCapture&) = delete;
  FailureCapture& operator=(const FailureCapture&) = delete;

  /// The first failure's message; empty while there was none.
  const std::string& message() const { return m_message; }
  /// Throws std::runtime_error with message() when there was a failure.
  void check() const;

private:
  std::string m_message;
  bool m_defaultWasEnabled;
  unsigned m_handler = 0;
};

}  // namespace krbox

#endif
