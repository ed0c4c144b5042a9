#include <krboxlibrary/box_library_node.h>

#include <krboxlibrary/box_data.h>
#include <krserial/xml_element.h>
#include <zu/log.h>

#include "text.h"
#include "vocabulary.h"

#include <exception>
#include <stdexcept>

namespace KR {

namespace {

void logSaveFailure(const BoxLibraryNode& node, const char* function, const std::exception& e) {
  zu::log::LogStream(zu::log::LogLevel_Error, vocabulary::kLogCategory, "", function, 0)
      << "Could not save node " << text::toLatin1(node.path()) << ", reason: " << e.what();
}

}  // namespace

// A box is written back from its own file, so what is saved is what the file says; only the
// form (box or behavior) follows the box data.
void BoxLibraryNode::saveOwnFile() {
  if (!m_boxData) {
    saveFolder();
    return;
  }
  const boost::shared_ptr<XmlElement> box = loadBox();
  if (!box)
    throw std::runtime_error("its box file is missing or cannot be read");
  saveBox(box, m_boxData->behavior());
}

bool BoxLibraryNode::save() {
  try {
    saveOwnFile();
  } catch (const std::exception& e) {
    logSaveFailure(*this, "save", e);
    return false;
  }
  return true;
}

bool BoxLibraryNode::saveAll() {
  try {
    saveOwnFile();
  } catch (const std::exception& e) {
    logSaveFailure(*this, "saveAll", e);
    return false;
  }
  if (m_boxData)
    return true;
  // A copy: the list must not shift under the walk. Each child logs its own failure.
  const QList<BoxLibraryNode*> children = m_children;
  for (BoxLibraryNode* child : children)
    child->saveAll();
  return true;
}

}  // namespace KR
