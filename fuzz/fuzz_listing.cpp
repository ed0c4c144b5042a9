#include "fuzz_support.h"

// The input is the root folder listing of a library that also holds a folder "A" and a
// box "B": whatever the listing says, the tree read must survive a save unchanged.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const QString dir = fuzz::freshDir("listing");
  fuzz::writeFile(dir + "/lbfinfo", fuzz::bytes(data, size));
  fuzz::writeFile(dir + "/A/lbfinfo", R"(<Folder expanded="no"/>)");
  fuzz::writeFile(dir + "/B/box.bxd",
                  R"(<VantorelBox bxd_version="3"><Box name="root" tooltip="B"/></VantorelBox>)");
  std::string tree;
  {
    KR::BoxLibrary library(dir);
    tree = fuzz::walk(library);
    library.save();
  }
  KR::BoxLibrary reopened(dir);
  FUZZ_CHECK(fuzz::walk(reopened) == tree);
  return 0;
}
