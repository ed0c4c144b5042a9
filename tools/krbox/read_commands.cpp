#include "commands.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>

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

// "Label:" padded to one column; further lines of the value are indented to it.
class Fields {
public:
  explicit Fields(std::ostream& out) : m_out(out) {}

  void add(const char* label, const QStringList& lines) {
    const std::string head = std::string(label) + ":";
    const std::string indent(kColumn, ' ');
    m_out << head << std::string(kColumn - head.size(), ' ');
    if (lines.isEmpty())
      m_out << "(none)\n";
    for (int i = 0; i < lines.size(); ++i)
      m_out << (i == 0 ? "" : indent) << lines.at(i).toUtf8().constData() << '\n';
  }
  void add(const char* label, const QString& value) { add(label, QStringList{value}); }
  void add(const char* label, bool value) { add(label, QString(value ? "yes" : "no")); }

private:
  static constexpr std::size_t kColumn = 17;
  std::ostream& m_out;
};

QStringList resourceLines(const KR::BoxLibraryNode& node) {
  QStringList lines;
  const auto resources = node.resources();
  // Read through the model: a local path would first copy the file into scratch space.
  for (const QString& file : resources->files) {
    const QByteArray bytes = resources->project->readFile(resources->path + '/' + file);
    lines.append(QString("%1 (%2 bytes)").arg(file).arg(bytes.size()));
  }
  return lines;
}

}  // namespace

int runTree(const Arguments& arguments, std::ostream& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  out << library->title().toUtf8().constData() << '\n';
  printChildren(*library->boxRoot(), out);
  return 0;
}

int runShow(const Arguments& arguments, std::ostream& out) {
  const std::unique_ptr<KR::BoxLibrary> library = openLibrary(arguments[0], /*readOnly=*/true);
  const KR::BoxLibraryNode& node = *findNode(*library, arguments[1]);
  Fields fields(out);
  fields.add("Name", QString::fromUtf8(node.name().c_str()));
  if (!node.isBox()) {
    fields.add("Kind", QString("folder"));
    fields.add("Expanded", node.isExpanded());
    fields.add("Children", QString::number(node.childCount()));
    return 0;
  }
  const KR::BoxData& data = *node.boxData();
  fields.add("Kind", QString("box"));
  QString tooltip = data.tooltip();
  tooltip.remove('\r');
  fields.add("Tooltip", tooltip.isEmpty() ? QStringList() : tooltip.split('\n'));
  fields.add("Tags", data.tags().isEmpty() ? QStringList() : QStringList{data.tags().join(", ")});
  fields.add("Bitmaps", QStringList(data.bitmaps()));
  fields.add("Bitmap expanded", data.bitmapExpanded());
  fields.add("Behavior", data.behavior());
  fields.add("Resources", resourceLines(node));
  return 0;
}

}  // namespace krbox
