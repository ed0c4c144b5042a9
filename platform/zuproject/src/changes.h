#ifndef ZU_PROJECT_CHANGES_H
#define ZU_PROJECT_CHANGES_H

// A model's view: its source with its changes laid over it. The changes are written
// files, new directories, removals (whiteouts hiding the source below them), subtrees
// copied or moved from a source path, and subtrees brought into scratch. Every read asks
// the changes first, then the source. Not installed.

#include "scratch.h"
#include "source.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zu {
namespace project {
namespace detail {

struct Node {
  enum Type { File, Dir, Whiteout };
  Type type = Dir;
  std::shared_ptr<const Blob> blob;  ///< File: bytes held by the model.
  std::shared_ptr<Source> from;      ///< File: its bytes; Dir: what shows below it.
  std::string fromPath;
  bool opaque = false;  ///< Dir: nothing of the own source shows below it.
  std::string local;    ///< Brought into scratch: its name there, read and written there.
};

/// Where a path of the view leads.
struct Place {
  Kind kind = Kind::None;
  const Node* node = nullptr;     ///< The change at the path itself.
  std::shared_ptr<Source> under;  ///< The source read at underPath, if any.
  std::string underPath;
  std::string local;  ///< Inside a subtree in scratch: the path there.
};

class Changes {
public:
  explicit Changes(std::shared_ptr<Source> source);
  /// Shares other's source and bytes; subtrees in scratch are copied into its own.
  Changes(const Changes& other);
  ~Changes();
  Changes& operator=(const Changes&) = delete;

  const std::shared_ptr<Source>& source() const { return m_source; }
  /// A new source and no changes.
  void reset(std::shared_ptr<Source> source);
  bool empty() const { return m_nodes.empty(); }
  const std::map<std::string, Node>& nodes() const { return m_nodes; }
  /// The scratch directory, made on first use.
  Scratch& scratch() const;

  /// Where path leads. With checkLast false, a path read through a source keeps kind
  /// File unchecked: the read itself tells, which saves a system call per file.
  Place resolve(const std::string& path, bool checkLast = true) const;
  std::vector<Listed> list(const std::string& dir) const;
  std::optional<std::string> read(const std::string& path) const;
  /// Whether reading at path, and below it, reads the own source at the same paths: no
  /// change lies there or over it.
  bool showsSource(const std::string& path) const;
  FILE* openRead(const std::string& path) const;

  /// Paths are normal and inside; failures throw Exception (PathNotFound when absent).
  void writeFile(const std::string& path, std::string bytes);
  void makeDir(const std::string& path, bool parents);
  void remove(const std::string& path);
  /// Drops the changes at and below path when they lie over the own source at that same
  /// path, so that reads show the source there again; false, changing nothing, when path
  /// was made, moved or copied in by this view.
  bool dropOver(const std::string& path);
  /// Copies a file or tree of other (which may be this) to path: files replaced,
  /// directories merged, an entry of the other kind replaced.
  void copy(const Changes& other, const std::string& from, const std::string& path);
  /// The scratch path of a file or subtree, brought there first; "" when absent.
  std::string localPath(const std::string& path);

  /// Before another model's save changes these paths of source, takes what this view
  /// reads of them there into its own changes, so that the view does not move.
  void preserve(const Source* source, const std::vector<std::string>& touched);
  /// Whether another model's save changed files under this view since the last reset().
  bool overwritten() const { return m_overwritten; }

private:
  void put(const std::string& path, Node node);
  void eraseBelow(const std::string& path);
  void attach(const std::shared_ptr<Source>& source);
  void own(const std::string& path, Source& source, const std::string& sourcePath);
  std::vector<std::string> childNodes(const std::string& dir) const;

  std::shared_ptr<Source> m_source;
  std::map<std::string, Node> m_nodes;
  mutable std::shared_ptr<Scratch> m_scratch;
  std::vector<std::shared_ptr<Source>> m_attached;
  bool m_overwritten = false;
};

/// The entries below dir (all of them or only the direct ones), with paths relative to
/// it, sorted byte-wise.
std::vector<Listed> listTree(const Changes& view, const std::string& dir, bool recursive);

/// Writes the view's file at from to path below target, or makes a directory there when dir
/// is true; throws Exception on failure. A file replaces one there only once complete, unless
/// fresh says the target tree is new.
void writeEntry(const Changes& view, const std::string& from, bool dir, Beneath& target,
                const std::string& path, bool fresh = false);

/// Writes the view's file or tree at from to path below target (files replaced,
/// directories merged); throws Exception on failure.
void writeTree(const Changes& view, const std::string& from, Beneath& target,
               const std::string& path);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
