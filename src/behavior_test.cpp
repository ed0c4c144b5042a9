#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>

#include <krserial/xml_element.h>

#include <array>
#include <set>
#include <string>

namespace KR {

namespace {

// The interface every behavior exposes: three control inputs and one standard output.
const std::set<std::string> kBehaviorInputs = {"Input/onLoad/1/1/0", "Input/onStart/1/1/2",
                                               "Input/onStop/1/1/3"};
const char kBehaviorOutput[] = "Output/1/1/1";

// The element name and the given attributes joined by "/"; an absent attribute leaves an
// empty field. Values stay text: "01" is not "1".
template <size_t N>
std::string signature(const XmlElement& element, const std::array<const char*, N>& attributes) {
  std::string result = element.name();
  for (const char* attribute : attributes) {
    result += '/';
    result += element.attribute(attribute, std::string());
  }
  return result;
}

}  // namespace

bool BoxData::isBehavior(boost::shared_ptr<const XmlElement> box) {
  if (!box)
    return false;
  static const std::array<const char*, 4> inputAttributes = {"name", "type", "type_size", "nature"};
  // An output's name is free; only its kind counts.
  static const std::array<const char*, 3> outputAttributes = {"type", "type_size", "nature"};

  // Inputs must match as a set (a repeated one is harmless, an extra one is not); a single
  // standard output among any others is enough.
  std::set<std::string> inputs;
  bool hasOutput = false;
  for (const XmlNodePtr& node : box->mixedChildren()) {
    if (node->type() != XmlNode::Element)
      continue;
    const auto& child = static_cast<const XmlElement&>(*node);
    if (child.name() == BoxConstants::a_inputBeacon)
      inputs.insert(signature(child, inputAttributes));
    else if (child.name() == BoxConstants::a_outputBeacon &&
             signature(child, outputAttributes) == kBehaviorOutput)
      hasOutput = true;
  }
  return inputs == kBehaviorInputs && hasOutput && box->firstChild(BoxConstants::a_timelineBeacon);
}

}  // namespace KR
