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
// form (box or behavior) follows the box data. function names the caller in the log.
bool BoxLibraryNode::saveOwnFile(const char* function) {
  try {
    if (!m_boxData) {
      saveFolder();
      return true;
    }
    const boost::shared_ptr<XmlElement> box = loadBox();
    if (!box)
      throw std::runtime_error("its box file is missing or cannot be read");
    QString file;
    const std::string error = writeBox(box, m_boxData->behavior(), file);
    if (!error.empty())
      throw std::runtime_error(error);
  } catch (const std::exception& e) {
    logSaveFailure(*this, function, e);
    return false;
  }
  return true;
}

bool BoxLibraryNode::save() {
  return saveOwnFile("save");
}

bool BoxLibraryNode::saveAll() {
  if (!saveOwnFile("saveAll"))
    return false;
  if (m_boxData)
    return true;
  // A copy: the list must not shift under the walk. Each child logs its own failure.
  const QList<BoxLibraryNode*> children = m_children;
  for (BoxLibraryNode* child : children)
    child->saveAll();
  return true;
}

}  // namespace KR
