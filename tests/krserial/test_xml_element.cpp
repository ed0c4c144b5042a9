#include "xml_test_helpers.h"

#include <cstdio>

namespace {

using namespace xmltest;

TEST(XmlElement, AttributesKeepOrderByModeAndReadThroughSerial) {
  XmlElement::Ptr e = parse("<Box name='a' id='1' x='7' k='1' k='2' f='yes' big='99999999999'/>");
  ASSERT_TRUE(e);
  e->setAttribute("name", "b", false);
  e->setAttribute("k", "3", false);
  e->setAttribute("new", "n", false);
  EXPECT_EQ("<Box name=b id=1 x=7 k=3 f=yes big=99999999999 new=n></>", dump(*e));
  e->setAttribute("name", "c", true);
  e->removeAttribute("big");
  e->removeAttribute("missing");
  EXPECT_EQ("<Box id=1 x=7 k=3 f=yes new=n name=c></>", dump(*e));
  EXPECT_EQ("dflt", e->attribute("big", "dflt"));

  int n = 5;
  bool b = false;
  EXPECT_TRUE(e->getAttribute("x", n) && n == 7 && e->getAttribute("id", b) && b);
  EXPECT_FALSE(e->getAttribute("missing", n) || e->getAttribute("f", b) || n != 7 || !b);
}

TEST(XmlElement, ChildrenFoundAddedAndRemovedInsideContainers) {
  XmlElement::Ptr box = parse(
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
  box->removeChildren("Input");
  box->removeChildren("x", "Missing");
  EXPECT_EQ("<Box><Bitmaps>M:c|<other></></>T:text|<Bitmaps><bitmap>T:ignored|</></></>",
            dump(*box));

  auto added = boost::make_shared<XmlElement>("bitmap");
  box->addChildren({added}, "Bitmaps");
  EXPECT_EQ(added, box->children("bitmap", "Bitmaps").at(0));
  XmlElement fresh("Box");
  fresh.addChildren({}, "Resources");
  fresh.addChildren({added, added->clone()}, "Resources");
  EXPECT_EQ("<Box><Resources><bitmap></><bitmap></></></>", dump(fresh));
  EXPECT_EQ(added, fresh.firstChild("Resources")->firstChild("bitmap"));
  fresh.removeChildren("");
  EXPECT_EQ("<Box></>", dump(fresh));
}

TEST(XmlElement, SetTextReplacesOnlyCharacterDataAndClonesShareNothing) {
  XmlElement::Ptr e = parse("<a k='v'><!--c--><b/>one<![CDATA[two]]><c/>three</a>");
  ASSERT_TRUE(e && e->hasText());
  EXPECT_EQ("onetwothree", e->text());
  XmlElement::Ptr original = e->clone();
  e->setText("new <&>", true);
  EXPECT_EQ("<a k=v>M:c|<b></>C:new <&>|<c></></>", dump(*e));
  // Every edit would show in the original if anything were shared.
  e->setAttribute("k", "changed", false);
  e->firstChild("b")->addChild(boost::make_shared<XmlElement>("new"));
  boost::static_pointer_cast<KR::XmlText>(e->mixedChildren()[0])->setValue("edited");
  EXPECT_EQ("<a k=v>M:c|<b></>T:one|C:two|<c></>T:three|</>", dump(*original));

  XmlElement::Ptr bare = parse("<a><!--c--><b/></a>");
  EXPECT_FALSE(bare->hasText());
  bare->setText("end", false);
  EXPECT_EQ("<a>M:c|<b></>T:end|</>", dump(*bare));
}

TEST(XmlElement, VeryDeepTreesAreClonedWrittenAndFreedWithoutRecursion) {
  const int depth = 300000;
  auto root = boost::make_shared<XmlElement>("e");
  XmlElement* last = root.get();
  for (int i = 1; i < depth; ++i) {
    auto child = boost::make_shared<XmlElement>("e");
    last->addChild(child);
    last = child.get();
  }
  last->setText("bottom", false);

  XmlElement::Ptr copy = root->clone();
  int copiedDepth = 0;
  XmlElement::Ptr bottom;
  for (XmlElement::Ptr e = copy; e; e = e->firstChild("e")) {
    ++copiedDepth;
    bottom = e;
  }
  EXPECT_EQ(depth, copiedDepth);
  EXPECT_EQ("bottom", bottom->text());

  XmlDocument document(root);
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
  document.setRoot(XmlElement::Ptr());
  root.reset();
  // The bottom element is still held here, so it must have survived the teardown.
  EXPECT_EQ("bottom", bottom->text());
}

}  // namespace
