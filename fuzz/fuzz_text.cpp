#include "fuzz_support.h"

#include <krserial/serial.h>
#include <zu/project/metadata.h>

// The text conversions: what they accept must come back unchanged through their inverse.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using KR::BoxLibraryNode;
  const std::string text(reinterpret_cast<const char*>(data), size);
  int number = 0, numberBack = 0;
  if (KR::Serial::load(text, number))
    FUZZ_CHECK(KR::Serial::load(KR::Serial::save(number), numberBack) && numberBack == number);
  bool flag = false, flagBack = true;
  if (KR::Serial::load(text, flag))
    FUZZ_CHECK(KR::Serial::load(KR::Serial::save(flag), flagBack) && flagBack == flag);
  QString string, stringBack;
  FUZZ_CHECK(KR::Serial::load(text, string));
  FUZZ_CHECK(KR::Serial::load(KR::Serial::save(string), stringBack) && stringBack == string);

  const std::map<std::string, std::string> entries = zu::project::parseMetadata(text);
  FUZZ_CHECK(zu::project::parseMetadata(zu::project::serializeMetadata(entries)) == entries);

  // Names are kept as valid UTF-8; escaping for a file name and numbering are undone exactly.
  const std::string name = KR::Serial::save(string);
  FUZZ_CHECK(BoxLibraryNode::unEscapeFileName(BoxLibraryNode::escapeFileName(text)) == name);
  FUZZ_CHECK(BoxLibraryNode::unNumberName(BoxLibraryNode::numberName(text, int(size))) == name);
  return 0;
}
