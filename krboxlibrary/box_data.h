#ifndef KRBOXLIBRARY_BOX_DATA_H
#define KRBOXLIBRARY_BOX_DATA_H

#include <krboxlibrary/box_library_node.h>
#include <krboxlibrary/krboxlibrary_export.h>
#include <krserial/serial.h>

#include <QByteArray>

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>
#include <string>

#include <boost/shared_ptr.hpp>

#include <string>

namespace KR {

class XmlElement;
// The values read from a box file; internal.
struct BoxValues;

/// What the library panel shows of one box: its tooltip, bitmaps, expanded-bitmap flag and
/// whether it is a behavior.
///
/// The box element is not kept: each real change is written straight into the box file
/// (read, change, save through the node) and then announced by a signal.
class KRBOXLIBRARY_EXPORT BoxData : public QObject {
  Q_OBJECT

public:
  /// Reads tooltip, bitmaps and expanded flag from the box element box, and tests whether it
  /// is a behavior. node becomes the object parent; it may be null. An empty box gives the
  /// defaults and one warning.
  BoxData(BoxLibraryNode* node, boost::shared_ptr<const XmlElement> box);

  BoxData(const BoxData&) = delete;
  BoxData& operator=(const BoxData&) = delete;

  /// Whether box has a timeline and exactly the inputs onLoad, onStart and onStop, plus a
  /// standard output.
  static bool isBehavior(boost::shared_ptr<const XmlElement> box);

  /// The box node this object describes; null when it has none or the node is gone.
  BoxLibraryNode* node() const { return m_node.data(); }
  /// The tooltip; a null string when the box has none. It may carry a "tags:" line.
  const QString& tooltip() const { return m_tooltip; }
  /// The bitmaps, in document order.
  const QList<QString>& bitmaps() const { return m_bitmaps; }
  /// Whether the box is shown with its expanded bitmap.
  bool bitmapExpanded() const { return m_bitmapExpanded; }
  /// Whether the box passed the behavior test when this object was built.
  bool behavior() const { return m_behavior; }
  /// The tags of the tooltip: the ";"-separated items on the line after its "tags:" line,
  /// trimmed, empty ones skipped. Saving a behavior records them with its name.
  QStringList tags() const;

  /// The box file's bytes as stored; empty without a node.
  QByteArray xmlData() const;
  /// The box element freshly read from the box file; null without a node or a readable file.
  boost::shared_ptr<XmlElement> load() const;
  /// Writes box to the box file, as a behavior when this box is one; false when it could not
  /// (BoxLibraryNode::saveBox()), or without a node.
  bool save(boost::shared_ptr<XmlElement> box);
  /// A copy of the values, without an object parent, describing node.
  boost::shared_ptr<BoxData> clone(BoxLibraryNode* node) const;
  /// Writes name (UTF-8) as the box element's "name" into the box file. Emits nothing.
  void saveName(const std::string& name);

  /// Stores tooltip, writes it to the box file and emits tooltipChanged(); nothing when equal.
  /// When the box file cannot be written, the failure is logged and the file kept as it was;
  /// the value is still stored and announced. So for all three setters.
  void setTooltip(const QString& tooltip);
  /// Stores bitmaps, writes them to the box file and emits bitmapsChanged(); nothing when
  /// equal (order counts).
  void setBitmaps(const QList<QString>& bitmaps);
  /// Stores expanded, writes it to the box file and emits bitmapExpandedChanged(); nothing
  /// when equal.
  void setBitmapExpanded(bool expanded);
  /// Renames the node, then sets tooltip, bitmaps and expanded flag. Without a node (none, or
  /// gone) nothing changes and one warning is logged.
  void updateData(const QString& name, const QString& tooltip, const QList<QString>& bitmaps,
                  bool bitmapExpanded);

signals:
  /// The tooltip changed to newValue.
  void tooltipChanged(const QString& newValue);
  /// The bitmaps changed to newValue.
  void bitmapsChanged(const QList<QString>& newValue);
  /// The expanded flag changed to newValue.
  void bitmapExpandedChanged(bool newValue);

private:
  friend class BoxLibraryEditor;
  friend class BoxLibraryNode;
  BoxData() = default;
  // Box data for node with the values read from its box file.
  BoxData(BoxLibraryNode* node, const BoxValues& values);
  void take(const BoxValues& values);
  // Writes one change into the box file: the reason of a failure, "" on success.
  std::string writeTooltip(const QString& tooltip);
  std::string writeBitmaps(const QList<QString>& bitmaps);
  std::string writeBitmapExpanded(bool expanded);
  std::string writeChange(const std::function<void(XmlElement&)>& change);
  void logFailure(const char* function, const std::string& error) const;

  // The node may die before a box data object that is shared elsewhere; a guarded pointer
  // turns such an object into one without a node instead of a dangling one.
  QPointer<BoxLibraryNode> m_node;
  QString m_tooltip;
  QList<QString> m_bitmaps;
  bool m_bitmapExpanded = true;
  bool m_behavior = false;
};

namespace Serial {

/// The UTF-8 text up to its first NUL byte; always succeeds.
template <>
KRBOXLIBRARY_EXPORT bool load<QString>(const std::string& text, QString& value);
/// The value in UTF-8, up to its first NUL character.
template <>
KRBOXLIBRARY_EXPORT std::string save<QString>(const QString& value);

}  // namespace Serial

}  // namespace KR

#endif
