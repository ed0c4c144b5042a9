#include "streams.h"

#include "source.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace zu {
namespace project {
namespace detail {

namespace {

struct Cookie {
  std::string data;
  std::size_t position = 0;
  bool append = false;
  std::function<bool(std::string&&)> closed;
};

ssize_t readCookie(void* cookie, char* buffer, size_t size) {
  Cookie& c = *static_cast<Cookie*>(cookie);
  const std::size_t count = std::min(size, c.data.size() - std::min(c.position, c.data.size()));
  std::memcpy(buffer, c.data.data() + c.position, count);
  c.position += count;
  return static_cast<ssize_t>(count);
}

ssize_t writeCookie(void* cookie, const char* buffer, size_t size) {
  Cookie& c = *static_cast<Cookie*>(cookie);
  try {
    if (c.append)
      c.position = c.data.size();
    if (c.position > c.data.size())
      c.data.resize(c.position, '\0');
    const std::size_t overlap = std::min(size, c.data.size() - c.position);
    c.data.replace(c.position, overlap, buffer, size);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  c.position += size;
  return static_cast<ssize_t>(size);
}

int seekCookie(void* cookie, off64_t* offset, int whence) {
  Cookie& c = *static_cast<Cookie*>(cookie);
  const off64_t base = whence == SEEK_SET   ? 0
                       : whence == SEEK_CUR ? static_cast<off64_t>(c.position)
                                            : static_cast<off64_t>(c.data.size());
  if (base + *offset < 0)
    return -1;
  c.position = static_cast<std::size_t>(base + *offset);
  *offset = static_cast<off64_t>(c.position);
  return 0;
}

int closeCookie(void* cookie) {
  Cookie* c = static_cast<Cookie*>(cookie);
  bool ok = true;
  if (c->closed) {
    try {
      ok = c->closed(std::move(c->data));
    } catch (...) {
      ok = false;
    }
  }
  delete c;
  return ok ? 0 : -1;
}

}  // namespace

bool isWritingMode(const char* mode) {
  return std::strchr(mode, 'w') || std::strchr(mode, 'a') || std::strchr(mode, '+');
}

FILE* openMemoryStream(std::string initial, const char* mode,
                       std::function<bool(std::string&&)> closed) {
  if (!mode || !std::strchr("rwa", mode[0]))
    return nullptr;
  auto* cookie = new Cookie;
  cookie->data = std::move(initial);
  cookie->append = mode[0] == 'a';
  if (mode[0] == 'w')
    cookie->data.clear();
  if (isWritingMode(mode))
    cookie->closed = std::move(closed);
  cookie_io_functions_t functions{readCookie, writeCookie, seekCookie, closeCookie};
  FILE* stream = ::fopencookie(cookie, mode, functions);
  if (!stream)
    delete cookie;
  return stream;
}

FILE* openMemory(std::string bytes) {
  return openMemoryStream(std::move(bytes), "rb", nullptr);
}

}  // namespace detail
}  // namespace project
}  // namespace zu
