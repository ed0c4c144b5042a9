// Differential soak of zu::project::ProjectModel: seeded random operations over its whole
// public API, each checked against a plain map of paths, every save against the disk and a
// fresh model; with --kills, some saves in place are first killed at each write step in a
// child. Each failure prints its form, seed and a shrunk sequence of operations.
// Usage: model_soak [--seconds S | --seeds A-B] [--ops N] [--form dir|zip|both] [--kills]
#include <zu/project/project_model.h>

#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <vector>

namespace fs = std::filesystem;
using namespace zu::project;

namespace {

enum Outcome { Ok, Thrown, NotFound };  // what the oracle expects of an operation
struct Failure {
  std::string label, detail;  // the label names the fault alike for every seed
};
struct Op {
  int kind, model, x;
  bool f;
  std::string a, b;  // paths, or a path and bytes
};
struct Stats {
  long seeds = 0, ops = 0, saves = 0, kills = 0, failures = 0;
};
enum Kind { Write, Fopen, Look, Mkdir, Remove, Move, Import, Export, Local, Meta, Save, Load, Two };
const char* const kNames[] = {"writeFile",        "fopen",       "look",       "mkdir",
                              "remove",           "move",        "importFile", "exportFile",
                              "getFileLocalPath", "setMetadata", "save",       "load",
                              "second model"};
const int kWeights[] = {12, 10, 10, 6, 6, 10, 9, 2, 4, 3, 8, 1, 4};
const char* const kModes[] = {"r", "rb", "r+", "w", "w+", "a", "a+"};

void check(bool ok, const std::string& label, const std::string& detail = "") {
  if (!ok)
    throw Failure{label, detail};
}
QString q(const std::string& s) {
  return QString::fromUtf8(s.data(), int(s.size()));
}
std::string str(const QString& s) {
  return s.toStdString();
}
std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
std::string quote(const std::string& s) {  // bytes that would not print are counted
  const bool binary =
      s.size() > 40 || std::any_of(s.begin(), s.end(), [](char c) { return c >= 0 && c < 32; });
  return binary ? "<" + std::to_string(s.size()) + " bytes>" : "\"" + s + "\"";
}
std::string typeName(const Exception& e) {
  return dynamic_cast<const PathNotFound*>(&e)    ? "PathNotFound"
         : dynamic_cast<const Conflict*>(&e)      ? "Conflict"
         : dynamic_cast<const CorruptedFile*>(&e) ? "CorruptedFile"
                                                  : "Exception";
}
bool inside(const std::string& base, const std::string& p) {  // strictly below base
  return p.size() > base.size() && p.compare(0, base.size(), base) == 0 &&
         (base.empty() || p[base.size()] == '/');
}
std::string parentOf(const std::string& p) {
  return p.find('/') == std::string::npos ? "" : p.substr(0, p.rfind('/'));
}

// ---- Operations, generated up front from the seed so that a replay may drop some.
std::string randomPath(std::mt19937& r) {
  const auto pick = [&](std::initializer_list<const char*> names) {
    return std::string(*(names.begin() + r() % names.size()));
  };
  std::string p = pick({"a", "b", "d", "f", "a b", "\xc3\xa9"});
  for (unsigned depth = r() % 20 < 10 ? 1 : r() % 3 ? 2 : 3; --depth > 0;)
    p += "/" + pick({"a", "b", "d", "f", "a b", "\xc3\xa9"});
  switch (r() % 40) {  // now and then an odd form, the top, or a name no path may hold
    case 0: return "./" + p + "/../b";
    case 1: return "a//" + p;
    case 2: return "../" + p;
    case 3: return p + "/..";
    case 4: return "";
    case 5: return ".zuproject-pending/" + p;
    case 6: return p + "/" + pick({".git", ".hg", ".svn", ".bzr", "_darcs", "CVS", "__MACOSX"});
    default: return p;
  }
}
std::vector<Op> generate(unsigned seed, int count) {
  std::mt19937 r(seed);
  std::discrete_distribution<int> kind(std::begin(kWeights), std::end(kWeights));
  std::vector<Op> ops;
  for (int i = 0; i < count; ++i) {
    Op op{
        i < 6 ? Write : i == 6 ? Save : kind(r), r() % 3 == 0, int(r() % 7), r() % 2 == 0, "", ""};
    op.a = randomPath(r);
    const unsigned size = r() % 20;
    op.b.resize(size < 2 ? 0 : size < 17 ? 1 + r() % 8 : size < 19 ? r() % 3000 : 70000);
    for (char& c : op.b)
      c = char(op.b.size() > 8 ? r() : 'a' + r() % 26);
    if (op.kind == Move || op.kind == Import)
      op.b = randomPath(r);
    ops.push_back(op);
  }
  return ops;
}

// ---- The oracle: a model's view as paths to bytes, nullopt for a directory.
struct Tree : std::map<std::string, std::optional<std::string>> {
  int kind(const std::string& p) const {  // 0 absent, 1 file, 2 directory ("" is the top)
    const auto it = find(p);
    return p.empty() ? 2 : it == end() ? 0 : it->second ? 1 : 2;
  }
  Tree below(const std::string& p) const {  // named relative to p
    Tree out;
    for (const auto& [path, v] : *this)
      if (inside(p, path))
        out[path.substr(p.empty() ? 0 : p.size() + 1)] = v;
    return out;
  }
  void drop(const std::string& p) {
    for (auto it = begin(); it != end();)
      it = it->first == p || inside(p, it->first) ? erase(it) : std::next(it);
  }
  void put(const std::string& p, const std::optional<std::string>& v) {  // with its parents
    for (std::string up = parentOf(p); !up.empty(); up = parentOf(up))
      if (emplace(up, std::nullopt).first->second)
        throw Thrown;  // a file on the way
    (*this)[p] = v;
  }
};
// The values each ".metadata" the model wrote stands for: the oracle keeps it as a file.
std::map<std::string, std::map<std::string, std::string>> gMetadata;
std::map<std::string, std::string> valuesOf(const Tree& t) {
  const auto file = t.find(".metadata");
  return file != t.end() && file->second ? gMetadata[*file->second]
                                         : std::map<std::string, std::string>();
}

std::optional<std::string> normalize(const std::string& path) {
  static const std::set<std::string> foreign{".git",   ".hg", ".svn",    ".bzr",
                                             "_darcs", "CVS", "__MACOSX"};
  std::vector<std::string> steps;
  for (std::size_t start = 0, end; start <= path.size(); start = end + 1) {
    end = std::min(path.find('/', start), path.size());
    const std::string step = path.substr(start, end - start);
    if (step == ".." && steps.empty())
      return std::nullopt;
    if (step == "..")
      steps.pop_back();
    else if (!step.empty() && step != ".")
      steps.push_back(step);
  }
  std::string out;
  for (const std::string& step : steps) {
    if (foreign.count(step) || (out.empty() && step == ".zuproject-pending"))
      return std::nullopt;
    out += (out.empty() ? "" : "/") + step;
  }
  return out;
}
std::string inModel(const std::string& raw) {
  const std::optional<std::string> path = normalize(raw);
  return path ? *path : throw NotFound;
}
// What each operation does to the tree, or how it refuses (throwing the Outcome).
void expectWrite(Tree& t, const Op& op) {
  const std::string p = inModel(op.a);
  t.kind(p) == 2 ? throw Thrown : t.put(p, op.b);
}
void expectMkdir(Tree& t, const Op& op) {
  const std::string p = inModel(op.a);
  if (t.kind(p) == 1 || (!t.kind(p) && !op.f && t.kind(parentOf(p)) != 2))
    throw Thrown;
  if (!p.empty())
    t.put(p, std::nullopt);
}
void expectRemove(Tree& t, const Op& op) {
  const std::string p = inModel(op.a);
  !t.kind(p) ? throw NotFound : p.empty() ? t.clear() : t.drop(p);
}
void expectMove(Tree& t, const Op& op) {
  const std::string from = inModel(op.a), to = inModel(op.b);
  if (from != to && (inside(from, to) || inside(to, from) || (t.kind(to) && !op.f)))
    throw Thrown;  // any exception: an absent source may be found first
  if (!t.kind(from) || from == to)
    return t.kind(from) ? void() : throw NotFound;
  const Tree moved = t.below(from);
  const std::optional<std::string> top = t.at(from);
  t.drop(from);
  t.drop(to);
  t.put(to, top);
  for (const auto& [rel, v] : moved)
    t[to + "/" + rel] = v;
}
void expectImport(Tree& t, const Tree& source, bool self, const Op& op) {
  const std::string from = inModel(op.a), to = inModel(op.b);
  const int kind = source.kind(from), there = t.kind(to);
  if (self && from == to)
    return kind ? void() : throw NotFound;
  if ((self && (inside(from, to) || inside(to, from))) || (there && !op.f) ||
      (kind == 1 && to.empty()))
    throw Thrown;  // any exception: an absent source may be found first
  if (!kind)
    throw NotFound;
  if (kind == 1 || there == 1)
    t.drop(to);
  if (!to.empty())
    t.put(to, kind == 1 ? source.at(from) : std::nullopt);
  for (const auto& [rel, v] : source.below(from)) {  // a merge: files replaced, folders kept
    const std::string path = to.empty() ? rel : to + "/" + rel;
    if (!normalize(path))
      throw Thrown;
    if (v || t.kind(path) == 1)
      t.drop(path);
    t[path] = v;
  }
}

// Whether the model's action and the oracle agree on the outcome; the oracle's copy of the
// tree replaces the tree only when the action should succeed.
bool agree(Tree* tree, const std::function<void(Tree&)>& expect, const std::function<void()>& act) {
  Tree next = tree ? *tree : Tree();
  Outcome want = Ok, got = Ok;
  try {
    expect(next);
  } catch (Outcome o) {
    want = o;
  }
  std::string what, type;
  try {
    act();
  } catch (const Exception& e) {
    got = dynamic_cast<const PathNotFound*>(&e) ? NotFound : Thrown;
    what = (type = typeName(e)) + ": " + e.what();
  }
  check(want != Ok || got == Ok, "unexpected " + type, what);
  check(want == Ok || got != Ok, want == NotFound ? "no PathNotFound" : "no exception");
  check(want != NotFound || got == NotFound, "throws " + type + ", not PathNotFound", what);
  if (want == Ok && tree)
    *tree = std::move(next);
  return want == Ok;
}
using Note = std::function<void(const std::string& label, const std::string& detail)>;
// Runs fn; notes the failure or the exception it lets out. Whether it went through.
bool guarded(const std::function<void()>& fn, const Note& note) {
  try {
    fn();
    return true;
  } catch (const Failure& f) {
    note(f.label, f.detail);
  } catch (const Exception& e) {
    note("unexpected " + typeName(e), e.what());
  } catch (const std::exception& e) {
    note("unexpected std::exception", e.what());
  }
  return false;
}

// ---- What the model and the disk show.
std::string diff(const Tree& want, const Tree& got) {
  std::string out;
  const auto show = [](const auto& v) { return v ? quote(*v) : std::string("a folder"); };
  for (const auto& [p, v] : want)
    if (!got.count(p) || got.at(p) != v)
      out += "; " + quote(p) +
             (got.count(p) ? " is " + show(got.at(p)) + ", not " + show(v) : " missing");
  for (const auto& entry : got)
    out += want.count(entry.first) ? "" : "; " + quote(entry.first) + " extra";
  return out.substr(std::min<std::size_t>(2, out.size()), 300);
}
std::vector<std::string> list(const ProjectModel& p, const std::string& dir, int kinds, bool all) {
  std::vector<std::string> out;
  for (const QString& name : p.getFileList(q(dir), kinds & 1, kinds & 2, all))
    out.push_back(str(name));
  return out;
}
Tree view(const ProjectModel& p) {
  Tree t;
  const std::vector<std::string> names = list(p, "", 3, true);
  check(std::adjacent_find(names.begin(), names.end(), std::greater_equal<>()) == names.end(),
        "listing not sorted byte-wise");
  for (const std::string& name : names) {
    const QByteArray bytes = p.readFile(q(name));
    check(p.hasFile(q(name)) != p.hasDir(q(name)) && (p.hasDir(q(name)) || !bytes.isNull()),
          "listed entry neither file nor folder", quote(name));
    t[name] = p.hasDir(q(name)) ? std::nullopt : std::optional<std::string>(bytes.toStdString());
  }
  return t;
}
void verify(const ProjectModel& p, const Tree& want, const std::string& who) {
  const Tree got = view(p);
  check(got == want, "view differs", who + ": " + diff(want, got));
  const std::map<std::string, std::string> values = valuesOf(want);
  for (const char* key : {"k1", "k2", "k3"})
    check(str(p.getMetadata(key)) == (values.count(key) ? values.at(key) : ""), "metadata differs",
          who + ": " + key);
}
Tree onDisk(const fs::path& root) {
  Tree t;
  for (const auto& e : fs::recursive_directory_iterator(root))
    t[e.path().lexically_relative(root).generic_string()] =
        e.is_directory() ? std::nullopt : std::optional<std::string>(readAll(e.path()));
  return t;
}
void checkCopy(const fs::path& disk, const Tree& t, const std::string& p, const std::string& what) {
  const bool file = t.kind(p) == 1;
  const Tree want = file ? Tree() : t.below(p),
             got = file || !fs::is_directory(disk) ? Tree() : onDisk(disk);
  check(file ? readAll(disk) == *t.at(p) : fs::is_directory(disk) && got == want, what,
        quote(p) + ": " + diff(want, got));
}

// ---- Restoring what a killed child changed on disk. Hard links keep the inodes and times
// the parent's models noted, so a restored file reads as unchanged.
void linkTree(const fs::path& from, const fs::path& to) {
  if (!fs::is_directory(from))
    return fs::create_hard_link(from, to);
  fs::create_directory(to);
  for (const auto& e : fs::directory_iterator(from))
    linkTree(e.path(), to / e.path().filename());
}
void restore(const fs::path& snapshot, const fs::path& at) {  // replaces only what differs
  if (!fs::is_directory(snapshot))
    return fs::remove(at), fs::create_hard_link(snapshot, at);
  fs::create_directories(at);
  std::vector<fs::path> extra;
  for (const auto& e : fs::directory_iterator(at))
    if (e.is_directory() != fs::is_directory(snapshot / e.path().filename()) ||
        !fs::exists(snapshot / e.path().filename()))
      extra.push_back(e.path());
  for (const fs::path& p : extra)
    fs::remove_all(p);
  for (const auto& e : fs::directory_iterator(snapshot)) {
    const fs::path there = at / e.path().filename();
    if (e.is_directory())
      fs::create_directory(there), restore(e.path(), there);
    else if (!fs::exists(there) || !fs::equivalent(e.path(), there))
      fs::remove(there), fs::create_hard_link(e.path(), there);
  }
}
// The models keep folders open, and a restored folder is a new one: each open folder no
// longer at its path is pointed at what stands there now.
std::map<int, std::string> openFolders(const std::string& under) {
  std::map<int, std::string> out;
  for (const auto& e : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = fs::read_symlink(e.path(), error).string();
    if (!error && target.rfind(under + "/", 0) == 0 && fs::is_directory(target))
      out[std::stoi(e.path().filename().string())] = target;
  }
  return out;
}
void reopen(const std::map<int, std::string>& folders) {
  for (const auto& [fd, path] : folders) {
    struct stat open, there;
    if (::fstat(fd, &open) == 0 &&
        (::stat(path.c_str(), &there) != 0 || open.st_ino != there.st_ino)) {
      const int fresh = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      ::dup3(fresh, fd, O_CLOEXEC);
      ::close(fresh);
    }
  }
}

// ---- The operations that are more than one call.
void look(const ProjectModel& p, const Tree& t, const Op& op) {
  const std::optional<std::string> path = normalize(op.a);
  const int kind = path ? t.kind(*path) : 0;
  const QByteArray bytes = p.readFile(q(op.a));
  check(bytes.isNull() == (kind != 1) && (kind != 1 || bytes.toStdString() == *t.at(*path)),
        "readFile wrong");
  check(p.hasFile(q(op.a)) == (kind == 1) && p.hasDir(q(op.a)) == (kind == 2),
        "hasFile or hasDir wrong");
  std::vector<std::string> want;
  for (const auto& [rel, v] : kind == 2 ? t.below(*path) : Tree())
    if ((op.f || rel.find('/') == std::string::npos) && (v ? op.x & 2 : op.x & 1))
      want.push_back(rel);
  check(list(p, op.a, op.x & 3, op.f) == want, "getFileList wrong");
}
void openAndClose(ProjectModel& p, Tree& t, const Op& op) {
  const std::string mode = kModes[op.x];
  Tree next = t;
  std::string path, old;
  bool opens = true;
  try {
    path = inModel(op.a);
    old = t.kind(path) == 1 ? *t.at(path) : "";
    opens = mode[0] != 'r' || t.kind(path) == 1;
    if (mode[0] != 'r')
      expectWrite(next, {Write, 0, 0, false, op.a, old});  // parents at once, bytes at fclose
  } catch (Outcome) {
    opens = false;
  }
  FILE* file = p.fopen(q(op.a), mode.c_str());
  check((file != nullptr) == opens, opens ? "no stream" : "a stream where none can be");
  if (!file)
    return;
  if (mode != "w" && mode != "a") {
    std::string got(old.size() + 16, '\0');
    got.resize(std::fread(&got[0], 1, got.size(), file));
    check(got == (mode == "w+" ? "" : old), "stream reads other bytes", quote(got));
    std::fseek(file, 0, SEEK_SET);
  }
  const bool writes = mode[0] != 'r' || mode == "r+";
  check(!writes || std::fwrite(op.b.data(), 1, op.b.size(), file) == op.b.size(), "short write");
  check(std::fclose(file) == 0, "fclose fails");
  if (writes)
    next[path] = mode[0] == 'w'   ? op.b
                 : mode[0] == 'a' ? old + op.b
                                  : op.b + old.substr(std::min(old.size(), op.b.size()));
  t = next;
}

struct Model {
  std::unique_ptr<ProjectModel> p;
  Tree t, base;  // its view, and what it last read from its source
  std::string src;
  int changed = 0;  // what sourceChanged() should say; -1 when either may be right
};

// One seed's world: a temporary directory holding the saved projects and the models' scratch.
struct Run {
  bool zip, kills;
  Stats& stats;
  QTemporaryDir tmp;
  const std::string root = str(tmp.path()), scratch = root + "/scratch",
                    oldTemp = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "";
  int counter = 0;
  std::map<std::string, Tree> disk;  // what each saved path holds
  Model m[3];  // A and B, which the operations use, and C, only to import from

  // The models' scratch goes below root, where a kill test can restore it.
  Run(bool zip, bool kills, Stats& stats) : zip(zip), kills(kills), stats(stats) {
    fs::create_directory(scratch);
    ::setenv("TMPDIR", scratch.c_str(), 1);
    m[2].p = std::make_unique<ProjectModel>();
    for (const char* file : {"x/.zuproject-pending", "x/a", "d/f", "f", "a b/\xc3\xa9"})
      m[2].p->writeFile(file, file), m[2].t.put(file, std::string(file));
    m[0].p = std::make_unique<ProjectModel>();
    saveTo(m[0], newTarget(), false);
  }
  ~Run() { oldTemp.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", oldTemp.c_str(), 1); }
  std::string newTarget() { return root + "/p" + std::to_string(counter++) + (zip ? ".zip" : ""); }

  void saveTo(Model& M, const std::string& target, bool overwrite) {
    const bool inPlace = target == M.src, refused = !inPlace && fs::exists(target) && !overwrite;
    const Tree before = disk.count(target) ? disk[target] : Tree();
    const auto save = [&] {
      inPlace ? M.p->save("", ArchiveFormat_Current, false)
              : M.p->save(q(target), zip ? ArchiveFormat_Zip : ArchiveFormat_Directory, overwrite);
    };
    if (!agree(
            nullptr, [&](Tree&) { refused ? throw Thrown : void(); }, save))
      return;
    ++stats.saves;
    disk[target] = M.base = M.t;
    M.src = target;
    M.changed = 0;
    for (Model& o : m) {  // another reader of the path: what it read may have changed
      bool touched = zip && before != M.t;  // the archive, or a file it read
      for (const auto& [path, v] : o.base)
        touched |= !zip && v && (!M.t.count(path) || M.t.at(path) != v);
      if (&o != &M && o.p && o.src == target)
        o.changed = o.changed == 1 || (touched && o.t != M.t) ? 1 : -1;
    }
    check(zip || onDisk(target) == M.t, "disk differs after save",
          zip ? "" : diff(M.t, onDisk(target)));
    ProjectModel fresh;
    fresh.load(q(target), ArchiveFormat_Auto);
    verify(fresh, M.t, "fresh load of the saved path");
    for (const auto& e : fs::directory_iterator(root)) {  // a temporary of this target, or junk
      const std::string name = e.path().filename(),
                        mine = "." + fs::path(target).filename().string() + ".";
      check(disk.count(e.path()) || e.path() == scratch ||
                (name[0] == '.' && name.rfind(mine, 0) != 0),
            "left beside the project", name);
    }
  }

  // Kills a child's save in place just before each rename, removal and flush in turn: a
  // fresh model must then read the source wholly as before or wholly as after. Each step
  // that was reached then fails instead in another child: its model must still show what it
  // did, a fresh model read the source as before or after, and its next save go through.
  // The source and the scratch, which the children share on disk, are restored after each.
  void killAround(Model& M) {
    const std::string kept[] = {M.src, scratch}, copies[] = {root + "/s0", root + "/s1"};
    for (int k : {0, 1})
      linkTree(kept[k], copies[k]);
    const std::map<int, std::string> folders = openFolders(root);
    const auto fresh = [&](const char* when) {
      ProjectModel model;
      model.load(q(M.src), ArchiveFormat_Auto);
      const Tree seen = view(model), &before = disk.at(M.src);
      check(seen == before || seen == M.t, when + std::string(" save: neither before nor after"),
            "against before: " + diff(before, seen) + "; against after: " + diff(M.t, seen));
    };
    for (const char* kind : {"rename", "unlink", "flush"}) {
      for (int n = 1, status = 0, killed = 1; killed && n < 500; ++n) {
        for (const bool kill : {true, false}) {
          const std::string at = kind + (":" + std::to_string(n)), reason = root + "/reason";
          std::fflush(nullptr);
          if (const pid_t child = ::fork()) {
            ::waitpid(child, &status, 0);
          } else {
            ::setenv("ZUPROJECT_FAULT", (at + (kill ? ":kill" : "")).c_str(), 1);
            guarded(
                [&] {
                  if (kill)
                    return M.p->save("", ArchiveFormat_Current, false);
                  try {
                    M.p->save("", ArchiveFormat_Current, false);
                  } catch (const Exception&) {
                  }
                  ::unsetenv("ZUPROJECT_FAULT");
                  verify(*M.p, M.t, "after a failed save");
                  fresh("failed");
                  M.p->save("", ArchiveFormat_Current, false);
                  ProjectModel model;
                  model.load(q(M.src), ArchiveFormat_Auto);
                  verify(model, M.t, "saved after a failed save");
                },
                [&](const std::string& label, const std::string& detail) {
                  std::ofstream(reason) << label << ": " << detail;
                  ::_exit(3);
                });
            ::_exit(0);
          }
          if (kill)
            stats.kills += killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
          std::optional<Failure> failed;  // thrown once the disk is restored
          if (kill && killed)
            guarded([&] { fresh("killed"); },
                    [&](const std::string& label, const std::string& detail) {
                      failed = Failure{label, at + ": " + detail};
                    });
          for (int k : {0, 1})
            restore(copies[k], kept[k]);
          reopen(folders);
          check(!failed, failed ? failed->label : "", failed ? failed->detail : "");
          check((kill && killed) || (WIFEXITED(status) && WEXITSTATUS(status) == 0),
                kill ? "save in a child fails" : "failed save", at + ": " + readAll(reason));
          if (!killed)
            break;
        }
      }
    }
    for (int k : {0, 1})
      fs::remove_all(copies[k]);
  }

  // After a failure the oracle takes what the models and the disk show, so that a run
  // finds more than its first fault.
  void resync() {
    for (const char* left : {"/s0", "/s1", "/export", "/reason"})
      fs::remove_all(root + left);
    for (auto& [path, tree] : disk) {
      ProjectModel fresh;
      fresh.load(q(path), ArchiveFormat_Auto);
      tree = view(fresh);
    }
    for (Model& o : m)
      if (o.p)
        o.t = view(*o.p), o.base = Tree(), o.changed = -1;
  }
  void verifyAll() {
    for (int k = 0; k < 3; ++k) {
      const std::string who(1, "ABC"[k]);
      if (!m[k].p)
        continue;
      verify(*m[k].p, m[k].t, who);
      check(str(m[k].p->getSourcePath()) == m[k].src, "getSourcePath() differs", who);
      check(m[k].changed < 0 || m[k].p->sourceChanged() == bool(m[k].changed),
            std::string("sourceChanged() is ") + (m[k].changed ? "false" : "true"), who);
    }
  }

  std::string describe(const Op& op, int i, int source, const std::string& target) const {
    const std::string a = quote(op.a), b = quote(op.b), f = op.f ? "true" : "false",
                      me = std::string(1, "AB"[i]) + ".", flag[] = {"false, ", "true, "};
    switch (op.kind) {
      case Write: return me + "writeFile(" + a + ", " + b + ")";
      case Fopen: return me + "fopen(" + a + ", \"" + kModes[op.x] + "\") << " + b + ", fclose";
      case Look:
        return me + "readFile, hasFile, hasDir, getFileList(" + a + ", " + flag[op.x & 1] +
               flag[op.x >> 1 & 1] + f + ")";
      case Mkdir: return me + "mkdir(" + a + ", " + f + ")";
      case Remove: return me + "remove(" + a + ")";
      case Move: return me + "move(" + a + ", " + b + ", " + f + ")";
      case Import: return me + "importFile(" + "ABC"[source] + ", " + a + ", " + b + ", " + f + ")";
      case Export:
        return me + "exportFile(" + a + ", new path, false)" + (op.f ? " and again" : "");
      case Local:
        return me + "getFileLocalPath(" + a + ")" + (op.f ? ", " + b + " written there" : "");
      case Meta:
        return me + "setMetadata(\"k" + std::to_string(1 + op.x % 3) + "\", \"v" +
               std::to_string(op.b.size()) + "\")";
      case Save:
        return me +
               (target.empty() ? "save()"
                               : "save(" + target + (zip ? ", Zip, " : ", Directory, ") + f + ")") +
               (kills && op.x == 0 ? ", killed at each step first" : "");
      case Load: return me + "load()";
      default:
        return std::string(1, "BA"[i]) +
               (target.empty() ? " = copy of " + me.substr(0, 1) : " = model loading " + target);
    }
  }

  void step(const Op& op, std::vector<std::string>* log) {
    const int i = op.model && m[1].p, source = op.x % 3 == 2            ? 2
                                               : op.x % 3 && m[1 - i].p ? 1 - i
                                                                        : i;
    Model &M = m[i], &other = m[1 - i];
    ProjectModel& p = *M.p;
    const QString a = q(op.a), b = q(op.b);
    std::vector<std::string> saved;  // the saved paths this model does not read
    for (const auto& entry : disk)
      if (entry.first != M.src)
        saved.push_back(entry.first);
    std::string target;  // where a save goes ("" in place), or what a second model loads
    if (op.kind == Save && op.x >= 4)
      target = op.x == 5 && other.p ? other.src
               : op.x == 6          ? saved.empty() ? M.src : saved[op.b.size() % saved.size()]
                                    : newTarget();
    if (op.kind == Two && op.x % 2 && !saved.empty())
      target = saved[op.b.size() % saved.size()];
    if (log)
      log->push_back(describe(op, i, source, fs::path(target).filename()));
    const auto by = [&](void (*expect)(Tree&, const Op&)) {
      return [&, expect](Tree& t) { expect(t, op); };
    };
    const auto found = [&](Tree&) { M.t.kind(inModel(op.a)) ? void() : throw NotFound; };
    const Tree from = m[source].t;  // a copy: the source of an import may be the model itself
    switch (op.kind) {
      case Write:
        agree(&M.t, by(expectWrite), [&] { p.writeFile(a, QByteArray::fromStdString(op.b)); });
        break;
      case Fopen: return openAndClose(p, M.t, op);
      case Look: return look(p, M.t, op);
      case Mkdir: agree(&M.t, by(expectMkdir), [&] { p.mkdir(a, op.f); }); break;
      case Remove: agree(&M.t, by(expectRemove), [&] { p.remove(a); }); break;
      case Move: agree(&M.t, by(expectMove), [&] { p.move(a, b, op.f); }); break;
      case Import:
        agree(
            &M.t, [&](Tree& t) { expectImport(t, from, source == i, op); },
            [&] { p.importFile(m[source].p.get(), a, b, op.f); });
        break;
      case Export: {  // with op.f, again: refused without overwrite, the same with it
        const std::string out = root + "/export";
        if (agree(nullptr, found, [&] { p.exportFile(a, q(out), false); })) {
          checkCopy(out, M.t, inModel(op.a), "export differs");
          if (op.f &&
              !agree(
                  nullptr, [](Tree&) { throw Thrown; }, [&] { p.exportFile(a, q(out), false); }) &&
              agree(
                  nullptr, [](Tree&) {}, [&] { p.exportFile(a, q(out), true); }))
            checkCopy(out, M.t, inModel(op.a), "export over an export differs");
        }
        fs::remove_all(out);
        break;
      }
      case Local: {
        const std::optional<std::string> path = normalize(op.a);
        const int kind = path ? M.t.kind(*path) : 0;
        const std::string local = str(p.getFileLocalPath(a));
        check(local.empty() == !kind, "wrong local path", local);
        if (kind)
          checkCopy(local, M.t, *path, "local copy differs");
        if (kind && op.f) {  // a file written there on disk, which the model then shows
          std::ofstream(kind == 1 ? local : local + "/z", std::ios::binary) << op.b;
          M.t[kind == 1 ? *path : path->empty() ? "z" : *path + "/z"] = op.b;
        }
        break;
      }
      case Meta: {
        const std::string key = "k" + std::to_string(1 + op.x % 3),
                          value = "v" + std::to_string(op.b.size());
        std::map<std::string, std::string> values = valuesOf(M.t);
        const bool same = values[key] == value;
        values[key] = value;
        p.setMetadata(q(key), q(value));
        const QByteArray now = p.readFile(".metadata");
        check(!now.isNull() && (!same || M.t[".metadata"] == now.toStdString()),
              ".metadata not as set");
        gMetadata[now.toStdString()] = values;
        M.t[".metadata"] = now.toStdString();
        break;
      }
      case Save:
        if (kills && op.x == 0)
          killAround(M);
        saveTo(M, target.empty() ? M.src : target, op.f);
        break;
      case Load:
        agree(
            &M.t, [&](Tree& t) { t = disk.at(M.src); },
            [&] { p.load(q(M.src), ArchiveFormat_Auto); });
        M.base = M.t, M.changed = 0;
        break;
      case Two:  // a copy, or a model of its own that reads another saved path
        other =
            target.empty()
                ? Model{std::make_unique<ProjectModel>(p), M.t, M.base, M.src, M.changed}
                : Model{std::make_unique<ProjectModel>(), disk.at(target), disk.at(target), target};
        if (!target.empty())
          other.p->load(q(target), ArchiveFormat_Auto);
        break;
    }
  }
};

struct Result {
  std::size_t at;
  Failure failure;
};
// Runs the kept operations of a seed, on past failures; stops at the one labelled until.
std::vector<Result> replay(bool zip, bool kills, const std::vector<Op>& ops,
                           const std::vector<bool>& keep, Stats& stats,
                           std::vector<std::string>* log = nullptr, const std::string& until = "") {
  std::vector<Result> found;
  std::size_t at = ops.size();  // "start" until the first operation
  const Note note = [&](const std::string& label, const std::string& detail) {
    found.push_back(
        {at, {(at < ops.size() ? kNames[ops[at].kind] : "start") + (": " + label), detail}});
  };
  std::unique_ptr<Run> run;
  if (!guarded([&] { run = std::make_unique<Run>(zip, kills, stats); }, note))
    return found;
  for (at = 0; at < ops.size(); ++at)
    if (keep[at] &&
        !guarded([&] { run->step(ops[at], log), run->verifyAll(), ++stats.ops; }, note) &&
        (found.back().failure.label == until || !guarded([&] { run->resync(); }, note)))
      break;
  return found;
}

// Drops operations, halves of what is left first, while the same failure remains first (or
// remains, if others came before it); prints what is left. Only the failing save is killed.
void report(unsigned seed, int count, bool zip, bool kills, std::vector<Op> ops,
            const Result& first) {
  const std::string& label = first.failure.label;
  const std::size_t end = std::min(first.at + 1, ops.size());
  std::vector<bool> keep(ops.size(), false);
  std::fill(keep.begin(), keep.begin() + long(end), true);
  const std::vector<Op> all = ops;
  for (std::size_t i = 0; i + 1 < end; ++i)
    ops[i].x += ops[i].kind == Save && ops[i].x == 0;
  Stats ignored;
  std::vector<std::string> log;
  std::string detail = first.failure.detail;
  const auto fails = [&](const std::vector<bool>& trial, bool alone,
                         std::vector<std::string>* log) {
    const std::vector<Result> found = replay(zip, kills, ops, trial, ignored, log, label);
    const bool same = !found.empty() && found.back().failure.label == label;
    detail = same ? found.back().failure.detail : detail;
    return same && (!alone || found.size() == 1);
  };
  if (!fails(keep, false, nullptr))
    ops = all;  // the earlier kills matter
  const bool alone = fails(keep, true, nullptr);
  for (std::size_t chunk = end; chunk > 0; chunk /= 2) {
    for (std::size_t start = 0; start < end; start += chunk) {
      std::vector<bool> trial = keep;
      std::fill(trial.begin() + long(start), trial.begin() + long(std::min(start + chunk, end)),
                false);
      if (trial != keep && fails(trial, alone, nullptr))
        keep = trial;
    }
  }
  fails(keep, false, &log);
  std::printf(
      "FAIL %s seed %u: %s\n  %s\n  shrunk from model_soak --seeds %u-%u --ops %d --form %s%s:\n",
      zip ? "zip" : "dir", seed, label.c_str(), detail.c_str(), seed, seed, count,
      zip ? "zip" : "dir", kills ? " --kills" : "");
  for (const std::string& line : log)
    std::printf("    %s\n", line.c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 0;
  unsigned first = 1, last = 4;
  int count = 200;
  std::string form = "both";
  bool kills = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i], value = i + 1 < argc && arg != "--kills" ? argv[++i] : "";
    if (arg == "--kills")
      kills = true;
    else if (arg == "--seconds")
      seconds = std::atof(value.c_str());
    else if (arg == "--ops")
      count = std::atoi(value.c_str());
    else if (arg == "--form" && (value == "dir" || value == "zip" || value == "both"))
      form = value;
    else if (arg != "--seeds" || std::sscanf(value.c_str(), "%u-%u", &first, &last) != 2)
      return std::fprintf(stderr,
                          "usage: model_soak [--seconds S | --seeds A-B] [--ops N] [--form "
                          "dir|zip|both] [--kills]\n"),
             2;
  }
  if (seconds > 0)  // a soak starts where no earlier one did
    first = unsigned(std::chrono::system_clock::now().time_since_epoch().count() % 1000000000);
  Stats stats[2];
  std::set<std::string> reported;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (unsigned seed = first; seconds > 0 ? std::chrono::steady_clock::now() < end : seed <= last;
       ++seed) {
    for (bool zip : {false, true}) {
      if (form == (zip ? "dir" : "zip"))
        continue;
      const std::vector<Op> ops = generate(seed, count);
      std::set<std::string> labels;  // each failure counts once a seed, and prints once
      ++stats[zip].seeds;
      for (const Result& result :
           replay(zip, kills, ops, std::vector<bool>(ops.size(), true), stats[zip]))
        if (labels.insert(result.failure.label).second && ++stats[zip].failures &&
            reported.insert(std::to_string(zip) + result.failure.label).second)
          report(seed, count, zip, kills, ops, result);
    }
  }
  for (bool zip : {false, true})
    if (stats[zip].seeds)
      std::printf("%s: seeds %ld, operations %ld, saves %ld, kills %ld, failures %ld\n",
                  zip ? "zip" : "dir", stats[zip].seeds, stats[zip].ops, stats[zip].saves,
                  stats[zip].kills, stats[zip].failures);
  return stats[0].failures + stats[1].failures ? 1 : 0;
}
