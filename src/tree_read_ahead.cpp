#include "tree_read_ahead.h"

#include <krboxlibrary/box_library.h>
#include <zu/project/project_model.h>
#include <zu/project/source_reader.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace KR {

namespace {

std::atomic<int> g_threads{-1};
// More would only cost memory: each worker holds its own descriptors or zip handle.
constexpr int kMaxThreads = 64;

int coresAvailable() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0)
    return std::max(1, CPU_COUNT(&set));
  return std::max(1u, std::thread::hardware_concurrency());
}

// How far the workers may run ahead of the caller: reads done but not taken yet. Enough to
// keep them busy, without holding a large library's values twice.
constexpr int kMaxAhead = 1024;

// A directory queued for the workers.
struct Slot {
  enum State { Queued, Claimed, Done };
  explicit Slot(const QString& prefix) : prefix(prefix) {}
  QString prefix;
  std::atomic<int> state{Queued};
  std::unique_ptr<DirectoryRead> read;  // held only between its read and its taking
  bool failed = false;  // the worker's read threw: the caller's own read will tell why
};

// The directories of one folder, taken front to back.
struct Batch {
  std::vector<Slot*> entries;
  std::size_t next = 0;
};

}  // namespace

struct TreeReadAhead::Shared {
  zu::project::ProjectModel* model = nullptr;
  std::mutex mutex;
  std::condition_variable queued;  // for the workers: work, room ahead, or the end
  std::condition_variable done;    // for the caller: a slot read
  int ahead = 0;                   // slots read by a worker and not taken yet
  std::deque<Slot> entries;        // stay where they are, so workers may hold one
  std::vector<Batch> batches;      // the latest folder on top: depth first, as the tree is read
  bool stopping = false;
  bool started = false;  // the workers were asked for; there may be none
  QHash<QString, Slot*> byPrefix;
  std::vector<std::unique_ptr<zu::project::SourceReader>> readers;
  std::vector<std::thread> workers;

  ~Shared() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      stopping = true;
    }
    queued.notify_all();
    for (std::thread& worker : workers)
      worker.join();
  }

  // Queues the directories at prefixes not queued yet. Under the lock.
  void queue(const QStringList& prefixes) {
    Batch batch;
    for (const QString& prefix : prefixes) {
      Slot*& slot = byPrefix[prefix];
      if (slot)
        continue;
      entries.emplace_back(prefix);
      slot = &entries.back();
      batch.entries.push_back(slot);
    }
    if (!batch.entries.empty())
      batches.push_back(std::move(batch));
  }

  // The next slot no one claimed yet, claimed; null when there is none. Under the lock.
  Slot* claimNext() {
    while (!batches.empty()) {
      Batch& batch = batches.back();
      while (batch.next < batch.entries.size()) {
        Slot* slot = batch.entries[batch.next++];
        int expected = Slot::Queued;
        if (slot->state.compare_exchange_strong(expected, Slot::Claimed))
          return slot;
      }
      batches.pop_back();
    }
    return nullptr;
  }

  void work(zu::project::SourceReader& reader) {
    struct Files : DirectoryFiles {
      explicit Files(zu::project::SourceReader& reader) : reader(reader) {}
      bool hasFile(const QString& path) override { return reader.hasFile(path); }
      QByteArray readFile(const QString& path, bool* isFile) override {
        return reader.readFile(path, isFile);
      }
      QStringList directories(const QString& dir) override { return reader.directories(dir); }
      zu::project::SourceReader& reader;
    } files(reader);
    for (;;) {
      Slot* slot = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex);
        queued.wait(lock, [&] {
          return stopping || (ahead < kMaxAhead && (slot = claimNext()) != nullptr);
        });
        if (stopping)
          return;
      }
      QStringList below;
      try {
        slot->read = std::make_unique<DirectoryRead>(readDirectory(files, slot->prefix));
        // Every subdirectory of a folder is a child: read on, without waiting for the
        // caller to reach it and take its order from the listing.
        for (const QString& name : slot->read->directories)
          below.append(slot->prefix + name + QLatin1Char('/'));
      } catch (...) {
        slot->failed = true;
      }
      {
        std::lock_guard<std::mutex> lock(mutex);
        slot->state = Slot::Done;
        ++ahead;
        queue(below);
      }
      done.notify_all();
      if (!below.isEmpty())
        queued.notify_all();
    }
  }

  void start(int count) {
    for (int i = 0; i < count; ++i) {
      // Made here: a reader is made on the model's thread, then used on one other.
      readers.push_back(std::make_unique<zu::project::SourceReader>(*model));
      zu::project::SourceReader* reader = readers.back().get();
      try {
        workers.emplace_back([this, reader] { work(*reader); });
      } catch (const std::system_error&) {
        break;  // no thread to be had: fewer workers, or the caller's thread alone
      }
    }
    started = true;
  }
};

namespace {

// The read under way on this thread, if any.
thread_local TreeReadAhead::Shared* t_current = nullptr;

}  // namespace

TreeReadAhead::TreeReadAhead(zu::project::ProjectModel& model) : m_model(model) {
  if (t_current && t_current->model == &model) {
    m_shared = t_current;
    return;
  }
  m_own = std::make_unique<Shared>();
  m_own->model = &model;
  m_shared = m_own.get();
  m_previous = t_current;
  t_current = m_shared;
}

TreeReadAhead::~TreeReadAhead() {
  if (m_own)
    t_current = m_previous;
}

void TreeReadAhead::request(const QStringList& prefixes) {
  Shared& shared = *m_shared;
  if (prefixes.isEmpty())
    return;
  // A zip's entries are decompressed one at a time through its one libzip handle, which
  // leaves workers too little to do to pay for handing their reads over.
  if (!shared.started)
    shared.start(m_model.getSourceFormat() == zu::project::ArchiveFormat_Zip
                     ? 0
                     : BoxLibrary::readThreads());
  if (shared.workers.empty())
    return;
  {
    std::lock_guard<std::mutex> lock(shared.mutex);
    shared.queue(prefixes);
  }
  shared.queued.notify_all();
}

DirectoryRead TreeReadAhead::take(const QString& prefix) {
  Shared& shared = *m_shared;
  ModelFiles files(m_model);
  DirectoryRead read;
  bool taken = false;
  if (!shared.workers.empty()) {
    std::unique_lock<std::mutex> lock(shared.mutex);
    // Each directory is queued once, before it is taken, and taken once.
    Slot* slot = shared.byPrefix.take(prefix);
    int state = Slot::Queued;
    if (slot && !slot->state.compare_exchange_strong(state, Slot::Claimed)) {
      if (state != Slot::Done)
        shared.done.wait(lock, [slot] { return slot->state == Slot::Done; });
      taken = !slot->failed;
      if (taken)
        read = std::move(*slot->read);
      slot->read.reset();
      slot->prefix = QString();
      // Room ahead for the workers again.
      if (shared.ahead-- == kMaxAhead) {
        lock.unlock();
        shared.queued.notify_all();
      }
    }
  }
  // Read here what no worker read, and what the caller's thread changed since.
  if (!taken || !m_model.showsSource(prefix))
    return readDirectory(files, prefix);
  return read;
}

int BoxLibrary::readThreads() {
  const int set = g_threads.load();
  if (set >= 0)
    return set;
  if (const char* text = std::getenv("KRBOX_READ_THREADS")) {
    char* end = nullptr;
    const long count = std::strtol(text, &end, 10);
    if (end != text && *end == '\0' && count >= 0)
      return static_cast<int>(std::min<long>(count, kMaxThreads));
  }
  return std::min(coresAvailable(), kMaxThreads);
}

void BoxLibrary::setReadThreads(int count) {
  g_threads = count < 0 ? -1 : std::min(count, kMaxThreads);
}

}  // namespace KR
