#ifndef KRBOX_EXAMPLES_PANEL_WINDOW_H
#define KRBOX_EXAMPLES_PANEL_WINDOW_H

#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_model.h>

#include <QMainWindow>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTreeView;

// The panel: a search field over the library's tree, a details pane for the current entry,
// and a toolbar. Every edit goes through the library's model, so each can be undone.
class PanelWindow : public QMainWindow {
public:
  explicit PanelWindow(const QString& libraryPath);

  KR::BoxLibraryModel& model() { return m_model; }
  QTreeView& view() { return *m_view; }
  // Makes the entry at path ("/"-joined names) current; false when there is none.
  bool select(const QStringList& path);
  // The rows the tree shows, expanded folders' children included.
  int visibleRows() const;

private:
  void expandAsStored(const QModelIndex& parent);
  QModelIndex currentSource() const;
  void showDetails();
  void newFolder();
  void removeCurrent();
  void save();

  KR::BoxLibrary m_library;
  KR::BoxLibraryModel m_model;
  KR::BoxLibraryFilterModel* m_filter;
  QLineEdit* m_search;
  QTreeView* m_view;
  QLabel* m_title;
  QLabel* m_facts;
  QPlainTextEdit* m_tooltip;
  QPushButton* m_apply;
};

#endif
