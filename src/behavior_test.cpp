#include <krboxlibrary/box_data.h>

#include "box_values.h"

namespace KR {

bool BoxData::isBehavior(boost::shared_ptr<const XmlElement> box) {
  return box && boxfile::isBehavior(*box);
}

}  // namespace KR
