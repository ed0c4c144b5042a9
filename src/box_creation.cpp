#include <krboxlibrary/box_library_node.h>

#include <krboxlibrary/box_data.h>
#include <krserial/xml_element.h>
#include <zu/project/project_model.h>

#include "refusal.h"
#include "text.h"

#include <memory>

namespace KR {

bool BoxLibraryNode::init(const RootBoxDescription& description) {
  if (!description.box) {
    refusal::warn("init", "Refused a box description without a box element");
    return false;
  }
  m_expanded = false;
  setBoxDataInternal(boost::shared_ptr<BoxData>(new BoxData(this, description.box)));
  initName(description.name);
  // A node without any project is made all the same: there is nowhere to write it.
  if (!project())
    return true;
  // saveBox() renames the element it writes; the caller's element stays as it was. It logs
  // its own failure.
  if (!saveBox(description.box->clone(), m_boxData->behavior()))
    return false;

  const BoxResourceList* resources = description.resources.get();
  zu::project::ProjectModel* model = project();
  if (!resources || !resources->project || !model)
    return true;
  const QString source = text::asDirectory(resources->path);
  const QString destination = directoryPrefix();
  for (QString file : resources->files) {
    if (file.isEmpty())
      continue;
    if (file.startsWith(QLatin1Char('/')))
      file.remove(0, 1);
    model->importFile(resources->project, source + file, destination + file, false);
  }
  return true;
}

BoxLibraryNode* BoxLibraryNode::clone() const {
  // Owned here until complete: a throw part-way (a failing import) leaks nothing.
  std::unique_ptr<BoxLibraryNode> copy(new BoxLibraryNode());
  copy->m_ownProject = new zu::project::ProjectModel(copy.get());
  copy->initName(m_name);
  copy->m_expanded = m_expanded;
  // Not attached with setBoxDataInternal(): the copy's own data stays unconnected.
  if (m_boxData)
    copy->m_boxData = m_boxData->clone(copy.get());
  if (zu::project::ProjectModel* model = project())
    copy->m_ownProject->importFile(model, path(), copy->path(), true);
  // The subtree is read back from the copied files, not copied object by object.
  for (const BoxLibraryNode* child : m_children)
    copy->appendChildFromProject(child->m_fileName);
  return copy.release();
}

}  // namespace KR
