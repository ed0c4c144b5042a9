#include "changes.h"

#include "file_io.h"
#include "paths.h"
#include "streams.h"

#include <zu/project/exceptions.h>

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <set>
#include <unordered_map>

namespace zu {
namespace project {
namespace detail {

namespace {

std::error_code lastError() {
  return std::error_code(errno, std::generic_category());
}

// Writes a whole file below files; throws Exception naming what on failure. A file that may
// be there already is replaced only once the new one is complete; in a fresh tree it is
// written in place.
void putBeneath(Beneath& files, const std::string& path, const std::string& bytes,
                const std::string& what, bool fresh = false) {
  if (fresh) {
    const int fd = files.createFile(path, true);
    bool ok = fd >= 0 && writeAll(fd, bytes.data(), bytes.size());
    std::error_code reason = lastError();
    if (fd >= 0 && io::close(fd) != 0 && ok) {
      ok = false;
      reason = lastError();
    }
    if (!ok)
      throwSystemError("Could not write " + what, reason);
    return;
  }
  const auto [parentPath, name] = splitLast(path);
  const int parent = files.makeDirs(parentPath) ? files.dir(parentPath) : -1;
  if (parent < 0 || name.empty())
    throwSystemError("Could not write " + what, lastError());
  replaceFileAt(parent, name, bytes, what, false);
}

bool plainDir(const Node& node) {
  return node.type == Node::Dir && !node.from && !node.opaque && node.local.empty();
}

}  // namespace

Changes::Changes(std::shared_ptr<Source> source) {
  reset(std::move(source));
}

Changes::Changes(const Changes& other)
    : m_source(other.m_source), m_nodes(other.m_nodes), m_overwritten(other.m_overwritten) {
  for (const std::shared_ptr<Source>& source : other.m_attached)
    attach(source);
  for (auto& [path, node] : m_nodes) {
    if (node.local.empty())
      continue;
    const std::string name = scratch().newName();
    writeTree(other, path, scratch().files(), name);
    node.local = name;
  }
}

Changes::~Changes() {
  for (const std::shared_ptr<Source>& source : m_attached)
    source->detach(this);
}

void Changes::attach(const std::shared_ptr<Source>& source) {
  if (!source || std::find(m_attached.begin(), m_attached.end(), source) != m_attached.end())
    return;
  source->attach(this);
  m_attached.push_back(source);
}

void Changes::reset(std::shared_ptr<Source> source) {
  eraseBelow(std::string());
  m_overwritten = false;
  for (const std::shared_ptr<Source>& attached : m_attached)
    attached->detach(this);
  m_attached.clear();
  m_source = std::move(source);
  attach(m_source);
}

Scratch& Changes::scratch() const {
  if (!m_scratch)
    m_scratch = Scratch::create();
  return *m_scratch;
}

Place Changes::resolve(const std::string& path, bool checkLast) const {
  Place place;
  place.under = m_source;
  if (m_nodes.empty()) {
    place.underPath = path;
    place.kind = !m_source   ? (path.empty() ? Kind::Dir : Kind::None)
                 : checkLast ? m_source->kind(path)
                             : Kind::File;
    return place;
  }
  std::size_t end = 0;  // the current prefix is path.substr(0, end)
  for (;;) {
    const bool last = end == path.size();
    const auto found = m_nodes.find(path.substr(0, end));
    if (found != m_nodes.end()) {
      const Node& node = found->second;
      if (node.type == Node::Whiteout || (node.type == Node::File && !last))
        return Place();
      if (!node.local.empty()) {
        place.under.reset();
        place.local =
            end == 0 && !path.empty() ? node.local + '/' + path : node.local + path.substr(end);
        place.kind = scratch().files().kind(place.local);
        place.node = last ? &node : nullptr;
        return place;
      }
      if (node.from || node.type == Node::File || node.opaque) {
        place.under = node.from;
        place.underPath = node.fromPath;
      }
      if (last) {
        place.kind = node.type == Node::File ? Kind::File : Kind::Dir;
        place.node = &node;
        return place;
      }
    } else if (!place.under && end > 0) {
      return Place();
    }
    if (last)
      break;
    const std::size_t start = end == 0 ? 0 : end + 1;
    std::size_t next = path.find('/', start);
    if (next == std::string::npos)
      next = path.size();
    if (place.under)
      place.underPath = joinPath(place.underPath, path.substr(start, next - start));
    end = next;
  }
  if (path.empty() && !place.under)
    place.kind = Kind::Dir;
  else if (!place.under)
    place.kind = Kind::None;
  else
    place.kind = checkLast ? place.under->kind(place.underPath) : Kind::File;
  return place;
}

std::vector<std::string> Changes::childNodes(const std::string& dir) const {
  std::set<std::string> names;
  const std::string prefix = dir.empty() ? std::string() : dir + '/';
  auto it = m_nodes.lower_bound(prefix);
  while (it != m_nodes.end() && it->first.compare(0, prefix.size(), prefix) == 0) {
    const std::size_t slash = it->first.find('/', prefix.size());
    if (it->first.size() > prefix.size())
      names.insert(it->first.substr(prefix.size(), slash - prefix.size()));
    if (slash == std::string::npos) {
      ++it;
      continue;
    }
    // Skip what lies deeper below this child: "x0" follows every "x/..." key.
    it = m_nodes.lower_bound(it->first.substr(0, slash) + '0');
  }
  return std::vector<std::string>(names.begin(), names.end());
}

std::vector<Listed> Changes::list(const std::string& dir) const {
  const Place place = resolve(dir);
  if (place.kind != Kind::Dir)
    return {};
  if (!place.local.empty())
    return scratch().files().list(place.local);
  std::vector<Listed> entries;
  if (place.under)
    entries = place.under->list(place.underPath);
  const std::vector<std::string> changed = childNodes(dir);
  if (changed.empty())
    return entries;
  std::unordered_map<std::string, std::size_t> index;
  for (std::size_t i = 0; i < entries.size(); ++i)
    index.emplace(entries[i].name, i);
  std::vector<bool> gone(entries.size(), false);
  for (const std::string& name : changed) {
    const auto changedNode = m_nodes.find(joinPath(dir, name));
    const auto found = index.find(name);
    // Only deeper changes: a directory the source already shows.
    if (changedNode == m_nodes.end()) {
      if (found == index.end())
        entries.push_back({name, true});
      continue;
    }
    const Node& node = changedNode->second;
    if (node.type == Node::Whiteout) {
      if (found != index.end())
        gone[found->second] = true;
      continue;
    }
    const bool isDir = node.type == Node::Dir;
    if (found != index.end())
      entries[found->second].dir = isDir;
    else
      entries.push_back({name, isDir});
  }
  std::vector<Listed> result;
  result.reserve(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (i >= gone.size() || !gone[i])
      result.push_back(std::move(entries[i]));
  }
  return result;
}

bool Changes::showsSource(const std::string& path) const {
  if (!m_source || m_source->outdated())
    return false;
  if (m_nodes.empty())
    return true;
  if (path.empty() || m_nodes.count(path))
    return false;
  const std::string below = path + '/';
  const auto next = m_nodes.lower_bound(below);
  if (next != m_nodes.end() && next->first.compare(0, below.size(), below) == 0)
    return false;
  // Above it, only directories the view merely made or holds changes in.
  for (std::size_t end = 0;;) {
    const auto found = m_nodes.find(path.substr(0, end));
    if (found != m_nodes.end()) {
      const Node& node = found->second;
      if (node.type != Node::Dir || node.from || node.opaque || !node.local.empty())
        return false;
    }
    end = path.find('/', end + (end ? 1 : 0));
    if (end == std::string::npos)
      return true;
  }
}

std::optional<std::string> Changes::read(const std::string& path) const {
  const Place place = resolve(path, false);
  if (place.kind != Kind::File)
    return std::nullopt;
  if (!place.local.empty())
    return scratch().files().read(place.local);
  if (place.node && place.node->blob)
    return place.node->blob->bytes();
  return place.under ? place.under->read(place.underPath) : std::nullopt;
}

FILE* Changes::openRead(const std::string& path) const {
  const Place place = resolve(path, false);
  if (place.kind != Kind::File)
    return nullptr;
  if (!place.local.empty()) {
    const int fd = scratch().files().openFile(place.local);
    FILE* stream = fd >= 0 ? ::fdopen(fd, "rb") : nullptr;
    if (!stream && fd >= 0)
      ::close(fd);
    return stream;
  }
  if (place.node && place.node->blob) {
    std::optional<std::string> bytes = place.node->blob->bytes();
    return bytes ? openMemory(std::move(*bytes)) : nullptr;
  }
  return place.under ? place.under->open(place.underPath) : nullptr;
}

void Changes::put(const std::string& path, Node node) {
  eraseBelow(path);
  attach(node.from);
  m_nodes[path] = std::move(node);
}

bool Changes::dropOver(const std::string& path) {
  if (!m_source || path.empty())
    return false;
  const std::string parent = splitLast(path).first;
  const Place above = resolve(parent);
  if (above.kind != Kind::Dir || above.under != m_source || above.underPath != parent ||
      !above.local.empty())
    return false;
  eraseBelow(path);
  return true;
}

void Changes::eraseBelow(const std::string& path) {
  // Keys below path start with it, but not every key that does is below it: "a (2)" sorts
  // between "a" and "a/b", so the scan goes on past keys that are not within path.
  auto it = m_nodes.lower_bound(path);
  while (it != m_nodes.end() && it->first.compare(0, path.size(), path) == 0) {
    if (!isWithin(it->first, path)) {
      ++it;
      continue;
    }
    if (!it->second.local.empty())
      scratch().files().removeTree(it->second.local);
    it = m_nodes.erase(it);
  }
}

void Changes::writeFile(const std::string& path, std::string bytes) {
  Place place = resolve(path);
  if (place.kind == Kind::Dir)
    throw Exception("Could not write " + path + ": a directory is there");
  const std::string parent = splitLast(path).first;
  if (place.kind == Kind::None && place.local.empty()) {
    makeDir(parent, true);
    place = resolve(path);
  }
  if (!place.local.empty()) {
    putBeneath(scratch().files(), place.local, bytes, path);
    return;
  }
  // Bytes the source already holds there are no change.
  const Place above = resolve(parent);
  if (above.under && above.under == m_source &&
      joinPath(above.underPath, splitLast(path).second) == path &&
      m_source->kind(path) == Kind::File) {
    const std::optional<std::string> held = m_source->read(path);
    if (held && *held == bytes) {
      eraseBelow(path);
      return;
    }
  }
  Node node;
  node.type = Node::File;
  node.blob = makeBlob(std::move(bytes), [this]() -> Scratch& { return scratch(); });
  put(path, std::move(node));
}

void Changes::makeDir(const std::string& path, bool parents) {
  const Place place = resolve(path);
  if (place.kind == Kind::Dir)
    return;
  if (place.kind == Kind::File)
    throw Exception("Could not create directory " + path + ": a file is there");
  const std::string parent = splitLast(path).first;
  if (resolve(parent).kind != Kind::Dir) {
    if (!parents)
      throw PathNotFound(parent);
    makeDir(parent, true);
  }
  const Place again = resolve(path);
  if (!again.local.empty()) {
    if (!scratch().files().makeDirs(again.local))
      throwSystemError("Could not create directory " + path, lastError());
    return;
  }
  const auto found = m_nodes.find(path);
  Node node;
  node.opaque = found != m_nodes.end() && found->second.type == Node::Whiteout;
  put(path, std::move(node));
}

void Changes::remove(const std::string& path) {
  const Place place = resolve(path);
  if (place.kind == Kind::None)
    throw PathNotFound(path);
  if (!place.local.empty() && !place.node) {
    if (!scratch().files().removeTree(place.local))
      throwSystemError("Could not remove " + path, lastError());
    return;
  }
  eraseBelow(path);
  if (path.empty()) {
    Node top;
    top.opaque = true;
    if (m_source)
      m_nodes[path] = top;
    return;
  }
  if (resolve(path).kind != Kind::None) {
    Node whiteout;
    whiteout.type = Node::Whiteout;
    m_nodes[path] = whiteout;
  }
}

void Changes::copy(const Changes& other, const std::string& from, const std::string& path) {
  const Place source = other.resolve(from);
  const Place target = resolve(path);
  if (source.kind == Kind::None)
    throw PathNotFound(from);
  if (target.kind != Kind::None && target.kind != source.kind)
    remove(path);
  if (source.kind == Kind::File) {
    const bool held = source.local.empty() && !(source.node && source.node->blob);
    if (!held || !target.local.empty() || !source.under) {
      std::optional<std::string> bytes = other.read(from);
      if (!bytes)
        throw Exception("Could not read " + from);
      writeFile(path, std::move(*bytes));
      return;
    }
    makeDir(splitLast(path).first, true);
    if (source.under == m_source && source.underPath == path && resolve(path).kind == Kind::File &&
        !resolve(path).node)
      return;  // already what the own source holds there
    Node node;
    node.type = Node::File;
    node.from = source.under;
    node.fromPath = source.underPath;
    put(path, std::move(node));
    return;
  }
  // A directory: one change that reads the whole subtree from its source, when nothing of
  // it was changed and nothing is there yet.
  const bool untouched = source.local.empty() && source.under &&
                         (!source.node || !source.node->opaque || source.node->from) &&
                         other.childNodes(from).empty();
  if (untouched && resolve(path).kind == Kind::None && target.local.empty()) {
    makeDir(splitLast(path).first, true);
    Node node;
    node.from = source.under;
    node.fromPath = source.underPath;
    put(path, std::move(node));
    return;
  }
  makeDir(path, true);
  for (const Listed& entry : other.list(from))
    copy(other, joinPath(from, entry.name), joinPath(path, entry.name));
}

std::string Changes::localPath(const std::string& path) {
  const Place place = resolve(path);
  if (place.kind == Kind::None)
    return std::string();
  if (!place.local.empty())
    return (scratch().path() / place.local).native();
  const std::string name = scratch().newName();
  writeTree(*this, path, scratch().files(), name);
  Node node;
  node.type = place.kind == Kind::File ? Node::File : Node::Dir;
  node.local = name;
  put(path, std::move(node));
  return (scratch().path() / name).native();
}

void Changes::own(const std::string& path, Source& source, const std::string& sourcePath) {
  const auto found = m_nodes.find(path);
  Node* existing = found == m_nodes.end() ? nullptr : &found->second;
  const Kind kind = source.kind(sourcePath);
  if (existing && !plainDir(*existing))
    return;  // the model's own: written, removed, made anew, or copied from elsewhere
  Node node;
  if (kind == Kind::File) {
    std::optional<std::string> bytes = source.read(sourcePath);
    node.type = bytes ? Node::File : Node::Whiteout;
    if (bytes)
      node.blob = makeBlob(std::move(*bytes), [this]() -> Scratch& { return scratch(); });
    put(path, std::move(node));
    return;
  }
  if (kind == Kind::None) {
    node.type = existing ? Node::Dir : Node::Whiteout;
    node.opaque = true;
    m_nodes[path] = node;
    return;
  }
  // Changes already below stay: only what the source shows is taken.
  node.opaque = true;
  if (existing)
    *existing = node;
  else
    m_nodes[path] = node;
  for (const Listed& entry : source.list(sourcePath))
    own(joinPath(path, entry.name), source, joinPath(sourcePath, entry.name));
}

void Changes::preserve(const Source* source, const std::vector<std::string>& touched) {
  m_overwritten = m_overwritten || (source == m_source.get() && !touched.empty());
  // Changes that read from those paths take their bytes first.
  std::vector<std::string> referring;
  for (const auto& [path, node] : m_nodes) {
    if (node.from.get() != source)
      continue;
    for (const std::string& changed : touched) {
      if (isWithin(changed, node.fromPath) || isWithin(node.fromPath, changed)) {
        referring.push_back(path);
        break;
      }
    }
  }
  for (const std::string& path : referring) {
    const auto found = m_nodes.find(path);
    if (found == m_nodes.end() || !found->second.from)
      continue;
    const std::shared_ptr<Source> from = found->second.from;
    const std::string fromPath = found->second.fromPath;
    found->second.from.reset();
    found->second.type = Node::Dir;
    own(path, *from, fromPath);
  }
  if (m_source.get() != source)
    return;
  for (const std::string& path : touched) {
    const Place place = resolve(path);
    if (place.under == m_source && place.underPath == path &&
        (!place.node || plainDir(*place.node)))
      own(path, *m_source, path);
  }
}

namespace {
void collect(const Changes& view, const std::string& dir, const std::string& relative,
             bool recursive, std::vector<Listed>& out) {
  for (Listed& entry : view.list(dir)) {
    const std::string path = joinPath(relative, entry.name);
    const bool isDir = entry.dir;
    out.push_back({path, isDir});
    if (recursive && isDir)
      collect(view, joinPath(dir, entry.name), path, true, out);
  }
}
}  // namespace

std::vector<Listed> listTree(const Changes& view, const std::string& dir, bool recursive) {
  std::vector<Listed> entries;
  collect(view, dir, std::string(), recursive, entries);
  std::sort(entries.begin(), entries.end(),
            [](const Listed& a, const Listed& b) { return a.name < b.name; });
  return entries;
}

void writeEntry(const Changes& view, const std::string& from, bool dir, Beneath& target,
                const std::string& path, bool fresh) {
  if (dir) {
    if (!target.makeDirs(path))
      throwSystemError("Could not create directory " + path, lastError());
    return;
  }
  const std::optional<std::string> bytes = view.read(from);
  if (!bytes)
    throw Exception("Could not read " + from);
  putBeneath(target, path, *bytes, path, fresh);
}

void writeTree(const Changes& view, const std::string& from, Beneath& target,
               const std::string& path) {
  const Kind kind = view.resolve(from).kind;
  if (kind == Kind::None)
    throw PathNotFound(from);
  writeEntry(view, from, kind == Kind::Dir, target, path);
  if (kind != Kind::Dir)
    return;
  for (const Listed& entry : view.list(from))
    writeTree(view, joinPath(from, entry.name), target, joinPath(path, entry.name));
}

}  // namespace detail
}  // namespace project
}  // namespace zu
