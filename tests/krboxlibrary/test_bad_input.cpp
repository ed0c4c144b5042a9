#include "library_fixtures.h"

namespace {

using KR::BoxLibraryNode;
using KR::XmlElement;

// Each misuse gives the neutral result and exactly one warning of the library's
// category, never a crash (the sanitizer build runs this too).
TEST(BadInput, ApiMisuseGivesTheNeutralResultAndOneWarning) {
  testutil::LogCapture log;
  std::size_t seen = 0;
  const auto oneWarning = [&](const char* what, bool neutral) {
    EXPECT_TRUE(neutral) << what;
    ASSERT_EQ(log.records().size(), seen + 1) << what;
    EXPECT_EQ(log.records()[seen].level, zu::log::LogLevel_Warning) << what;
    EXPECT_EQ(log.records()[seen++].category, "krboxlibrary") << what;
  };
  KR::BoxLibrary lib;
  BoxLibraryNode* root = lib.boxRoot();
  BoxLibraryNode* folder = root->appendChild("Folder", true);
  KR::RootBoxDescription description{"Box", testutil::parseElement("<Box/>"), nullptr};
  boost::shared_ptr<KR::BoxData> data = folder->appendChild(description)->boxData();

  oneWarning("index past the end", !root->insertChild(5, "X", true));
  oneWarning("negative index", !root->insertChild(-1, description));
  root->removeChild(3);
  oneWarning("removeChild out of range", root->childCount() == 1);
  oneWarning("take without a parent", !root->take());
  oneWarning("null node", !root->appendChild(static_cast<BoxLibraryNode*>(nullptr)));
  oneWarning("an ancestor", !folder->appendChild(root));
  oneWarning("no box", !root->appendChild(KR::RootBoxDescription{"E", nullptr, nullptr}));
  oneWarning("saveBox of nothing", !folder->child(0)->saveBox(nullptr, false));
  const KR::BoxData empty(nullptr, nullptr);
  oneWarning("empty element", empty.tooltip().isNull() && empty.bitmapExpanded());
  delete folder->child(0);  // the node goes; its box data lives on here
  data->updateData("New", "tip", {}, false);
  oneWarning("updateData without a node", data->tooltip().isNull() && !folder->childCount());

  // A box element the XML writer refuses (nested too deep to read back) writes nothing.
  XmlElement::Ptr box(new XmlElement("Box")), inner = box;
  for (int i = 0; i < 1100; ++i, inner = inner->firstChild("a"))
    inner->addChild(XmlElement::Ptr(new XmlElement("a")));
  EXPECT_EQ(folder->appendChild(KR::RootBoxDescription{"Deep", box, nullptr}), nullptr);
  EXPECT_TRUE(!folder->childCount() && !lib.projectModel()->hasDir("Folder/Deep"));
  ASSERT_EQ(log.records().size(), ++seen);
  EXPECT_EQ(log.records().back().level, zu::log::LogLevel_Error);

  // A copy-constructed library whose original is gone carries on empty and unsaved.
  auto* original = new KR::BoxLibrary();
  KR::BoxLibrary copy(*original);
  BoxLibraryNode* kept = copy.boxRoot()->appendChild("Kept", true);
  delete original;
  oneWarning("original gone", copy.title().isEmpty() && !copy.boxRoot()->childCount());
  EXPECT_EQ(kept->project(), nullptr);
  kept->setName("Still there");
  QTemporaryDir dir;
  ASSERT_TRUE(copy.boxRoot()->appendChild("New", true));
  copy.saveTo(dir.filePath("copy"), KR::BoxLibrary::DirectoryFormat);
  EXPECT_EQ(KR::BoxLibrary(dir.filePath("copy")).boxRoot()->childCount(), 1);
  EXPECT_EQ(log.records().size(), seen);
}

}  // namespace
