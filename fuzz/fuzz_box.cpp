#include "fuzz_support.h"

// The input is the box file (KRBOX_FUZZ_BOX_FILE) of the one box of a library: it is read,
// its tooltip set, the library's behaviors exported and the library saved.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const QString dir = fuzz::freshDir("box");
  fuzz::writeFile(dir + "/lbfinfo", R"(<Folder expanded="yes"><Node name="Box"/></Folder>)");
  fuzz::writeFile(dir + "/Box/" KRBOX_FUZZ_BOX_FILE, fuzz::bytes(data, size));
  fuzz::writeFile(dir + "/Box/sound.wav", "RIFF");
  const QString tooltip = QStringLiteral("Set by the fuzzer.\ntags:\nfuzz");
  {
    KR::BoxLibrary library(dir);
    library.setBehaviorCompatible(true);
    fuzz::walk(library);
    KR::BoxLibraryNode* box = library.node({0});
    if (!box || !box->isBox())
      return 0;
    box->boxData()->setTooltip(tooltip);
    library.exportBehaviors(fuzz::freshDir("export"));
    library.save();
  }
  // What was written reads back as the same box with the new tooltip.
  KR::BoxLibrary reopened(dir);
  const KR::BoxLibraryNode* box = reopened.node({0});
  FUZZ_CHECK(box && box->isBox() && box->boxData()->tooltip() == tooltip);
  return 0;
}
