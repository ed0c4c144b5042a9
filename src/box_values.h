#ifndef KRBOXLIBRARY_SRC_BOX_VALUES_H
#define KRBOXLIBRARY_SRC_BOX_VALUES_H

// What a box file says about its box, read by one set of rules from either form of a parsed
// document: the element tree, or the reader a tree read uses to skip building one. Keeping
// the rules in templates over both forms is what keeps the two reads equal.

#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>
#include <krserial/xml_element.h>
#include <krserial/xml_reader.h>

#include "text.h"
#include "vocabulary.h"

#include <QList>
#include <QString>

#include <algorithm>
#include <array>
#include <string>

namespace KR {

/// The values a box's data keeps from its box element.
struct BoxValues {
  QString tooltip;
  QList<QString> bitmaps;
  bool bitmapExpanded = true;  // a missing or unreadable value reads as expanded
  bool behavior = false;
};

namespace boxfile {

inline const XmlElement& element(const XmlElement::Ptr& element) {
  return *element;
}
inline const XmlReader::Element& element(const XmlReader::Element& element) {
  return element;
}

// The element name and the given attributes joined by "/"; an absent attribute leaves an
// empty field. Values stay text: "01" is not "1".
template <class Element, size_t N>
std::string signature(const Element& element, const std::array<const char*, N>& attributes) {
  std::string result(element.name());
  for (const char* attribute : attributes) {
    result += '/';
    result += element.attribute(attribute, std::string());
  }
  return result;
}

/// Whether box has the interface every behavior exposes: three control inputs and one
/// standard output, and a timeline.
template <class Element>
bool isBehavior(const Element& box) {
  static const std::array<std::string, 3> kInputs = {"Input/onLoad/1/1/0", "Input/onStart/1/1/2",
                                                     "Input/onStop/1/1/3"};
  static const std::string kOutput = "Output/1/1/1";
  static const std::array<const char*, 4> inputAttributes = {"name", "type", "type_size", "nature"};
  // An output's name is free; only its kind counts.
  static const std::array<const char*, 3> outputAttributes = {"type", "type_size", "nature"};

  // Inputs must match as a set (a repeated one is harmless, an extra one is not); a single
  // standard output among any others is enough.
  unsigned inputs = 0;
  bool hasOutput = false;
  for (const auto& child : box.children()) {
    const auto& each = element(child);
    if (each.name() == BoxConstants::a_inputBeacon) {
      const std::string input = signature(each, inputAttributes);
      const auto found = std::find(kInputs.begin(), kInputs.end(), input);
      if (found == kInputs.end())
        return false;
      inputs |= 1u << (found - kInputs.begin());
    } else if (!hasOutput && each.name() == BoxConstants::a_outputBeacon) {
      hasOutput = signature(each, outputAttributes) == kOutput;
    }
  }
  return inputs == 7u && hasOutput &&
         static_cast<bool>(box.firstChild(BoxConstants::a_timelineBeacon));
}

/// The values of a box element.
template <class Element>
BoxValues values(const Element& box) {
  BoxValues values;
  if (box.hasAttribute(vocabulary::kTooltipAttribute))
    values.tooltip = text::fromUtf8(box.attribute(vocabulary::kTooltipAttribute, std::string()));
  for (const auto& bitmap : box.children(vocabulary::kBitmapElement, vocabulary::kBitmapsElement)) {
    if (element(bitmap).hasText())
      values.bitmaps.append(text::fromUtf8(element(bitmap).text()));
  }
  box.getAttribute(vocabulary::kBitmapExpandedAttribute, values.bitmapExpanded);
  values.behavior = isBehavior(box);
  return values;
}

/// Why root is not a current box file, in box or project form; "" when it is. Older ones are
/// not migrated.
template <class Element>
QString refusal(const Element& root) {
  const bool project = root.name() == BoxConstants::a_projectTag;
  if (root.name() != BoxConstants::a_boxBxdBeacon && !project)
    return QStringLiteral("its root element is \"%1\"")
        .arg(text::fromUtf8(std::string(root.name())));
  if (project &&
      root.attribute(vocabulary::kSchemaAttribute, std::string()) != BoxConstants::a_projectXsd)
    return QStringLiteral("its project schema is not \"%1\"")
        .arg(QLatin1String(BoxConstants::a_projectXsd));
  int version = BoxConstants::a_defaultBxdVersion;
  root.getAttribute(vocabulary::kVersionAttribute, version);
  if (version != BoxConstants::a_currentBxdVersion)
    return QStringLiteral("it is version %1; this library reads version %2")
        .arg(version)
        .arg(BoxConstants::a_currentBxdVersion);
  return QString();
}

}  // namespace boxfile

}  // namespace KR

#endif
