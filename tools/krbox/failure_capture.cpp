#include "failure_capture.h"

#include <zu/log.h>

#include <stdexcept>

namespace krbox {

FailureCapture::FailureCapture() : m_defaultWasEnabled(zu::log::isDefaultHandlerEnabled()) {
  zu::log::setDefaultHandlerEnabled(false);
  m_handler = zu::log::addHandler([this](const zu::log::Record& record) {
    if (m_message.empty() && record.level <= zu::log::LogLevel_Warning &&
        record.category == "krboxlibrary")
      m_message = record.message;
  });
}

FailureCapture::~FailureCapture() {
  zu::log::removeHandler(m_handler);
  zu::log::setDefaultHandlerEnabled(m_defaultWasEnabled);
}

void FailureCapture::check() const {
  if (!m_message.empty())
    throw std::runtime_error(m_message);
}

}  // namespace krbox
