#include "directory_commit.h"

#include "changes.h"
#include "directory_source.h"
#include "file_io.h"
#include "paths.h"

#include <zu/project/exceptions.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <set>
#include <unordered_map>

namespace zu {
namespace project {
namespace detail {

const char* const kPendingName = ".zuproject-pending";

namespace {

const char kRecord[] = "record";
const char kRecordNew[] = "record.new";
const char kDone[] = "done";

// One step of a save. Removals and stashes are not repeatable, so the record's "done"
// log notes each one made; the others check their staged entry and can run again.
struct Op {
  char type;  // R remove, A stash a moved tree, M place it, D make a directory, P put a file
  std::string first;
  std::string second;
  bool logged() const { return type == 'R' || type == 'A'; }
};

std::error_code lastError() {
  return std::error_code(errno, std::generic_category());
}

std::string serialize(const std::vector<Op>& ops) {
  std::string text;
  for (const Op& op : ops) {
    text += op.type;
    text += op.first;
    text += '\0';
    text += op.second;
    text += '\0';
  }
  return text;
}

std::vector<Op> parse(const std::string& text) {
  std::vector<Op> ops;
  std::size_t at = 0;
  while (at < text.size()) {
    Op op{text[at], std::string(), std::string()};
    const std::size_t first = text.find('\0', at + 1);
    const std::size_t second = first == std::string::npos ? first : text.find('\0', first + 1);
    if (second == std::string::npos)
      break;  // a torn record is never renamed into place; this is only defensive
    op.first = text.substr(at + 1, first - at - 1);
    op.second = text.substr(first + 1, second - first - 1);
    ops.push_back(std::move(op));
    at = second + 1;
  }
  return ops;
}

std::optional<std::string> readAt(int dirFd, const char* name) {
  const int fd = ::openat(dirFd, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0)
    return std::nullopt;
  std::optional<std::string> text = readAll(fd, kMaxFileSize);
  ::close(fd);
  return text;
}

bool existsAt(int dirFd, const std::string& name) {
  struct stat info;
  return ::fstatat(dirFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

// Makes the steps of a record, skipping those already logged; returns false when one
// failed. Every directory it changed is fsynced before it returns.
bool apply(Beneath& files, int pending, const std::vector<Op>& ops) {
  std::set<std::size_t> done;
  if (const std::optional<std::string> log = readAt(pending, kDone)) {
    std::size_t at = 0;
    while (at < log->size()) {
      const std::size_t end = log->find('\n', at);
      if (end == std::string::npos)
        break;
      done.insert(std::stoul(log->substr(at, end - at)));
      at = end + 1;
    }
  }
  const int logFd = ::openat(pending, kDone, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  std::set<std::string> changedDirs;
  bool ok = logFd >= 0;
  // Repeating a removal or stash only matters once something was made in its place, so
  // the log is flushed before each step that makes something, not after every entry.
  bool unsynced = false;
  for (std::size_t i = 0; i < ops.size() && logFd >= 0; ++i) {
    const Op& op = ops[i];
    if (op.logged() && done.count(i))
      continue;
    if (unsynced && !op.logged()) {
      io::sync(logFd, true);
      unsynced = false;
    }
    const std::string& target = op.type == 'M' || op.type == 'P' ? op.second : op.first;
    const auto [parent, name] = splitLast(target);
    changedDirs.insert(parent);
    bool stepOk = true;
    switch (op.type) {
      case 'R': stepOk = files.removeTree(target) || files.kind(target) == Kind::None; break;
      case 'A': {
        const int from = files.dir(parent);
        stepOk = from >= 0 && (io::renameAt(from, name.c_str(), pending, op.second.c_str()) == 0 ||
                               errno == ENOENT);
        files.forget();
        break;
      }
      case 'M':
      case 'P':
        if (existsAt(pending, op.first)) {
          const int to = files.dir(parent);
          // A link the source had there is replaced, never followed.
          if (to >= 0 && op.type == 'M' && files.kind(target) == Kind::None)
            io::unlinkAt(to, name.c_str(), 0);
          stepOk = to >= 0 && io::renameAt(pending, op.first.c_str(), to, name.c_str()) == 0;
          files.forget();
        }
        if (op.type == 'M')
          changedDirs.insert(target);
        break;
      case 'D': stepOk = files.makeDirs(target); break;
      default: stepOk = false;
    }
    ok = ok && stepOk;
    if (op.logged()) {
      const std::string line = std::to_string(i) + "\n";
      writeAll(logFd, line.data(), line.size());
      unsynced = true;
    }
  }
  if (logFd >= 0)
    ::close(logFd);
  // The renames must be on disk before the record goes; past a few directories one
  // filesystem flush is cheaper than one per directory.
  if (changedDirs.size() > 8) {
    io::syncFs(files.rootFd());
    return ok;
  }
  for (const std::string& dir : changedDirs) {
    const int fd = files.dir(dir);
    if (fd >= 0)
      io::sync(fd);
  }
  return ok;
}

// Opens the pending entry, locked against another save in the same directory.
int openPending(int root, bool create) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (create && ::mkdirat(root, kPendingName, 0700) != 0 && errno != EEXIST)
      return -1;
    const int fd = ::openat(root, kPendingName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
      return -1;
    struct stat info;
    if (::flock(fd, LOCK_EX) == 0 && ::fstat(fd, &info) == 0 && info.st_nlink > 0)
      return fd;
    ::close(fd);  // the save holding it finished and removed it meanwhile
  }
  return -1;
}

void closePending(int root, int pending) {
  // The record goes first, and for good: a record left without its done-log would replay
  // the save's removals over what the save made. Should it stay, so does the log.
  const bool unrecorded = io::unlinkAt(pending, kRecord, 0) == 0 || errno == ENOENT;
  if (unrecorded && io::sync(pending) == 0) {
    removeContents(pending);
    io::unlinkAt(root, kPendingName, AT_REMOVEDIR);
  }
  ::close(pending);
  io::sync(root);
}

// The first directory at path, or with tree at or below it, that its user cannot write;
// "" when there is none.
std::string lockedTree(Beneath& files, const std::string& path, bool tree) {
  const auto [parent, name] = splitLast(path);
  const int fd = path.empty() ? files.rootFd() : files.dir(parent);
  if (fd >= 0 && !writableAt(fd, path.empty() ? "." : name))
    return path.empty() ? "." : path;
  if (!tree)
    return std::string();
  for (const Listed& entry : files.list(path)) {
    if (!entry.dir)
      continue;
    const std::string locked = lockedTree(files, joinPath(path, entry.name), true);
    if (!locked.empty())
      return locked;
  }
  return std::string();
}

class Planner {
public:
  Planner(Changes& changes, DirectorySource& source, Beneath& files)
      : m_changes(changes), m_source(source), m_files(files) {}
  ~Planner() {
    if (m_pending >= 0)
      closePending(m_files.rootFd(), m_pending);
  }

  void plan();
  void run();

private:
  bool movable(const std::string& path, const Node& node) const;
  std::optional<std::string> basis(const std::string& path) const;
  Kind kindAt(const std::optional<std::string>& basis) const {
    return basis ? m_files.kind(*basis) : Kind::None;
  }
  void add(char type, const std::string& first, const std::string& second = std::string());
  void putFile(const std::string& path, const std::optional<std::string>& basis);
  void writeSubtree(const std::string& path, const std::optional<std::string>& basis);
  std::string stage(const std::string& bytes, mode_t mode);
  void refuseUnwritable();
  bool flushStaged() const;
  void openPendingOnce();

  Changes& m_changes;
  DirectorySource& m_source;
  Beneath& m_files;
  std::unordered_map<std::string, std::string> m_moves;  // target -> origin, renamed whole
  std::vector<std::string> m_stashed;                    // origins of those moves
  std::vector<std::string> m_handled;                    // subtrees written whole
  std::vector<Op> m_ops;
  std::vector<std::string> m_touched;
  int m_pending = -1;
  unsigned m_count = 0;
  std::vector<std::string> m_staged;
};

// A subtree moved inside the source is renamed, not copied, when nothing else still
// reads its origin.
bool Planner::movable(const std::string& path, const Node& node) const {
  const std::string& origin = node.fromPath;
  if (node.from.get() != &m_source || origin.empty() || isWithin(path, origin) ||
      isWithin(origin, path) || m_files.kind(origin) != Kind::Dir)
    return false;
  const Place seen = m_changes.resolve(origin);
  if (seen.under.get() == &m_source && seen.underPath == origin)
    return false;
  // A copy in scratch of a folder around the origin is written back against the origin.
  for (std::string above = origin;; above = splitLast(above).first) {
    const auto found = m_changes.nodes().find(above);
    if (found != m_changes.nodes().end() && !found->second.local.empty())
      return false;
    if (above.empty())
      break;
  }
  for (const auto& [other, otherNode] : m_changes.nodes()) {
    if (other != path && otherNode.from.get() == &m_source &&
        (isWithin(otherNode.fromPath, origin) || isWithin(origin, otherNode.fromPath)))
      return false;
  }
  return true;
}

// Where the directory holds what lies at path just before its own change is made, or
// nothing.
std::optional<std::string> Planner::basis(const std::string& path) const {
  std::size_t end = path.rfind('/');
  while (end != std::string::npos || !path.empty()) {
    const std::string ancestor = end == std::string::npos ? std::string() : path.substr(0, end);
    const auto found = m_changes.nodes().find(ancestor);
    if (found != m_changes.nodes().end()) {
      const auto move = m_moves.find(ancestor);
      if (move != m_moves.end())
        return joinPath(move->second, path.substr(ancestor.empty() ? 0 : ancestor.size() + 1));
      if (found->second.opaque || found->second.from)
        return std::nullopt;
    }
    if (ancestor.empty())
      break;
    end = ancestor.rfind('/');
  }
  // The path keeps its own place on disk, unless that place goes into the stash for a move.
  for (const std::string& stashed : m_stashed) {
    if (isWithin(path, stashed))
      return std::nullopt;
  }
  return path;
}

void Planner::add(char type, const std::string& first, const std::string& second) {
  m_ops.push_back({type, first, second});
  m_touched.push_back(type == 'M' || type == 'P' ? second : first);
}

void Planner::openPendingOnce() {
  if (m_pending >= 0)
    return;
  if (!writableAt(m_files.rootFd(), "."))
    throw Exception(m_source.root() + ": not writable, so nothing was saved");
  finishPendingSave(m_files);
  m_pending = openPending(m_files.rootFd(), true);
  if (m_pending < 0)
    throwSystemError("Could not prepare the save in " + m_source.root(), lastError());
}

// A flush of the whole filesystem also writes out whatever else is pending on it, which
// can take long on a busy disk: a small save flushes its own files instead.
bool Planner::flushStaged() const {
  if (m_staged.size() > 8)
    return io::syncFs(m_pending) == 0;
  for (const std::string& name : m_staged) {
    const int fd = ::openat(m_pending, name.c_str(), O_RDONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && io::sync(fd) == 0;
    if (fd >= 0)
      ::close(fd);
    if (!ok)
      return false;
  }
  return true;
}

std::string Planner::stage(const std::string& bytes, mode_t mode) {
  openPendingOnce();
  const std::string name = "f" + std::to_string(++m_count);
  const int fd = io::openAt(m_pending, name.c_str(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
  // Flushed before the record is written (flushStaged). What it replaces keeps its mode.
  bool ok = fd >= 0 && writeAll(fd, bytes.data(), bytes.size()) &&
            (mode == 0644 || ::fchmod(fd, mode) == 0);
  std::error_code reason = lastError();
  if (fd >= 0 && io::close(fd) != 0 && ok) {
    ok = false;
    reason = lastError();
  }
  if (!ok)
    throwSystemError("Could not write in " + m_source.root(), reason);
  m_staged.push_back(name);
  return name;
}

void Planner::putFile(const std::string& path, const std::optional<std::string>& basis) {
  const std::optional<std::string> bytes = m_changes.read(path);
  if (!bytes)
    throw Exception("Could not read " + path + " to save it");
  const Kind there = kindAt(basis);
  if (there == Kind::File) {
    const std::optional<std::string> held = m_files.read(*basis);
    if (held && *held == *bytes)
      return;
  }
  if (there == Kind::Dir)
    add('R', path);
  mode_t mode = 0644;
  if (there == Kind::File) {
    if (const std::optional<struct stat> old = m_files.status(*basis))
      mode = old->st_mode & 07777;
  }
  add('P', stage(*bytes, mode), path);
}

void Planner::writeSubtree(const std::string& path, const std::optional<std::string>& basis) {
  const Kind there = kindAt(basis);
  if (m_changes.resolve(path).kind == Kind::File) {
    putFile(path, basis);
    return;
  }
  if (there == Kind::File)
    add('R', path);
  if (there != Kind::Dir)
    add('D', path);
  std::set<std::string> seen;
  for (const Listed& entry : m_changes.list(path)) {
    seen.insert(entry.name);
    writeSubtree(joinPath(path, entry.name),
                 there == Kind::Dir ? std::optional<std::string>(joinPath(*basis, entry.name))
                                    : std::nullopt);
  }
  if (there == Kind::Dir) {
    for (const Listed& entry : m_files.list(*basis)) {
      if (!seen.count(entry.name))
        add('R', joinPath(path, entry.name));
    }
  }
}

void Planner::plan() {
  for (const auto& [path, node] : m_changes.nodes()) {
    if (node.type == Node::Dir && node.local.empty() && movable(path, node)) {
      m_moves.emplace(path, node.fromPath);
      m_stashed.push_back(node.fromPath);
    }
  }
  // Deeper origins first, so that each is still where it was when stashed.
  std::vector<std::pair<std::string, std::string>> moves(m_moves.begin(), m_moves.end());
  std::sort(moves.begin(), moves.end(),
            [](const auto& a, const auto& b) { return a.second > b.second; });
  std::unordered_map<std::string, std::string> stash;
  for (const auto& [target, origin] : moves) {
    stash[target] = "m" + std::to_string(++m_count);
    add('A', origin, stash[target]);
  }

  for (const auto& [path, node] : m_changes.nodes()) {
    bool inside = false;
    for (const std::string& handled : m_handled)
      inside = inside || isWithin(path, handled);
    if (inside)
      continue;
    const std::optional<std::string> base = basis(path);
    const Kind there = kindAt(base);
    if (path.empty()) {  // the top emptied, or brought into scratch whole
      if (!node.local.empty()) {
        m_handled.push_back(path);
        writeSubtree(path, base);
      } else if (node.opaque) {
        for (const Listed& entry : m_files.list(std::string()))
          add('R', entry.name);
      }
      continue;
    }
    if (node.type == Node::Whiteout) {
      if (there != Kind::None)
        add('R', path);
    } else if (node.type == Node::File) {
      putFile(path, base);
    } else if (!node.local.empty() || (node.from && !m_moves.count(path))) {
      m_handled.push_back(path);
      writeSubtree(path, base);
    } else if (node.from || node.opaque) {
      if (there != Kind::None)
        add('R', path);
      if (node.from)
        add('M', stash[path], path);
      else
        add('D', path);
    } else if (there != Kind::Dir) {
      if (there == Kind::File)
        add('R', path);
      add('D', path);
    }
  }
}

void Planner::run() {
  if (m_ops.empty())
    return;
  std::vector<std::string> replaced;
  for (const Op& op : m_ops) {
    if (op.type != 'D')
      replaced.push_back(op.type == 'M' || op.type == 'P' ? op.second : op.first);
  }
  const std::vector<std::string> changed = m_source.conflicts(replaced);
  if (!changed.empty()) {
    std::string names;
    for (const std::string& path : changed)
      names += (names.empty() ? "" : ", ") + path;
    throw Conflict(m_source.root() +
                   ": changed by another writer since read, so nothing was saved: " + names);
  }
  refuseUnwritable();
  openPendingOnce();
  // Other models of this process reading this directory, through this load or another,
  // keep what they see.
  std::vector<std::shared_ptr<Source>> others = sourcesAt(m_source.path());
  std::vector<Source*> readers{&m_source};
  for (const std::shared_ptr<Source>& other : others) {
    if (other.get() != &m_source)
      readers.push_back(other.get());
  }
  for (Source* reader : readers) {
    for (Changes* holder : reader->holders()) {
      if (holder != &m_changes)
        holder->preserve(reader, m_touched);
    }
  }
  // The staged files are on disk before the record that names them.
  if (!flushStaged())
    throwSystemError("Could not write in " + m_source.root(), lastError());
  const std::string record = serialize(m_ops);
  const int fd = io::openAt(m_pending, kRecordNew, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  bool written = fd >= 0 && writeAll(fd, record.data(), record.size()) && io::sync(fd) == 0;
  std::error_code reason = lastError();
  if (fd >= 0 && io::close(fd) != 0 && written) {
    written = false;
    reason = lastError();
  }
  if (!written || io::renameAt(m_pending, kRecordNew, m_pending, kRecord) != 0 ||
      io::sync(m_pending) != 0)
    throwSystemError("Could not record the save in " + m_source.root(),
                     written ? lastError() : reason);
  // From here on the save is made, now or by the next load.
  const int root = m_files.rootFd();
  const bool ok = apply(m_files, m_pending, m_ops);
  io::sync(root);
  if (!ok) {
    // The record stays, so that the next open finishes the save rather than leave a mix.
    ::close(m_pending);
    m_pending = -1;
    throw Exception("Could not finish saving " + m_source.root() +
                    "; the next open of it finishes the save");
  }
  closePending(root, m_pending);
  m_pending = -1;
  // Their next save is this process's, and no other writer's.
  for (Source* reader : readers)
    reader->settle(m_touched);
}

// Checked before anything is recorded, so that a save never stops half-made for want of a
// permission: each directory a step changes, each file it replaces and each tree it removes
// must be writable by the user, as Qt's save-file class asks of the file it replaces.
void Planner::refuseUnwritable() {
  for (const Op& op : m_ops) {
    const std::string& target = op.type == 'M' || op.type == 'P' ? op.second : op.first;
    const auto [parent, name] = splitLast(target);
    std::string locked = lockedTree(m_files, parent, false);
    if (locked.empty() && m_files.kind(target) == Kind::File &&
        !writableAt(m_files.dir(parent), name))
      locked = target;
    if (locked.empty() && (op.type == 'R' || op.type == 'A') && m_files.kind(target) == Kind::Dir)
      locked = lockedTree(m_files, target, true);
    if (!locked.empty())
      throw Exception(m_source.root() + "/" + locked + ": not writable, so nothing was saved");
  }
}

}  // namespace

void commitToDirectory(Changes& changes, DirectorySource& source) {
  source.withFiles([&](Beneath& files) {
    Planner planner(changes, source, files);
    planner.plan();
    planner.run();
    files.forget();
  });
  changes.reset(changes.source());
}

void finishPendingSave(Beneath& files) {
  const int root = files.rootFd();
  struct stat info;
  if (::fstatat(root, kPendingName, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(info.st_mode))
    return;
  const int pending = openPending(root, false);
  if (pending < 0)
    return;
  if (const std::optional<std::string> record = readAt(pending, kRecord))
    apply(files, pending, parse(*record));
  files.forget();
  closePending(root, pending);
}

}  // namespace detail
}  // namespace project
}  // namespace zu
