#include "library_fixtures.h"

#include <QMetaMethod>

namespace {

using KR::BoxData;
using KR::BoxLibraryNode;
using KR::XmlElement;
using testutil::parseElement;

// The values of the box element that the box file of node holds now.
std::string fileTooltip(const BoxLibraryNode* node) {
  const XmlElement::Ptr box = node->loadBox();
  return box ? box->attribute("tooltip", "<none>") : "<no file>";
}

std::vector<std::string> fileBitmaps(const BoxLibraryNode* node) {
  std::vector<std::string> bitmaps;
  for (const XmlElement::Ptr& bitmap : node->loadBox()->children("bitmap", "Bitmaps"))
    bitmaps.push_back(bitmap->text());
  return bitmaps;
}

// A box three folders down: Motions / Walk / Fast / Stride.
class BoxDataInLibrary : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(dir.isValid());
    testutil::writeFixture(dir.path(),
                           {{"Motions/Walk/Fast/Stride/box.bxd",
                             testutil::boxFile(R"(<Box name="root" tooltip="Long steps." x="3">)"
                                               R"(<Bitmaps><bitmap>a.png</bitmap></Bitmaps>)"
                                               R"(<Parameter name="Speed" value="80"/></Box>)")}});
    library = std::make_unique<KR::BoxLibrary>(dir.path());
    box = library->node({0, 0, 0, 0});
    ASSERT_NE(box, nullptr);
    ASSERT_TRUE(box->isBox());
    data = box->boxData().get();
  }

  QTemporaryDir dir;
  std::unique_ptr<KR::BoxLibrary> library;
  BoxLibraryNode* box = nullptr;
  BoxData* data = nullptr;
};

TEST(BoxDataRead, ValuesComeFromTheBoxElement) {
  const BoxData bare(nullptr, parseElement("<Box/>"));
  EXPECT_TRUE(bare.tooltip().isNull());
  EXPECT_TRUE(bare.bitmaps().isEmpty());
  EXPECT_TRUE(bare.bitmapExpanded());
  EXPECT_FALSE(bare.behavior());

  // Bitmaps count only inside "Bitmaps" and when they have text; "no" is not a boolean.
  const BoxData full(nullptr,
                     parseElement(R"(<Box tooltip="Gr&#xFC;&#xDF;e" bitmap_expanded="no">)"
                                  R"(<bitmap>direct.png</bitmap><Bitmaps><bitmap>a.png</bitmap>)"
                                  R"(<bitmap/><bitmap>b&#xE9;.png</bitmap></Bitmaps></Box>)"));
  EXPECT_EQ(full.tooltip(), QString::fromUtf8("Grüße"));
  EXPECT_EQ(full.bitmaps(), (QList<QString>{"a.png", QString::fromUtf8("bé.png")}));
  EXPECT_TRUE(full.bitmapExpanded());
  EXPECT_FALSE(BoxData(nullptr, parseElement(R"(<Box bitmap_expanded="0"/>)")).bitmapExpanded());
  // Tags are the line after the marker, split at ';', trimmed, empty ones dropped.
  const std::pair<const char*, QStringList> tagCases[] = {
      {R"(No tags here.)", {}},
      {R"(Ends with tags:)", {}},
      {R"(tags:&#xA;a;b&#xA;c;d)", {"a", "b"}},
      {R"(x tags:&#xA;  ;  ; a b ;)", {"a b"}},
      {R"(Hi.&#xD;&#xA;tags:&#xD;&#xA; a b;;c &#xD;&#xA;)", {"a b", "c"}}};
  for (const auto& [tooltip, tags] : tagCases) {
    const BoxData data(nullptr, parseElement(std::string("<Box tooltip=\"") + tooltip + "\"/>"));
    EXPECT_EQ(data.tags(), tags) << tooltip;
  }
}

TEST(BoxDataRead, SignalsCarryNewValue) {
  // Connections by signature and by parameter name depend on these.
  const QMetaObject& meta = BoxData::staticMetaObject;
  EXPECT_STREQ(meta.className(), "KR::BoxData");
  std::vector<std::pair<QByteArray, int>> found;
  for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
    const QMetaMethod method = meta.method(i);
    if (method.methodType() == QMetaMethod::Signal) {
      found.emplace_back(method.name(), method.parameterType(0));
      EXPECT_EQ(method.parameterNames(), QList<QByteArray>{"newValue"});
    }
  }
  EXPECT_EQ(found, (std::vector<std::pair<QByteArray, int>>{
                       {"tooltipChanged", qMetaTypeId<QString>()},
                       {"bitmapsChanged", qMetaTypeId<QList<QString>>()},
                       {"bitmapExpandedChanged", qMetaTypeId<bool>()}}));
}

TEST(BoxDataWithoutNode, SettersStoreAndEmitButTouchNoFile) {
  BoxData data(nullptr, parseElement(R"(<Box tooltip="t"/>)"));
  QSignalSpy tooltips(&data, &BoxData::tooltipChanged);
  data.setTooltip("new");
  data.saveName("ignored");
  EXPECT_EQ(tooltips.count(), 1);
  EXPECT_EQ(data.tooltip(), "new");
  EXPECT_TRUE(data.xmlData().isEmpty());
  EXPECT_FALSE(data.load());
}

TEST_F(BoxDataInLibrary, TooltipEditReachesTheFileAndEveryLevelOnce) {
  QSignalSpy atLibrary(library.get(), &KR::BoxLibrary::dataChanged);
  QSignalSpy atRoot(library->boxRoot(), &BoxLibraryNode::dataChanged);
  QSignalSpy atFolder(box->parent(), &BoxLibraryNode::dataChanged);
  QSignalSpy atBox(box, &BoxLibraryNode::dataChanged);
  QSignalSpy changed(data, &BoxData::tooltipChanged);

  // Line ends must survive the attribute, or the tags line would be lost.
  const char* const tooltip = "Short steps.\r\ntags:\r\nwalk";
  data->setTooltip(tooltip);
  EXPECT_EQ(fileTooltip(box), tooltip);
  EXPECT_EQ(box->loadBox()->attribute("x", ""), "3") << "the rest of the box is kept";
  ASSERT_EQ(changed.count(), 1);
  EXPECT_EQ(changed.at(0).at(0).toString(), tooltip);
  for (QSignalSpy* spy : {&atLibrary, &atRoot, &atFolder, &atBox}) {
    ASSERT_EQ(spy->count(), 1);
    EXPECT_EQ(spy->at(0).at(0).value<BoxLibraryNode*>(), box);
  }

  // An equal value neither writes nor emits: the file removed below stays removed.
  library->projectModel()->remove(box->path() + "/box.bxd");
  data->setTooltip(tooltip);
  data->setBitmaps({"a.png"});
  data->setBitmapExpanded(true);
  EXPECT_EQ(atLibrary.count(), 1);
  EXPECT_FALSE(library->projectModel()->hasFile(box->path() + "/box.bxd"));
  // Without a box file a change is still stored and announced.
  data->setTooltip("No file.");
  EXPECT_EQ(data->tooltip(), "No file.");
  EXPECT_EQ(atLibrary.count(), 2);
  EXPECT_FALSE(library->projectModel()->hasFile(box->path() + "/box.bxd"));
}

TEST_F(BoxDataInLibrary, BitmapsAndExpandedFlagAreWrittenBack) {
  QSignalSpy bitmaps(data, &BoxData::bitmapsChanged);
  QSignalSpy expanded(data, &BoxData::bitmapExpandedChanged);

  data->setBitmaps({"a.png", "b.png"});
  data->setBitmaps({"b.png", "a.png"});  // the order counts
  EXPECT_EQ(fileBitmaps(box), (std::vector<std::string>{"b.png", "a.png"}));
  data->setBitmaps({});
  EXPECT_TRUE(fileBitmaps(box).empty());
  EXPECT_TRUE(box->loadBox()->firstChild("Bitmaps")) << "the container stays";
  EXPECT_EQ(bitmaps.count(), 3);
  EXPECT_TRUE(bitmaps.at(2).at(0).toStringList().isEmpty());

  data->setBitmapExpanded(false);
  data->setBitmapExpanded(false);
  EXPECT_EQ(expanded.count(), 1);
  EXPECT_EQ(box->loadBox()->attribute("bitmap_expanded", ""), "false");

  // A NUL ends the text written, not the value kept.
  const QString withNul = QString::fromUtf8("ab\0cd", 5);
  data->setTooltip(withNul);
  EXPECT_EQ(data->tooltip(), withNul);
  EXPECT_EQ(fileTooltip(box), "ab");
}

TEST_F(BoxDataInLibrary, UnchangedUpdateOnlyRenames) {
  QSignalSpy atBox(box, &BoxLibraryNode::dataChanged);
  QSignalSpy tooltips(data, &BoxData::tooltipChanged);
  data->updateData("Stride: long", data->tooltip(), data->bitmaps(), data->bitmapExpanded());
  EXPECT_EQ(box->name(), "Stride: long");
  EXPECT_TRUE(library->projectModel()->hasFile("Motions/Walk/Fast/Stride%3a long/box.bxd"));
  EXPECT_EQ(atBox.count(), 1) << "only the rename is announced";
  EXPECT_EQ(tooltips.count(), 0);
}

TEST_F(BoxDataInLibrary, CloneAndSharedDataOutliveTheirOrigin) {
  BoxLibraryNode* other = library->node({0, 0, 0});
  other->saveBox(box->loadBox(), false);
  const boost::shared_ptr<BoxData> copy = data->clone(other);
  EXPECT_EQ(copy->QObject::parent(), nullptr);
  EXPECT_EQ(copy->node(), other);
  EXPECT_EQ(copy->tooltip(), data->tooltip());
  copy->setTooltip("Copied.");
  EXPECT_EQ(fileTooltip(other), "Copied.");
  EXPECT_EQ(fileTooltip(box), "Long steps.");

  // Box data held elsewhere survives its library; it is then without a node.
  const boost::shared_ptr<BoxData> kept = box->boxData();
  library.reset();
  EXPECT_EQ(kept->node(), nullptr);
  EXPECT_EQ(copy->node(), nullptr);
  QSignalSpy tooltips(kept.get(), &BoxData::tooltipChanged);
  kept->setTooltip("After.");
  EXPECT_EQ(tooltips.count(), 1);
}

}  // namespace
