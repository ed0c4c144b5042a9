#include "library_fixtures.h"

#include <krserial/xml_element.h>

#include <boost/make_shared.hpp>

namespace {

using KR::BoxLibraryNode;

// Issue 20: each misuse gives the neutral result and exactly one warning of the library's
// category, never a crash (the sanitizer build runs this too).
TEST(BadInput, ApiMisuseGivesTheNeutralResultAndOneWarning) {
  testutil::LogCapture log;
  std::size_t seen = 0;
  const auto oneWarning = [&](const char* what) {
    ASSERT_EQ(log.records().size(), seen + 1) << what;
    EXPECT_EQ(log.records()[seen].level, zu::log::LogLevel_Warning) << what;
    EXPECT_EQ(log.records()[seen++].category, "krboxlibrary") << what;
  };
  KR::BoxLibrary lib;
  BoxLibraryNode* root = lib.boxRoot();
  BoxLibraryNode* folder = root->appendChild("Folder", true);
  KR::RootBoxDescription description{"Box", testutil::parseElement("<Box/>"), nullptr};
  boost::shared_ptr<KR::BoxData> data = folder->appendChild(description)->boxData();

  EXPECT_EQ(root->insertChild(5, "X", true), nullptr);
  oneWarning("index past the end");
  EXPECT_EQ(root->insertChild(-1, description), nullptr);
  oneWarning("negative index");
  root->removeChild(3);
  oneWarning("removeChild out of range");
  EXPECT_EQ(root->take(), nullptr);
  oneWarning("take without a parent");
  EXPECT_EQ(root->appendChild(static_cast<BoxLibraryNode*>(nullptr)), nullptr);
  oneWarning("null");
  EXPECT_EQ(folder->appendChild(root), nullptr);
  oneWarning("an ancestor");
  EXPECT_EQ(root->appendChild(KR::RootBoxDescription{"E", nullptr, nullptr}), nullptr);
  oneWarning("description without a box");
  EXPECT_FALSE(folder->child(0)->saveBox(nullptr, false));
  oneWarning("saveBox of nothing");
  const KR::BoxData empty(nullptr, nullptr);
  EXPECT_TRUE(empty.tooltip().isNull() && empty.bitmapExpanded());
  oneWarning("empty element");
  delete folder->child(0);  // the node goes; its box data lives on here
  data->updateData("New", "tip", {}, false);
  oneWarning("updateData without a node");
  EXPECT_EQ(data->tooltip(), QString());
  EXPECT_EQ(folder->childCount(), 0);

  // A box element the XML writer refuses (nested too deep to read back) writes nothing.
  auto box = boost::make_shared<KR::XmlElement>("Box");
  KR::XmlElement::Ptr inner = box;
  for (int i = 0; i < 1100; ++i) {
    inner->addChild(boost::make_shared<KR::XmlElement>("a"));
    inner = inner->firstChild("a");
  }
  description = KR::RootBoxDescription{"Deep", box, nullptr};
  EXPECT_EQ(folder->appendChild(description), nullptr);
  EXPECT_EQ(folder->childCount(), 0);
  EXPECT_FALSE(lib.projectModel()->hasDir("Folder/Deep"));
  ASSERT_EQ(log.records().size(), ++seen);
  EXPECT_EQ(log.records().back().level, zu::log::LogLevel_Error);

  // A copy-constructed library whose original is gone carries on empty and unsaved.
  auto* original = new KR::BoxLibrary();
  KR::BoxLibrary copy(*original);
  BoxLibraryNode* kept = copy.boxRoot()->appendChild("Kept", true);
  delete original;
  oneWarning("the original of a copy is gone");
  EXPECT_EQ(copy.title(), QString());
  EXPECT_EQ(copy.boxRoot()->childCount(), 0);
  EXPECT_EQ(kept->project(), nullptr);
  kept->setName("Still there");
  QTemporaryDir dir;
  ASSERT_TRUE(copy.boxRoot()->appendChild("New", true));
  copy.saveTo(dir.filePath("copy"), KR::BoxLibrary::DirectoryFormat);
  EXPECT_EQ(KR::BoxLibrary(dir.filePath("copy")).boxRoot()->childCount(), 1);
  EXPECT_EQ(log.records().size(), seen);
}

}  // namespace
