#include "fuzz_support.h"

#include <zu/project/exceptions.h>

namespace {

// The lines of text, sorted.
std::string sorted(const std::string& text) {
  QStringList lines = QString::fromStdString(text).split('\n');
  lines.sort();
  return lines.join('\n').toStdString();
}

}  // namespace

// The input is a library archive, of any form the project model reads: a library opened
// from it is copied to a zip, which must read back with the same nodes. Their order may
// change: a directory whose name is not in the escaped form of its node's name (" h"
// rather than "%20h") is found again only as an unlisted one, and goes last.
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
  FUZZ_CHECK(sorted(fuzz::walk(copy)) == sorted(tree));
  return 0;
}
