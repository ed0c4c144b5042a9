#include "commands.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library_node.h>
#include <krboxlibrary/box_library_query.h>
#include <zu/project/project_model.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

#include <cstddef>
#include <string>
#include <vector>

namespace krbox {

namespace {

const char* marker(const KR::BoxLibraryNode& node) {
  if (node.isBox())
    return node.boxData()->behavior() ? "[B] " : "[ ] ";
  return node.isExpanded() ? "[-] " : "[+] ";
}

// Depth first with a stack of its own: an archive may nest folders deeper than the call
// stack would like.
void printChildren(const KR::BoxLibraryNode& root, std::ostream& out) {
  struct Pending {
    const KR::BoxLibraryNode* node;
    std::size_t depth;
  };
  std::vector<Pending> pending;
  const auto pushChildren = [&pending](const KR::BoxLibraryNode& parent, std::size_t depth) {
    const QList<KR::BoxLibraryNode*>& children = parent.childList();
    for (auto it = children.crbegin(); it != children.crend(); ++it)
      pending.push_back({*it, depth});
  };
  pushChildren(root, 1);
  while (!pending.empty()) {
    const Pending current = pending.back();
    pending.pop_back();
    out << std::string(2 * current.depth, ' ') << marker(*current.node) << current.node->name()
        << '\n';
    pushChildren(*current.node, current.depth + 1);
  }
}

QJsonArray childrenJson(const KR::BoxLibraryNode& parent);

// Recursive, unlike printChildren(): Qt's JSON writer recurses as deep anyway.
QJsonObject nodeJson(const KR::BoxLibraryNode& node) {
  QJsonObject object{{"name", QString::fromStdString(node.name())}};
  if (node.isBox()) {
    object.insert("kind", QString("box"));
    object.insert("behavior", node.boxData()->behavior());
  } else {
    object.insert("kind", QString("folder"));
    object.insert("expanded", node.isExpanded());
    object.insert("children", childrenJson(node));
  }
  return object;
}

QJsonArray childrenJson(const KR::BoxLibraryNode& parent) {
  QJsonArray children;
  for (const KR::BoxLibraryNode* child : parent.childList())
    children.append(nodeJson(*child));
  return children;
}

// The fields of a description: as text, "Label:" padded to one column with further lines of
// the value indented to it, printed as they come; as JSON, one object printed by finish().
class Fields {
public:
  explicit Fields(Output& out) : m_out(out) {}

  void add(const char* label, const char* key, const QStringList& lines, const QJsonValue& value) {
    if (m_out.json()) {
      m_object.insert(key, value);
      return;
    }
    const std::string head = std::string(label) + ":";
    const std::string indent(kColumn, ' ');
    m_out.text() << head << std::string(kColumn - head.size(), ' ');
    if (lines.isEmpty())
      m_out.text() << "(none)\n";
    for (int i = 0; i < lines.size(); ++i)
      m_out.text() << (i == 0 ? "" : indent) << lines.at(i).toUtf8().constData() << '\n';
  }
  void add(const char* label, const char* key, const QString& value) {
    add(label, key, QStringList{value}, value);
  }
  void add(const char* label, const char* key, const QStringList& values) {
    add(label, key, values, QJsonArray::fromStringList(values));
  }
  void add(const char* label, const char* key, bool value) {
    add(label, key, QStringList{QString(value ? "yes" : "no")}, value);
  }
  void finish() {
    if (m_out.json())
      m_out.print(m_object);
  }

private:
  static constexpr std::size_t kColumn = 17;
  Output& m_out;
  QJsonObject m_object;
};

void addResources(const KR::BoxLibraryNode& node, Fields& fields) {
  QStringList lines;
  QJsonArray files;
  const auto resources = node.resources();
  // Read through the model: a local path would first copy the file into scratch space.
  for (const QString& file : resources->files) {
    const QByteArray bytes = resources->project->readFile(resources->path + '/' + file);
    lines.append(QString("%1 (%2 bytes)").arg(file).arg(bytes.size()));
    files.append(QJsonObject{{"name", file}, {"size", static_cast<qint64>(bytes.size())}});
  }
  fields.add("Resources", "resources", lines, files);
}

// Every node below parent that query matches, depth first, with a stack of its own.
void findBelow(const KR::BoxLibraryNode& parent, const KR::BoxLibraryQuery& query,
               QStringList& paths) {
  std::vector<const KR::BoxLibraryNode*> pending(parent.childList().crbegin(),
                                                 parent.childList().crend());
  while (!pending.empty()) {
    const KR::BoxLibraryNode* node = pending.back();
    pending.pop_back();
    if (query.matches(*node))
      paths.append(QString::fromStdString(displayPath(*node)));
    pending.insert(pending.end(), node->childList().crbegin(), node->childList().crend());
  }
}

}  // namespace

int runFind(const Arguments& arguments, Output& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  QStringList words;
  for (std::size_t i = 1; i < arguments.size(); ++i)
    words.append(QString::fromUtf8(arguments[i].c_str()));
  QStringList paths;
  findBelow(*library->boxRoot(), KR::BoxLibraryQuery(words.join(' ')), paths);
  if (out.json()) {
    out.print(QJsonObject{{"paths", QJsonArray::fromStringList(paths)}});
    return 0;
  }
  for (const QString& path : paths)
    out.text() << path.toUtf8().constData() << '\n';
  return 0;
}

int runTree(const Arguments& arguments, Output& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  if (out.json()) {
    out.print(
        QJsonObject{{"title", library->title()}, {"children", childrenJson(*library->boxRoot())}});
    return 0;
  }
  out.text() << library->title().toUtf8().constData() << '\n';
  printChildren(*library->boxRoot(), out.text());
  return 0;
}

int runShow(const Arguments& arguments, Output& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  const KR::BoxLibraryNode& node = *findNode(*library, arguments[1]);
  Fields fields(out);
  fields.add("Name", "name", QString::fromUtf8(node.name().c_str()));
  if (!node.isBox()) {
    fields.add("Kind", "kind", QString("folder"));
    fields.add("Expanded", "expanded", node.isExpanded());
    fields.add("Children", "childCount", QStringList{QString::number(node.childCount())},
               node.childCount());
    fields.finish();
    return 0;
  }
  const KR::BoxData& data = *node.boxData();
  fields.add("Kind", "kind", QString("box"));
  QString tooltip = data.tooltip();
  tooltip.remove('\r');
  // The JSON keeps the tooltip as stored; the text shows it line by line.
  fields.add("Tooltip", "tooltip", tooltip.isEmpty() ? QStringList() : tooltip.split('\n'),
             data.tooltip());
  fields.add("Tags", "tags",
             data.tags().isEmpty() ? QStringList() : QStringList{data.tags().join(", ")},
             QJsonArray::fromStringList(data.tags()));
  fields.add("Bitmaps", "bitmaps", QStringList(data.bitmaps()));
  fields.add("Bitmap expanded", "bitmapExpanded", data.bitmapExpanded());
  fields.add("Behavior", "behavior", data.behavior());
  addResources(node, fields);
  fields.finish();
  return 0;
}

}  // namespace krbox
