#include <krboxlibrary/box_library_filter_model.h>

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include <QHash>
#include <QTimer>

#include <cstring>
#include <string>
#include <vector>

namespace KR {

namespace {

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// text as BoxLibraryQuery::fold() gives it, in UTF-8; ASCII, the common case, only lowered.
// The text of nodes is read from UTF-8 files, so it holds no lone surrogate, and a word is in
// it exactly when its UTF-8 form is.
std::string folded(const QString& text) {
  std::string result(static_cast<std::size_t>(text.size()), '\0');
  const char16_t* utf16 = reinterpret_cast<const char16_t*>(text.utf16());
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (utf16[i] >= 0x80)
      return BoxLibraryQuery::fold(text).toUtf8().toStdString();
    result[static_cast<std::size_t>(i)] = lowerAscii(static_cast<char>(utf16[i]));
  }
  return result;
}

std::string foldedName(const std::string& name) {
  std::string result = name.substr(0, name.find('\0'));
  for (char& c : result) {
    if (static_cast<unsigned char>(c) >= 0x80)
      return folded(QString::fromUtf8(result.c_str()));
    c = lowerAscii(c);
  }
  return result;
}

bool holds(const std::string& text, const std::string& word) {
  return word.empty() || ::memmem(text.data(), text.size(), word.data(), word.size()) != nullptr;
}

}  // namespace

// The name and tooltip of every node, folded once and kept in one array, so that a keystroke
// is a byte search through them instead of a walk through the nodes. Kept up to date with
// the source's rows.
struct BoxLibraryFilterModel::Index {
  struct Entry {
    const BoxLibraryNode* node;
    std::string name;
    std::string tooltip;
  };
  std::vector<Entry> entries;  // in no particular order
  QHash<const BoxLibraryNode*, std::size_t> position;

  // node and every node below it.
  template <class Visit>
  static void walk(const BoxLibraryNode* node, Visit visit) {
    std::vector<const BoxLibraryNode*> pending{node};
    while (!pending.empty()) {
      const BoxLibraryNode* next = pending.back();
      pending.pop_back();
      visit(next);
      for (const BoxLibraryNode* child : next->childList())
        pending.push_back(child);
    }
  }

  void update(const BoxLibraryNode* node) {
    const BoxData* data = node->boxData().get();
    Entry entry{node, foldedName(node->name()), data ? folded(data->tooltip()) : std::string()};
    const auto found = position.constFind(node);
    if (found != position.constEnd()) {
      entries[*found] = std::move(entry);
      return;
    }
    position.insert(node, entries.size());
    entries.push_back(std::move(entry));
  }

  void add(const BoxLibraryNode* node) {
    walk(node, [this](const BoxLibraryNode* each) { update(each); });
  }

  void remove(const BoxLibraryNode* node) {
    walk(node, [this](const BoxLibraryNode* each) {
      const auto found = position.find(each);
      if (found == position.end())
        return;
      const std::size_t at = *found;
      position.erase(found);
      if (at + 1 != entries.size()) {
        entries[at] = std::move(entries.back());
        position[entries[at].node] = at;
      }
      entries.pop_back();
    });
  }
};

BoxLibraryFilterModel::BoxLibraryFilterModel(QObject* parent) : QSortFilterProxyModel(parent) {
  setRecursiveFilteringEnabled(true);
  setDynamicSortFilter(true);
}

BoxLibraryFilterModel::~BoxLibraryFilterModel() = default;

void BoxLibraryFilterModel::setSourceModel(QAbstractItemModel* model) {
  if (QAbstractItemModel* old = sourceModel())
    disconnect(old, nullptr, this, nullptr);
  m_index.reset();
  m_library = qobject_cast<const BoxLibraryModel*>(model);
  // A library's nodes are searched through the index, which also finds the folders to keep;
  // asking the base class to find them would look at every row through the model.
  setRecursiveFilteringEnabled(!m_library);
  QSortFilterProxyModel::setSourceModel(model);
  findKept();
  if (!model)
    return;
  // Connected after the base class's own handlers, so as to run once they are done; a
  // removal is taken out of the index before its nodes go.
  connect(model, &QAbstractItemModel::rowsAboutToBeRemoved, this,
          [this](const QModelIndex& parent, int first, int last) {
            if (!m_index)
              return;
            for (int row = first; row <= last; ++row)
              m_index->remove(m_library->node(sourceModel()->index(row, 0, parent)));
          });
  connect(model, &QAbstractItemModel::rowsInserted, this,
          [this](const QModelIndex& parent, int first, int last) {
            if (m_index) {
              for (int row = first; row <= last; ++row)
                m_index->add(m_library->node(sourceModel()->index(row, 0, parent)));
            }
            sourceChanged();
          });
  connect(model, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& topLeft, const QModelIndex& bottomRight) {
            if (m_index) {
              for (int row = topLeft.row(); row <= bottomRight.row(); ++row)
                m_index->update(m_library->node(topLeft.siblingAtRow(row)));
            }
            sourceChanged();
          });
  const auto startOver = [this] {
    m_index.reset();
    sourceChanged();
  };
  connect(model, &QAbstractItemModel::modelReset, this, startOver);
  connect(model, &QAbstractItemModel::layoutChanged, this, startOver);
  connect(model, &QAbstractItemModel::rowsRemoved, this, &BoxLibraryFilterModel::sourceChanged);
  connect(model, &QAbstractItemModel::rowsMoved, this, &BoxLibraryFilterModel::sourceChanged);
  // Made while the panel waits for the first keystroke, not by it.
  if (m_library)
    QTimer::singleShot(0, this, [this] { makeIndex(); });
}

bool BoxLibraryFilterModel::makeIndex() {
  const BoxLibrary* library = m_library ? m_library->library() : nullptr;
  if (!m_index && library) {
    m_index = std::make_unique<Index>();
    m_index->add(library->boxRoot());
  }
  return m_index != nullptr;
}

// Once a query hides folders, the base class (Qt 5.15 and 6.4) follows a source move or layout
// change only in part: it can keep mappings that name rows by their old places, so that the
// rows shown go wrong and a later invalidateFilter() walks them into deleted rows. Starting
// over is right whatever it kept, and it also takes the nodes kept after an edit. Without a
// query nothing is hidden, and the base class follows on its own.
void BoxLibraryFilterModel::sourceChanged() {
  if (m_query.isEmpty())
    return;
  findKept();
  invalidate();
}

void BoxLibraryFilterModel::findKept() {
  m_kept.clear();
  if (m_query.isEmpty() || !makeIndex())
    return;
  std::vector<std::string> words;
  for (const QString& word : m_query.words()) {
    // A lone surrogate is in no node's text.
    if (!word.isValidUtf16())
      return;
    words.push_back(word.toUtf8().toStdString());
  }
  const bool tags = !m_query.tagWords().isEmpty();
  for (const Index::Entry& entry : m_index->entries) {
    bool match = true;
    for (const std::string& word : words) {
      if (!holds(entry.name, word) && !holds(entry.tooltip, word)) {
        match = false;
        break;
      }
    }
    if (!match || (tags && !m_query.matches(*entry.node)))
      continue;
    for (const BoxLibraryNode* kept = entry.node; kept && !m_kept.contains(kept);
         kept = kept->parent())
      m_kept.insert(kept);
  }
}

void BoxLibraryFilterModel::setFilterText(const QString& text) {
  if (text == m_query.text())
    return;
  m_query = BoxLibraryQuery(text);
  findKept();
  invalidateFilter();
  emit filterTextChanged(text);
}

bool BoxLibraryFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
  if (m_query.isEmpty())
    return true;
  const QModelIndex index = sourceModel()->index(sourceRow, 0, sourceParent);
  if (m_library)
    return m_kept.contains(m_library->node(index));
  // Any other model is searched through its roles.
  return m_query.matches(index.data(Qt::DisplayRole).toString(),
                         index.data(Qt::ToolTipRole).toString(),
                         index.data(BoxLibraryModel::TagsRole).toStringList());
}

}  // namespace KR
