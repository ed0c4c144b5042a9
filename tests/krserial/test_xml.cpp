#include <krserial/xml_document.h>
#include <krserial/xml_text.h>

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <boost/make_shared.hpp>

#include <cstdio>
#include <functional>
#include <string>

namespace {

using KR::XmlDocument;
using KR::XmlElement;

const char kBoxDocument[] = R"XML(<?xml version="1.0" encoding="UTF-8"?>
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

// An element and everything below it on one line, kinds marked (Text, Cdata, coMment),
// so that any difference in content or order shows.
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

}  // namespace

TEST(XmlRoundTrip, BoxDocumentKeepsEverythingThroughLoadSaveLoad) {
  XmlElement::Ptr first = parse(kBoxDocument);
  ASSERT_TRUE(first);
  // Indentation is not content, and only the note holds mixed content.
  EXPECT_EQ(dump(*first),
            "<VantorelBox bxd_version=5>M: entry of the sample library |<Box name=Sày hellø "
            "id=-1 tooltip=Says \"hi\" & waves <twice> x=97 plugin=><Bitmaps><bitmap>"
            "T:media/speech.png|</><bitmap>T:media/ünïcødé 日本語.png|</></><Input name=onStart "
            "type=1 tooltip= id=2></><Diagram scale=100>M: the script box |<Box name=Script id=2>"
            "<content>C:class MyClass(GeneratedClass):\n    def onInput_onStart(self):\n        "
            "if self.count < 3 and flags & 1:\n            data = table[index[1]]\n|</></></>"
            "<Note>T:A |<b>T:bold|</>T: and |<i>T:italic|</>T: — 日本語, 1 < 2 & \"q\" 'r'|</>"
            "</></>");
  const std::string saved = XmlDocument(first).saveToXmlString();
  EXPECT_EQ(0u, saved.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VantorelBox"));
  EXPECT_NE(std::string::npos, saved.find("\n    <Bitmaps>\n      <bitmap>"));
  XmlElement::Ptr second = parse(saved);
  ASSERT_TRUE(second);
  EXPECT_EQ(dump(*first), dump(*second));
  EXPECT_EQ(saved, XmlDocument(second).saveToXmlString());
}

TEST(XmlRoundTrip, BuiltTreeWithMixedContentAndEscapesComesBackIdentical) {
  auto root = boost::make_shared<XmlElement>("p");
  root->setAttribute("quotes", "a \"b\" 'c' <d> & e", true);
  root->setAttribute("lines", "one\ntwo\tthree Ünïcødé", true);
  const std::pair<KR::XmlNode::Type, const char*> nodes[] = {
      {KR::XmlNode::Text, "  leading <&> "},
      {KR::XmlNode::Element, "br"},
      {KR::XmlNode::Text, "\ntail ]]> 日本語\n"},
      {KR::XmlNode::Comment, " note "},
      {KR::XmlNode::CData, "x < y && z ]]"},
      {KR::XmlNode::Element, "list"},
      {KR::XmlNode::Text, "after"}};
  for (const auto& node : nodes) {
    if (node.first == KR::XmlNode::Element)
      root->addChild(boost::make_shared<XmlElement>(node.second));
    else
      root->addNode(boost::make_shared<KR::XmlText>(node.first, node.second));
  }
  root->firstChild("list")->addChild(boost::make_shared<XmlElement>("item"));
  root->firstChild("list")->setText("  spaced after an element  ", false);
  const XmlDocument built(root);
  XmlElement::Ptr loaded = parse(built.saveToXmlString());
  ASSERT_TRUE(loaded);
  EXPECT_EQ(dump(*root), dump(*loaded));
  EXPECT_EQ(built.saveToXmlString(), XmlDocument(loaded).saveToXmlString());

  // pugixml splits such a section in two; what matters is that the text survives.
  auto script = boost::make_shared<XmlElement>("script");
  script->setText("if (a[b[0]]> 1) { x = \"]]>\"; }", true);
  XmlElement::Ptr scriptBack = parse(XmlDocument(script).saveToXmlString());
  ASSERT_TRUE(scriptBack);
  EXPECT_EQ(script->text(), scriptBack->text());
}

TEST(XmlHostile, MalformedDocumentsAreRejectedWithWhereAndWhy) {
  const struct {
    std::string xml;
    const char* where;
  } cases[] = {
      {"<a>\n  <b>\n</a>", "line 3"},
      {"<a>\n<b></c></a>", "line 2, column 6"},
      {"<a><b>text", "line 1, column 10"},
      {"", "line 1, column 1"},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", "line 2"},
      {"<a/>\n<b/>", "line 2, column 1"},
      {std::string("<a/>\n\0junk", 10), "line 2, column 1"},
      {std::string("<a>x\0y</a>", 10), "column 5"},
      {"<ünï>\n  <日本>x</本日>", "line 2, column 10"},
  };
  for (const auto& c : cases) {
    std::string error, context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(c.xml, &error, &context)) << c.xml;
    EXPECT_FALSE(error.empty()) << c.xml;
    EXPECT_NE(std::string::npos, context.find(c.where)) << c.xml << " -> " << context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(c.xml, nullptr, nullptr)) << c.xml;
  }
}

TEST(XmlHostile, NestingIsAcceptedUpToTheLimitAndRefusedBeyond) {
  const int limit = XmlDocument::maxDepth();
  ASSERT_EQ(1024, limit);
  XmlElement::Ptr atLimit = parse(nested(limit));
  ASSERT_TRUE(atLimit);
  int depth = 0;
  for (XmlElement::Ptr e = atLimit; e; e = e->firstChild("e"))
    ++depth;
  EXPECT_EQ(limit, depth);
  // Written back, it must still be readable.
  EXPECT_TRUE(parse(XmlDocument(atLimit).saveToXmlString()));

  for (int tooDeep : {limit + 1, 100000}) {
    std::string error, context;
    EXPECT_FALSE(XmlDocument::loadFromXmlString(nested(tooDeep), &error, &context));
    EXPECT_NE(std::string::npos, error.find("1024")) << error;
    EXPECT_NE(std::string::npos, context.find("column " + std::to_string(3 * limit + 1)))
        << context;
  }
}

TEST(XmlHostile, DeclaredEntitiesAreNeverExpanded) {
  std::string xml = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol \"lol\">\n";
  for (int i = 1; i <= 9; ++i) {
    xml += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j)
      xml += "&lol" + (i > 1 ? std::to_string(i - 1) : std::string()) + ";";
    xml += "\">\n";
  }
  xml += "]>\n<lolz a=\"&lol9;\">&lol9;</lolz>";
  std::string error;
  XmlDocument::Ptr document = XmlDocument::loadFromXmlString(xml, &error, nullptr);
  if (document) {
    EXPECT_EQ("&lol9;", document->root()->text());
    EXPECT_EQ("&lol9;", document->root()->attribute("a", ""));
    EXPECT_LT(document->saveToXmlString().size(), 200u);
  } else {
    EXPECT_FALSE(error.empty());
  }
}

TEST(XmlHostile, OddBytesNeverCrashTheReader) {
  const std::string inputs[] = {
      "<a t=\"\xff\xfe\">\xc3</a>",                           // invalid UTF-8
      "<!DOCTYPE a [" + repeated("<!E ", 100000) + "]><a/>",  // runaway DTD
      "<a>" + std::string(50000, '&') + "</a>",               // stray ampersands
      "\xef\xbb\xbf<a>bom</a>",                               // UTF-8 signature
      std::string("\xff\xfe<\0a\0/\0>\0", 10),                // UTF-16
  };
  for (const std::string& xml : inputs) {
    std::string error;
    XmlDocument::Ptr document = XmlDocument::loadFromXmlString(xml, &error, nullptr);
    if (document) {
      EXPECT_TRUE(document->root());
      EXPECT_FALSE(document->saveToXmlString().empty());
    } else {
      EXPECT_FALSE(error.empty());
    }
  }
  XmlElement::Ptr utf16 = parse(inputs[4]);
  ASSERT_TRUE(utf16);
  EXPECT_EQ("a", utf16->name());
}

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

TEST(XmlElement, SetTextReplacesOnlyCharacterData) {
  XmlElement::Ptr e = parse("<a><!--c--><b/>one<![CDATA[two]]><c/>three</a>");
  ASSERT_TRUE(e);
  EXPECT_TRUE(e->hasText());
  EXPECT_EQ("onetwothree", e->text());
  e->setText("new <&>", true);
  EXPECT_EQ("<a>M:c|<b></>C:new <&>|<c></></>", dump(*e));
  EXPECT_EQ("new <&>", e->text());

  XmlElement::Ptr bare = parse("<a><!--c--><b/></a>");
  EXPECT_FALSE(bare->hasText());
  EXPECT_EQ("", bare->text());
  bare->setText("end", false);
  EXPECT_EQ("<a>M:c|<b></>T:end|</>", dump(*bare));
}

TEST(XmlElement, CloneSharesNothingWithTheOriginal) {
  XmlElement::Ptr original = parse("<a k='v'><b x='1'>text<!--c--></b></a>");
  ASSERT_TRUE(original);
  XmlElement::Ptr copy = original->clone();
  EXPECT_EQ(dump(*original), dump(*copy));
  // Every edit below would show in the original if anything were shared.
  XmlElement::Ptr copiedB = copy->firstChild("b");
  copy->setAttribute("k", "changed", false);
  copiedB->setAttribute("x", "2", false);
  boost::static_pointer_cast<KR::XmlText>(copiedB->mixedChildren()[1])->setValue("edited");
  copiedB->setText("other", false);
  copiedB->addChild(boost::make_shared<XmlElement>("new"));
  EXPECT_EQ("<a k=v><b x=1>T:text|M:c|</></>", dump(*original));
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

TEST(XmlFile, RealFilesAreWrittenAndReadFromTheCurrentPosition) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const std::string path = QFile::encodeName(dir.filePath("box.xml")).toStdString();
  const XmlDocument document(parse(kBoxDocument));
  const std::string text = document.saveToXmlString();
  std::string error;
  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  std::fputs("<junk/>", out);
  EXPECT_TRUE(document.saveToXmlFile(out, &error, nullptr)) << error;
  std::fclose(out);

  FILE* in = std::fopen(path.c_str(), "rb");
  ASSERT_TRUE(in);
  std::fseek(in, 7, SEEK_SET);
  XmlDocument::Ptr back = XmlDocument::loadFromXmlFile(in, &error, nullptr);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(text, back->saveToXmlString());
  // Every way a file cannot be read or written fails and says why.
  FILE* full = std::fopen("/dev/full", "wb");
  ASSERT_TRUE(full);
  out = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(out);
  const std::function<bool()> failing[] = {
      [&] { return document.saveToXmlFile(in, &error, nullptr); },
      [&] { return bool(XmlDocument::loadFromXmlFile(out, &error, nullptr)); },
      [&] { return XmlDocument().saveToXmlFile(out, &error, nullptr); },
      [&] { return bool(XmlDocument::loadFromXmlFile(nullptr, &error, nullptr)); },
      [&] { return document.saveToXmlFile(nullptr, &error, nullptr); },
      [&] { return document.saveToXmlFile(full, &error, nullptr); }};
  for (const auto& attempt : failing) {
    error.clear();
    EXPECT_FALSE(attempt());
    EXPECT_FALSE(error.empty());
  }
  std::fclose(in);
  std::fclose(out);
  std::fclose(full);
}
