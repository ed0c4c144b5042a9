#include "xml_test_helpers.h"

#include <krserial/xml_reader.h>

namespace {

using namespace xmltest;
using KR::XmlReader;

// Everything the reader answers about element, checked against the element tree's answer,
// down through the whole document.
void expectSame(const XmlElement& tree, const XmlReader::Element& read, const std::string& where) {
  SCOPED_TRACE(where + "/" + tree.name());
  ASSERT_TRUE(read);
  EXPECT_EQ(tree.name(), read.name());
  for (const auto& attribute : tree.attributes()) {
    EXPECT_TRUE(read.hasAttribute(attribute.first));
    EXPECT_EQ(attribute.second, read.attribute(attribute.first, "?")) << attribute.first;
  }
  EXPECT_FALSE(read.hasAttribute("absent"));
  EXPECT_EQ("?", read.attribute("absent", "?"));
  int number = -7, expected = -7;
  EXPECT_EQ(tree.getAttribute("n", expected), read.getAttribute("n", number));
  EXPECT_EQ(expected, number);
  EXPECT_EQ(tree.hasText(), read.hasText());
  EXPECT_EQ(tree.text(), read.text());
  const std::vector<XmlElement::Ptr> children = tree.children();
  const std::vector<XmlReader::Element> readChildren = read.children();
  ASSERT_EQ(children.size(), readChildren.size());
  for (const XmlElement::Ptr& child : children) {
    const XmlElement::Ptr first = tree.firstChild(child->name());
    const XmlReader::Element readFirst = read.firstChild(child->name());
    EXPECT_EQ(first->text(), readFirst.text());
    for (const auto& attribute : first->attributes())
      EXPECT_EQ(attribute.second, readFirst.attribute(attribute.first, "?"));
    EXPECT_EQ(tree.children(child->name()).size(), read.children(child->name()).size());
    EXPECT_EQ(tree.children("", child->name()).size(), read.children("", child->name()).size());
  }
  EXPECT_FALSE(read.firstChild("absent"));
  for (std::size_t i = 0; i < children.size(); ++i)
    expectSame(*children[i], readChildren[i], where + "/" + tree.name());
}

TEST(XmlReader, ReadsAndRefusesExactlyAsTheElementTree) {
  const std::string documents[] = {
      kBoxDocument,
      "<a n=\"1\" n=\"2\" x=\"first\"><b/>text<![CDATA[ & more]]><!-- c --><b n=\"x\"/>tail</a>",
      "<a>\n  <b>  </b>\n  <c n=\"+5\">&lt;&#10;&#x263A;</c>\n</a>",
      "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY e \"boom\">]><a>&e;</a>",
      std::string("\xff\xfe<\0a\0 \0n\0=\0\"\0"
                  "3\0\"\0/\0>\0",
                  22),
      nested(XmlDocument::maxDepth()),
      nested(XmlDocument::maxDepth() + 1),
      "<a>\n<b></c></a>",
      "<a/>\n<b/>",
      std::string("<a>x\0y</a>", 10),
      "",
      "<!-- only a comment -->",
  };
  XmlReader reader;
  for (const std::string& xml : documents) {
    SCOPED_TRACE(xml.substr(0, 60));
    std::string treeError = "unset", treeContext = "unset", error = "unset", context = "unset";
    const XmlDocument::Ptr tree = XmlDocument::loadFromXmlString(xml, &treeError, &treeContext);
    ASSERT_EQ(static_cast<bool>(tree), reader.parse(xml, &error, &context));
    EXPECT_EQ(treeError, error);
    EXPECT_EQ(treeContext, context);
    if (tree)
      expectSame(*tree->root(), reader.root(), "");
    else
      EXPECT_FALSE(reader.root());
  }
}

}  // namespace
