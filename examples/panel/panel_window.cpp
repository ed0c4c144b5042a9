#include "panel_window.h"

#include <krboxlibrary/box_library_node.h>

#include <QAction>
#include <QApplication>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTreeView>
#include <QVBoxLayout>

#include <exception>

namespace {

// The search proxy with an icon per kind of entry, from the style's standard icons.
class IconFilterModel : public KR::BoxLibraryFilterModel {
public:
  using KR::BoxLibraryFilterModel::BoxLibraryFilterModel;

  QVariant data(const QModelIndex& index, int role) const override {
    if (role != Qt::DecorationRole)
      return KR::BoxLibraryFilterModel::data(index, role);
    QStyle* style = QApplication::style();
    if (index.data(KR::BoxLibraryModel::KindRole) == QLatin1String("folder"))
      return style->standardIcon(QStyle::SP_DirIcon);
    if (index.data(KR::BoxLibraryModel::BehaviorRole).toBool())
      return style->standardIcon(QStyle::SP_MediaPlay);
    return style->standardIcon(QStyle::SP_FileIcon);
  }
};

}  // namespace

PanelWindow::PanelWindow(const QString& libraryPath)
    : m_library(libraryPath), m_model(&m_library), m_filter(new IconFilterModel(this)) {
  setWindowTitle(QStringLiteral("%1 \u2014 krbox panel").arg(m_library.title()));
  m_filter->setSourceModel(&m_model);

  m_search = new QLineEdit;
  m_search->setPlaceholderText(QStringLiteral("Search names, tooltips and tags (tag:WORD)"));
  m_search->setClearButtonEnabled(true);
  m_view = new QTreeView;
  m_view->setModel(m_filter);
  m_view->setHeaderHidden(true);
  m_view->setDragDropMode(QAbstractItemView::DragDrop);
  m_view->setDefaultDropAction(Qt::MoveAction);
  m_view->setDropIndicatorShown(true);
  m_view->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
  auto* left = new QWidget;
  auto* leftLayout = new QVBoxLayout(left);
  leftLayout->setContentsMargins(0, 0, 0, 0);
  leftLayout->addWidget(m_search);
  leftLayout->addWidget(m_view);

  m_title = new QLabel;
  m_title->setStyleSheet(QStringLiteral("font-weight: bold; font-size: 14pt"));
  m_facts = new QLabel;
  m_facts->setWordWrap(true);
  m_facts->setTextInteractionFlags(Qt::TextSelectableByMouse);
  m_tooltip = new QPlainTextEdit;
  m_apply = new QPushButton(QStringLiteral("Apply tooltip"));
  auto* right = new QWidget;
  auto* form = new QFormLayout(right);
  form->addRow(m_title);
  form->addRow(m_facts);
  form->addRow(QStringLiteral("Tooltip:"), m_tooltip);
  form->addRow(QString(), m_apply);

  auto* splitter = new QSplitter;
  splitter->addWidget(left);
  splitter->addWidget(right);
  splitter->setStretchFactor(0, 3);
  splitter->setStretchFactor(1, 2);
  setCentralWidget(splitter);

  QStyle* style = this->style();
  QToolBar* tools = addToolBar(QStringLiteral("Library"));
  tools->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  QAction* folder = tools->addAction(style->standardIcon(QStyle::SP_FileDialogNewFolder),
                                     QStringLiteral("New folder"), this, [this] { newFolder(); });
  folder->setShortcut(QKeySequence::New);
  QAction* remove = tools->addAction(style->standardIcon(QStyle::SP_TrashIcon),
                                     QStringLiteral("Delete"), this, [this] { removeCurrent(); });
  remove->setShortcut(QKeySequence::Delete);
  QAction* undo = tools->addAction(style->standardIcon(QStyle::SP_ArrowBack),
                                   QStringLiteral("Undo"), &m_model, &KR::BoxLibraryModel::undo);
  undo->setShortcut(QKeySequence::Undo);
  QAction* redo = tools->addAction(style->standardIcon(QStyle::SP_ArrowForward),
                                   QStringLiteral("Redo"), &m_model, &KR::BoxLibraryModel::redo);
  redo->setShortcut(QKeySequence::Redo);
  QAction* saveAction = tools->addAction(style->standardIcon(QStyle::SP_DialogSaveButton),
                                         QStringLiteral("Save"), this, [this] { save(); });
  saveAction->setShortcut(QKeySequence::Save);
  tools->addAction(style->standardIcon(QStyle::SP_BrowserReload),
                   QStringLiteral("Reload from disk"), this, [this] { m_model.reloadFromDisk(); });
  tools->addAction(QStringLiteral("Save over"), this, [this] {
    if (m_model.saveOverwriting())
      statusBar()->showMessage(QStringLiteral("Saved to %1").arg(m_library.path()), 5000);
  });
  undo->setEnabled(false);
  redo->setEnabled(false);
  connect(&m_model, &KR::BoxLibraryModel::canUndoChanged, undo, &QAction::setEnabled);
  connect(&m_model, &KR::BoxLibraryModel::canRedoChanged, redo, &QAction::setEnabled);
  connect(&m_model, &KR::BoxLibraryModel::undoTextChanged, undo,
          [undo](const QString& text) { undo->setToolTip(QStringLiteral("Undo: ") + text); });
  connect(&m_model, &KR::BoxLibraryModel::redoTextChanged, redo,
          [redo](const QString& text) { redo->setToolTip(QStringLiteral("Redo: ") + text); });
  connect(&m_model, &KR::BoxLibraryModel::editRefused, this,
          [this](const QString& reason) { statusBar()->showMessage(reason, 5000); });
  // Another writer's changes show in the rows by themselves; the line says where they came from.
  connect(&m_model, &KR::BoxLibraryModel::changedOnDisk, this, [this](const QStringList& paths) {
    statusBar()->showMessage(
        QStringLiteral("Changed on disk: %1").arg(paths.join(QStringLiteral(", "))), 5000);
  });
  connect(&m_model, &KR::BoxLibraryModel::conflictOnDisk, this, [this](const QStringList& paths) {
    statusBar()->showMessage(
        QStringLiteral("Changed on disk and here, not saved: %1. \"Save over\" keeps your "
                       "version, \"Reload from disk\" drops it.")
            .arg(paths.join(QStringLiteral(", "))));
  });

  connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
    m_filter->setFilterText(text);
    if (text.trimmed().isEmpty())
      expandAsStored(QModelIndex());
    else
      m_view->expandAll();
  });
  connect(m_view->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this] { showDetails(); });
  connect(&m_model, &QAbstractItemModel::dataChanged, this, [this] { showDetails(); });
  connect(m_apply, &QPushButton::clicked, this,
          [this] { m_model.setData(currentSource(), m_tooltip->toPlainText(), Qt::ToolTipRole); });

  expandAsStored(QModelIndex());
  showDetails();
  QString status = QStringLiteral("%1 entries at the top").arg(m_model.rowCount());
  // What the files hold that the tree shows otherwise, so that no reconciling goes unseen.
  const QList<KR::BoxLibraryProblem> problems = m_library.problems();
  if (!problems.isEmpty()) {
    QStringList lines;
    for (const KR::BoxLibraryProblem& problem : problems)
      lines.append(problem.file + QLatin1String(": ") + problem.problem);
    status +=
        QStringLiteral("; %1 things in the files read otherwise than stored").arg(lines.size());
    statusBar()->setToolTip(lines.join(QLatin1Char('\n')));
  }
  statusBar()->showMessage(status);
}

bool PanelWindow::select(const QStringList& path) {
  QModelIndex index;
  for (const QString& name : path) {
    const QModelIndexList found =
        m_filter->match(m_filter->index(0, 0, index), Qt::DisplayRole, name, 1, Qt::MatchExactly);
    if (found.isEmpty())
      return false;
    index = found.first();
    m_view->expand(index);
  }
  m_view->setCurrentIndex(index);
  return true;
}

int PanelWindow::visibleRows() const {
  int rows = 0;
  for (QModelIndex index = m_view->model()->index(0, 0); index.isValid();
       index = m_view->indexBelow(index))
    ++rows;
  return rows;
}

void PanelWindow::expandAsStored(const QModelIndex& parent) {
  for (int row = 0; row < m_filter->rowCount(parent); ++row) {
    const QModelIndex index = m_filter->index(row, 0, parent);
    if (!index.data(KR::BoxLibraryModel::ExpandedRole).toBool())
      continue;
    m_view->expand(index);
    expandAsStored(index);
  }
}

QModelIndex PanelWindow::currentSource() const {
  return m_filter->mapToSource(m_view->currentIndex());
}

void PanelWindow::showDetails() {
  const QModelIndex index = currentSource();
  const bool box = index.data(KR::BoxLibraryModel::KindRole) == QLatin1String("box");
  m_title->setText(index.isValid() ? index.data().toString() : m_library.title());
  QString facts;
  if (index.isValid()) {
    facts = box ? (index.data(KR::BoxLibraryModel::BehaviorRole).toBool()
                       ? QStringLiteral("Behavior box")
                       : QStringLiteral("Box"))
                : QStringLiteral("Folder, %1 entries").arg(m_model.rowCount(index));
    facts += QStringLiteral("\nPath: ") + index.data(KR::BoxLibraryModel::PathRole).toString();
    const QStringList tags = index.data(KR::BoxLibraryModel::TagsRole).toStringList();
    if (!tags.isEmpty())
      facts += QStringLiteral("\nTags: ") + tags.join(QStringLiteral(", "));
    const QStringList bitmaps = index.data(KR::BoxLibraryModel::BitmapsRole).toStringList();
    if (!bitmaps.isEmpty())
      facts += QStringLiteral("\nBitmaps: ") + bitmaps.join(QStringLiteral(", "));
  }
  m_facts->setText(facts);
  const QString tooltip = index.data(Qt::ToolTipRole).toString();
  if (m_tooltip->toPlainText() != tooltip)
    m_tooltip->setPlainText(tooltip);
  m_tooltip->setEnabled(box);
  m_apply->setEnabled(box);
}

void PanelWindow::newFolder() {
  QModelIndex parent = currentSource();
  if (parent.isValid() && parent.data(KR::BoxLibraryModel::KindRole) == QLatin1String("box"))
    parent = parent.parent();
  const QModelIndex made = m_model.insertFolder(parent, -1, QStringLiteral("New Folder"));
  if (!made.isValid())
    return;
  const QModelIndex shown = m_filter->mapFromSource(made);
  m_view->setCurrentIndex(shown);
  m_view->edit(shown);
}

void PanelWindow::removeCurrent() {
  const QModelIndex index = currentSource();
  if (index.isValid())
    m_model.removeRows(index.row(), 1, index.parent());
}

void PanelWindow::save() {
  try {
    m_library.save();
    statusBar()->showMessage(QStringLiteral("Saved to %1").arg(m_library.path()), 5000);
  } catch (const std::exception& e) {
    statusBar()->showMessage(QStringLiteral("Not saved: %1").arg(QString::fromLocal8Bit(e.what())));
  }
}
