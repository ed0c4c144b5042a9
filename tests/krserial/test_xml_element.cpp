#include <krserial/xml_document.h>
#include <krserial/xml_text.h>

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cstdio>
#include <string>

namespace {

std::string attributeList(const KR::XmlElement& element) {
  std::string out;
  for (const auto& attribute : element.attributes()) {
    out += attribute.first + "=" + attribute.second + " ";
  }
  return out;
}

// Kinds and names/values of the direct children, to check what an edit kept and where.
std::string childList(const KR::XmlElement& element) {
  std::string out;
  for (const KR::XmlNodePtr& node : element.mixedChildren()) {
    if (node->type() == KR::XmlNode::Element) {
      out += static_cast<const KR::XmlElement&>(*node).name() + " ";
    } else {
      out += "TCM"[node->type() - 1] + std::string(":") +
             static_cast<const KR::XmlText&>(*node).value() + " ";
    }
  }
  return out;
}

KR::XmlElement::Ptr parse(const std::string& xml) {
  KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(xml, 0, 0);
  return document ? document->root() : KR::XmlElement::Ptr();
}

}  // namespace

TEST(XmlElement, AttributesKeepOrderByModeAndReadThroughSerial) {
  KR::XmlElement::Ptr e =
      parse("<Box name='a' id='1' x='7' k='1' k='2' f='yes' big='99999999999'/>");
  ASSERT_TRUE(e);
  e->setAttribute("name", "b", false);
  e->setAttribute("k", "3", false);
  e->setAttribute("new", "n", false);
  EXPECT_EQ("name=b id=1 x=7 k=3 f=yes big=99999999999 new=n ", attributeList(*e));
  e->setAttribute("name", "c", true);
  e->removeAttribute("big");
  e->removeAttribute("missing");
  EXPECT_EQ("id=1 x=7 k=3 f=yes new=n name=c ", attributeList(*e));
  EXPECT_EQ("dflt", e->attribute("big", "dflt"));

  int n = 5;
  bool b = false;
  EXPECT_TRUE(e->getAttribute("x", n) && n == 7);
  e->setAttribute("big", "99999999999", true);
  EXPECT_FALSE(e->getAttribute("big", n) || e->getAttribute("missing", n) || n != 7);
  EXPECT_FALSE(e->getAttribute("f", b) || b);
  EXPECT_TRUE(e->getAttribute("id", b) && b);
}

TEST(XmlElement, ChildrenFoundAddedAndRemovedInsideContainers) {
  KR::XmlElement::Ptr box = parse(
      "<Box><Bitmaps><bitmap>1</bitmap><!--c--><other/><bitmap>2</bitmap></Bitmaps>"
      "text<Input id='1'/><Bitmaps><bitmap>ignored</bitmap></Bitmaps><Input id='2'/></Box>");
  ASSERT_TRUE(box);
  EXPECT_EQ(4u, box->children().size());
  EXPECT_EQ(2u, box->children("Input").size());
  EXPECT_EQ("1", box->firstChild("Input")->attribute("id", ""));
  EXPECT_FALSE(box->firstChild("Output"));
  const auto bitmaps = box->children("bitmap", "Bitmaps");
  ASSERT_EQ(2u, bitmaps.size());
  EXPECT_EQ("2", bitmaps[1]->text());
  EXPECT_EQ(3u, box->children("", "Bitmaps").size());
  EXPECT_TRUE(box->children("bitmap", "Missing").empty());

  box->removeChildren("bitmap", "Bitmaps");
  EXPECT_EQ("M:c other ", childList(*box->firstChild("Bitmaps")));
  box->removeChildren("Input");
  EXPECT_EQ("Bitmaps T:text Bitmaps ", childList(*box));
  box->removeChildren("x", "Missing");

  auto added = boost::make_shared<KR::XmlElement>("bitmap");
  box->addChildren({added}, "Bitmaps");
  EXPECT_EQ(added, box->children("bitmap", "Bitmaps").at(0));
  KR::XmlElement fresh("Box");
  fresh.addChildren({}, "Resources");
  fresh.addChildren({added, added->clone()}, "Resources");
  EXPECT_EQ("Resources ", childList(fresh));
  EXPECT_EQ(added, fresh.firstChild("Resources")->firstChild("bitmap"));
  EXPECT_EQ(2u, fresh.children("bitmap", "Resources").size());
  fresh.removeChildren("");
  EXPECT_EQ("", childList(fresh));
}

TEST(XmlElement, SetTextReplacesOnlyCharacterData) {
  KR::XmlElement::Ptr e = parse("<a><!--c--><b/>one<![CDATA[two]]><c/>three</a>");
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->hasText());
  EXPECT_EQ("onetwothree", e->text());
  e->setText("new <&>", true);
  EXPECT_EQ("M:c b C:new <&> c ", childList(*e));
  EXPECT_EQ("new <&>", e->text());

  KR::XmlElement::Ptr bare = parse("<a><!--c--><b/></a>");
  EXPECT_FALSE(bare->hasText());
  EXPECT_EQ("", bare->text());
  bare->setText("end", false);
  EXPECT_EQ("M:c b T:end ", childList(*bare));
}

TEST(XmlElement, CloneSharesNothingWithTheOriginal) {
  KR::XmlElement::Ptr original = parse("<a k='v'><b x='1'>text<!--c--></b></a>");
  ASSERT_TRUE(original);
  KR::XmlElement::Ptr copy = original->clone();
  KR::XmlElement::Ptr copiedB = copy->firstChild("b");
  ASSERT_TRUE(copiedB);
  EXPECT_NE(original->firstChild("b"), copiedB);
  EXPECT_NE(original->firstChild("b")->mixedChildren()[0], copiedB->mixedChildren()[0]);
  EXPECT_EQ("T:text M:c ", childList(*copiedB));

  copy->setAttribute("k", "changed", false);
  copiedB->setAttribute("x", "2", false);
  boost::static_pointer_cast<KR::XmlText>(copiedB->mixedChildren()[1])->setValue("edited");
  copiedB->setText("other", false);
  copiedB->addChild(boost::make_shared<KR::XmlElement>("new"));
  EXPECT_EQ("k=v ", attributeList(*original));
  EXPECT_EQ("x=1 ", attributeList(*original->firstChild("b")));
  EXPECT_EQ("T:text M:c ", childList(*original->firstChild("b")));
}

TEST(XmlElement, VeryDeepTreesAreClonedWrittenAndFreedWithoutRecursion) {
  const int depth = 300000;
  auto root = boost::make_shared<KR::XmlElement>("e");
  KR::XmlElement* last = root.get();
  for (int i = 1; i < depth; ++i) {
    auto child = boost::make_shared<KR::XmlElement>("e");
    last->addChild(child);
    last = child.get();
  }
  last->setText("bottom", false);

  KR::XmlElement::Ptr copy = root->clone();
  int copiedDepth = 0;
  KR::XmlElement::Ptr bottom;
  for (KR::XmlElement::Ptr e = copy; e; e = e->firstChild("e")) {
    ++copiedDepth;
    bottom = e;
  }
  EXPECT_EQ(depth, copiedDepth);
  EXPECT_EQ("bottom", bottom->text());

  KR::XmlDocument document(root);
  // Unindented beyond the readable depth, so the text grows linearly with the depth.
  EXPECT_LT(document.saveToXmlString().size(), 8u * depth + 100);
  std::string error;
  FILE* file = std::tmpfile();
  ASSERT_TRUE(file);
  EXPECT_FALSE(document.saveToXmlFile(file, &error, nullptr));
  EXPECT_EQ(0L, std::ftell(file));
  std::fclose(file);
  EXPECT_NE(std::string::npos, error.find("1024"));
  copy.reset();
  document.setRoot(KR::XmlElement::Ptr());
  root.reset();
  // The bottom element is still held here, so it must have survived the teardown.
  EXPECT_EQ("bottom", bottom->text());
}
