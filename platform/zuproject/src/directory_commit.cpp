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
#include <utility>

namespace zu {
namespace project {
namespace detail {

const char* const kPendingName = ".zuproject-pending";

namespace {

const char kRecord[] = "record";
const char kRecordNew[] = "record.new";
const char kDone[] = "done";

// One step of a save. What a step removes or replaces waits aside in the pending entry until
// the save is made, so that a save that fails half-way can put back what it changed. Removals
// and stashes are not repeatable, so the "done" log notes each one made before anything is
// made in its place; the others check their staged entry and can run again.
struct Op {
  char type;  // R remove, A stash a moved tree, M place it, D make a directory, P put a file
  std::string first;
  std::string second;
  bool logged() const { return type == 'R' || type == 'A'; }
  const std::string& target() const { return type == 'M' || type == 'P' ? second : first; }
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
  return dirFd >= 0 && ::fstatat(dirFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

// The steps of a recorded save, made or taken back. The log holds "N" for each step made,
// then, once the save is being taken back, "u" and "uN" for each step put back; a torn last
// line is left to the checks on disk. Every directory changed is fsynced at the end.
class Steps {
public:
  Steps(Beneath& files, int pending, std::vector<Op> ops)
      : m_files(files), m_pending(pending), m_ops(std::move(ops)) {
    if (const std::optional<std::string> log = readAt(pending, kDone)) {
      for (std::size_t at = 0, end; (end = log->find('\n', at)) != std::string::npos;
           at = end + 1) {
        const bool back = log->compare(at, 1, "u") == 0;
        m_undoing = m_undoing || back;
        const std::string number = log->substr(at + back, end - at - back);
        if (!number.empty() && number.find_first_not_of("0123456789") == std::string::npos)
          (back ? m_undone : m_done).insert(std::stoul(number));
      }
    }
    m_log = ::openat(pending, kDone, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (m_log < 0) {
      m_error = lastError();
      m_failed = std::string(kPendingName) + "/" + kDone;
    }
  }
  ~Steps();
  Steps(const Steps&) = delete;
  Steps& operator=(const Steps&) = delete;

  /// Makes the steps not made yet, stopping at the first that fails (false; failure() tells).
  bool forward();
  /// Puts back, last first, every step made; false when one could not be.
  bool backward();
  /// Goes on as a save cut short was going: forward, or back once forward fails.
  bool finish() { return (!m_undoing && forward()) || backward(); }
  /// The path of the step that failed first, with the system's reason.
  std::string failure() const { return m_failed + ": " + m_error.message(); }

private:
  bool make(std::size_t i);
  bool putBack(std::size_t i);
  // The directory (-1 when it is missing) and the name a step changes; the directory is
  // noted for the flush at the end.
  std::pair<int, std::string> targetOf(const Op& op);
  bool note(const std::string& line, bool flush);
  // What a removal moved aside, or what a placed entry replaced.
  static std::string aside(char prefix, std::size_t i) { return prefix + std::to_string(i); }

  Beneath& m_files;
  int m_pending;
  std::vector<Op> m_ops;
  int m_log = -1;
  std::set<std::size_t> m_done;
  std::set<std::size_t> m_undone;
  bool m_undoing = false;
  std::set<std::string> m_changedDirs;
  std::error_code m_error;
  std::string m_failed;
};

Steps::~Steps() {
  if (m_log >= 0)
    ::close(m_log);
  // The renames must be on disk before the record goes; past a few directories one
  // filesystem flush is cheaper than one per directory.
  if (m_changedDirs.size() > 8) {
    io::syncFs(m_files.rootFd());
    return;
  }
  for (const std::string& dir : m_changedDirs) {
    const int fd = m_files.dir(dir);
    if (fd >= 0)
      io::sync(fd);
  }
}

bool Steps::note(const std::string& line, bool flush) {
  const std::string text = line + "\n";
  return m_log >= 0 && writeAll(m_log, text.data(), text.size()) &&
         (!flush || io::sync(m_log, true) == 0);
}

std::pair<int, std::string> Steps::targetOf(const Op& op) {
  auto [parent, name] = splitLast(op.target());
  m_changedDirs.insert(parent);
  return {m_files.dir(parent), std::move(name)};
}

bool Steps::make(std::size_t i) {
  const Op& op = m_ops[i];
  const auto [dir, name] = targetOf(op);
  bool ok = true;
  switch (op.type) {
    case 'R':
    case 'A': {
      const std::string to = op.type == 'A' ? op.second : aside('t', i);
      // A removal without a parent has nothing to remove; a stash must find its origin's.
      ok = dir >= 0 ? io::renameAt(dir, name.c_str(), m_pending, to.c_str()) == 0 || errno == ENOENT
                    : op.type == 'R';
      break;
    }
    case 'M':
    case 'P': {
      if (!existsAt(m_pending, op.first))
        break;  // placed already
      // A file replaced keeps its place meanwhile through a second link, so that it is
      // replaced in one step; a link the source had there goes aside, never followed.
      const std::string replaced = aside('b', i);
      ok = dir >= 0 &&
           (existsAt(m_pending, replaced) || !existsAt(dir, name) ||
            (op.type == 'P' && ::linkat(dir, name.c_str(), m_pending, replaced.c_str(), 0) == 0) ||
            io::renameAt(dir, name.c_str(), m_pending, replaced.c_str()) == 0) &&
           io::renameAt(m_pending, op.first.c_str(), dir, name.c_str()) == 0;
      if (op.type == 'M')
        m_changedDirs.insert(op.second);
      break;
    }
    case 'D': return m_files.makeDirs(op.first);
    default: errno = EINVAL; return false;
  }
  if (!ok && !errno)
    errno = ENOENT;
  m_files.forget();
  return ok;
}

bool Steps::putBack(std::size_t i) {
  const Op& op = m_ops[i];
  const auto [dir, name] = targetOf(op);
  bool ok = true;
  switch (op.type) {
    case 'R':
    case 'A': {
      const std::string from = op.type == 'A' ? op.second : aside('t', i);
      if (existsAt(m_pending, from))
        ok = dir >= 0 && io::renameAt(m_pending, from.c_str(), dir, name.c_str()) == 0;
      break;
    }
    case 'M':
    case 'P': {
      // Placed once its staged entry is gone, which for a stash means once it was made.
      bool placed = !existsAt(m_pending, op.first);
      for (std::size_t j = 0; placed && op.type == 'M' && j < i; ++j) {
        if (m_ops[j].type == 'A' && m_ops[j].second == op.first)
          placed = m_done.count(j) != 0;
      }
      if (placed && existsAt(dir, name))
        ok = io::renameAt(dir, name.c_str(), m_pending, op.first.c_str()) == 0;
      const std::string replaced = aside('b', i);
      if (ok && existsAt(m_pending, replaced))
        ok = dir >= 0 && io::renameAt(m_pending, replaced.c_str(), dir, name.c_str()) == 0;
      break;
    }
    case 'D':
      // A directory someone filled meanwhile stays.
      return !m_done.count(i) || dir < 0 || io::unlinkAt(dir, name.c_str(), AT_REMOVEDIR) == 0 ||
             errno == ENOENT || errno == ENOTEMPTY || errno == EEXIST;
    default: return true;
  }
  m_files.forget();
  return ok;
}

bool Steps::forward() {
  // Repeating a removal or stash only matters once something was made in its place, so
  // the log is flushed before each step that makes something, not after every entry.
  bool unsynced = false;
  for (std::size_t i = 0; i < m_ops.size() && m_log >= 0; ++i) {
    if (m_done.count(i))
      continue;
    if (unsynced && !m_ops[i].logged()) {
      io::sync(m_log, true);
      unsynced = false;
    }
    errno = 0;
    const bool made = make(i);
    if (made)
      m_done.insert(i);
    // A step the log does not hold could be repeated over what follows it.
    if (!made || !note(std::to_string(i), false)) {
      m_error = lastError();
      m_failed = m_ops[i].target();
      return false;
    }
    unsynced = unsynced || m_ops[i].logged();
  }
  return m_log >= 0;
}

bool Steps::backward() {
  // Noted before the first step goes back, so that a save cut short meanwhile goes on back;
  // without room for the note, what can be put back still is.
  if (!m_undoing)
    note("u", true);
  m_undoing = true;
  for (std::size_t i = m_ops.size(); i-- > 0;) {
    if (m_undone.count(i))
      continue;
    if (!putBack(i)) {
      if (m_failed.empty()) {
        m_error = lastError();
        m_failed = m_ops[i].target();
      }
      return false;
    }
    m_undone.insert(i);
    note("u" + std::to_string(i), true);
  }
  return true;
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
  // Every step but a new directory is checked against what the model read at replaced:
  // where the directory holds now what the step replaces or removes. That is the step's own
  // path unless said otherwise, and nothing where the save itself empties the place first.
  void add(char type, const std::string& first, const std::string& second = std::string());
  void add(char type, const std::string& first, const std::string& second,
           const std::optional<std::string>& replaced);
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
  std::vector<std::string> m_replaced;
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
  add(type, first, second, type == 'M' || type == 'P' ? second : first);
}

void Planner::add(char type, const std::string& first, const std::string& second,
                  const std::optional<std::string>& replaced) {
  m_ops.push_back({type, first, second});
  m_touched.push_back(m_ops.back().target());
  if (replaced && type != 'D')
    m_replaced.push_back(*replaced);
}

void Planner::openPendingOnce() {
  if (m_pending >= 0)
    return;
  if (!writableAt(m_files.rootFd(), "."))
    throw Exception(m_source.root() + ": not writable, so nothing was saved");
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
    add('R', path, std::string(), basis);
  mode_t mode = 0644;
  if (there == Kind::File) {
    if (const std::optional<struct stat> old = m_files.status(*basis))
      mode = old->st_mode & 07777;
  }
  add('P', stage(*bytes, mode), path, basis);
}

void Planner::writeSubtree(const std::string& path, const std::optional<std::string>& basis) {
  const Kind there = kindAt(basis);
  if (m_changes.resolve(path).kind == Kind::File) {
    putFile(path, basis);
    return;
  }
  if (there == Kind::File)
    add('R', path, std::string(), basis);
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
      if (seen.count(entry.name))
        continue;
      // What the model never knew was there goes with its folder, as a whole removed
      // folder's content does: only what it read is checked.
      const std::string old = joinPath(*basis, entry.name);
      add('R', joinPath(path, entry.name), std::string(),
          entry.dir || m_source.knows(old) ? std::optional<std::string>(old) : std::nullopt);
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
        add('R', path, std::string(), base);
    } else if (node.type == Node::File) {
      putFile(path, base);
    } else if (!node.local.empty() || (node.from && !m_moves.count(path))) {
      m_handled.push_back(path);
      writeSubtree(path, base);
    } else if (node.from || node.opaque) {
      if (there != Kind::None)
        add('R', path, std::string(), base);
      if (node.from)
        add('M', stash[path], path, base);
      else
        add('D', path);
    } else if (there != Kind::Dir) {
      if (there == Kind::File)
        add('R', path, std::string(), base);
      add('D', path);
    }
  }
}

void Planner::run() {
  if (m_ops.empty())
    return;
  const std::vector<std::string> changed = m_source.conflicts(m_replaced);
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
  // From here on the save is made, now or by the next load, or taken back whole.
  const int root = m_files.rootFd();
  bool made = true;
  bool back = true;
  std::string failure;
  {
    Steps steps(m_files, m_pending, m_ops);
    made = steps.forward();
    // A step that cannot be made now may never be: what was made goes back, so that the
    // directory stays as this model read it and the model can save again.
    if (!made) {
      failure = steps.failure();
      back = steps.backward();
    }
  }
  io::sync(root);
  for (Source* reader : readers)
    reader->forget();
  if (!back) {
    // The record stays, and the next open goes on putting back what this save changed.
    ::close(m_pending);
    m_pending = -1;
    throw Exception("Could not save " + m_source.root() + "/" + failure +
                    "; the next open of it puts back what was changed");
  }
  closePending(root, m_pending);
  m_pending = -1;
  if (!made)
    throw Exception("Could not save " + m_source.root() + "/" + failure + "; nothing was saved");
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
    // What this save plans from is the directory as a save cut short there leaves it.
    if (!finishPendingSave(files))
      throw Exception(source.root() +
                      ": an earlier save there could not be finished, so nothing was saved");
    Planner planner(changes, source, files);
    planner.plan();
    planner.run();
    files.forget();
  });
  changes.reset(changes.source());
}

bool finishPendingSave(Beneath& files) {
  const int root = files.rootFd();
  struct stat info;
  if (::fstatat(root, kPendingName, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(info.st_mode))
    return true;
  const int pending = openPending(root, false);
  if (pending < 0)
    return false;
  bool finished = true;
  if (const std::optional<std::string> record = readAt(pending, kRecord))
    finished = Steps(files, pending, parse(*record)).finish();
  files.forget();
  // Unfinished, everything the save moved aside stays in the pending entry for a later try.
  if (finished)
    closePending(root, pending);
  else
    ::close(pending);
  return finished;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
