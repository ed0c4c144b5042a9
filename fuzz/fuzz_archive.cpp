#include "fuzz_support.h"

#include <zu/project/exceptions.h>

// The input is a library archive, of any form the project model reads: a library opened
// from it is copied to a zip, which must read back as the same tree.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const QString dir = fuzz::freshDir("archive");
  fuzz::writeFile(dir + "/input.lbf", fuzz::bytes(data, size));
  KR::BoxLibrary library(dir + "/input.lbf");
  const std::string tree = fuzz::walk(library);
  if (library.path().isEmpty())
    return 0;  // refused
  try {
    library.saveTo(dir + "/copy.lbf", KR::BoxLibrary::ZipFormat);
  } catch (const zu::project::Exception&) {
    // Damaged entry data shows only when the entry is copied; the failed save leaves nothing.
    FUZZ_CHECK(QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot) ==
               QStringList{"input.lbf"});
    return 0;
  }
  KR::BoxLibrary copy(dir + "/copy.lbf");
  FUZZ_CHECK(fuzz::walk(copy) == tree);
  return 0;
}
