#include "xml_test_helpers.h"

#include <krserial/xml_text.h>

#include <gtest/gtest.h>

namespace xmltest {

extern const char kBoxDocument[] = R"XML(<?xml version="1.0" encoding="UTF-8"?>
<VantorelBox bxd_version="5">
  <!-- entry of the sample library -->
  <Box name="Sày hellø" id="-1" tooltip="Says &quot;hi&quot; &amp; waves &lt;twice&gt;"
       x="97" plugin="">
    <Bitmaps>
      <bitmap>media/speech.png</bitmap>
      <bitmap>media/ünïcødé 日本語.png</bitmap>
    </Bitmaps>
    <Input name="onStart" type="1" tooltip="" id="2" />
    <Diagram scale="100">
      <!-- the script box -->
      <Box name="Script" id="2">
        <content><![CDATA[class MyClass(GeneratedClass):
    def onInput_onStart(self):
        if self.count < 3 and flags & 1:
            data = table[index[1]]
]]></content>
      </Box>
    </Diagram>
    <Note>A <b>bold</b> and <i>italic</i> — 日本語, 1 &lt; 2 &amp; "q" 'r'</Note>
  </Box>
</VantorelBox>
)XML";

std::string dump(const XmlElement& element) {
  std::string out = "<" + element.name();
  for (const auto& attribute : element.attributes())
    out += " " + attribute.first + "=" + attribute.second;
  out += ">";
  for (const KR::XmlNodePtr& node : element.mixedChildren()) {
    if (node->type() == KR::XmlNode::Element)
      out += dump(static_cast<const XmlElement&>(*node));
    else
      out += "TCM"[node->type() - 1] + (":" + static_cast<const KR::XmlText&>(*node).value()) + "|";
  }
  return out + "</>";
}

XmlElement::Ptr parse(const std::string& xml) {
  std::string error, context;
  XmlDocument::Ptr document = XmlDocument::loadFromXmlString(xml, &error, &context);
  EXPECT_TRUE(document) << error << " at " << context;
  return document ? document->root() : XmlElement::Ptr();
}

std::string repeated(const std::string& part, int count) {
  std::string out;
  for (int i = 0; i < count; ++i)
    out += part;
  return out;
}

std::string nested(int depth) {
  return repeated("<e>", depth) + repeated("</e>", depth);
}

}  // namespace xmltest
