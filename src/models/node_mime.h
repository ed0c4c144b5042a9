#ifndef KRBOXLIBRARY_SRC_MODELS_NODE_MIME_H
#define KRBOXLIBRARY_SRC_MODELS_NODE_MIME_H

#include <QByteArray>
#include <QList>

namespace KR {

class BoxLibraryModel;

namespace models {

/// Makes model findable by the id that its drags carry; the id.
quint64 registerModel(BoxLibraryModel* model);
/// Forgets the model of id.
void unregisterModel(quint64 id);

/// Dragged nodes: the model they come from (an id valid in this program only) and the ids
/// that model gave them.
struct DraggedNodes {
  BoxLibraryModel* model = nullptr;  // null when it is gone or in another program
  QList<quint64> nodes;
};

/// The bytes of the nodes' MIME type for the nodes of the model of id.
QByteArray encodeNodes(quint64 id, const QList<quint64>& nodes);
/// Reads what encodeNodes() wrote; false when bytes are not that.
bool decodeNodes(const QByteArray& bytes, DraggedNodes& nodes);

}  // namespace models
}  // namespace KR

#endif
