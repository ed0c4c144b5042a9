#include "source.h"

#include <algorithm>

namespace zu {
namespace project {
namespace detail {

Source::~Source() = default;

FILE* Source::open(const std::string& path) {
  std::optional<std::string> bytes = read(path);
  return bytes ? openMemory(std::move(*bytes)) : nullptr;
}

void Source::attach(Changes* holder) {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  m_holders.push_back(holder);
}

void Source::detach(Changes* holder) {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  m_holders.erase(std::remove(m_holders.begin(), m_holders.end(), holder), m_holders.end());
}

std::vector<Changes*> Source::holders() const {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  return m_holders;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
