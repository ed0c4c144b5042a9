#include "library_fixtures.h"

#include <dlfcn.h>
#include <cstring>
#include <tuple>

namespace {

using namespace KR::BoxConstants;

TEST(BoxConstants, TextsAreExactlyTheDocumentVocabulary) {
  const std::pair<const char*, const char*> expected[] = {
      {a_metaDatasBeacon, "MetaDatas"},
      {a_timelineBeacon, "Timeline"},
      {a_behaviorLayerBeacon, "BehaviorLayer"},
      {a_motionLayerBeacon, "MotionLayer"},
      {a_behaviorKeyframeBeacon, "BehaviorKeyframe"},
      {a_motionKeyframeBeacon, "MotionKeyframe"},
      {a_diagramBeacon, "Diagram"},
      {a_boxBeacon, "Box"},
      {a_linkBeacon, "Link"},
      {a_inputBeacon, "Input"},
      {a_outputBeacon, "Output"},
      {a_parameterBeacon, "Parameter"},
      {a_resourceBeacon, "Resource"},
      {a_metaDataBeacon, "MetaData"},
      {a_actuatorTreeBeacon, "ActuatorTree"},
      {a_actuatorListBeacon, "ActuatorList"},
      {a_waveformListBeacon, "Waveforms"},
      {a_projectTag, "VantorelProject"},
      {a_projectXsd, "http://www.vantorel-robotics.com/schema/vantorel/box-project.xsd"},
      {a_boxBxdBeacon, "VantorelBox"},
      {a_behaviorProjectType, "VantorelProject"},
      {a_behaviorProjectVersion, "2.0"},
      {a_boxLibraryProjectType, "VantorelBoxLibrary"},
      {a_boxLibraryProjectVersion, "3.0"},
  };
  for (const auto& item : expected)
    EXPECT_STREQ(item.first, item.second);
  EXPECT_EQ(std::strlen(a_projectXsd), 64u);
  EXPECT_EQ(std::make_tuple(a_defaultBxdVersion, a_lastVerboseBxdVersion, a_currentBxdVersion),
            std::make_tuple(0, 1, 3));
}

TEST(BoxConstants, EveryConstantIsAnExportedSymbolOfTheLibrary) {
  // Other modules bind to the library's own objects by name.
  const char* names[] = {"a_defaultBxdVersion",  "a_lastVerboseBxdVersion",
                         "a_currentBxdVersion",  "a_metaDatasBeacon",
                         "a_boxBeacon",          "a_projectXsd",
                         "a_waveformListBeacon", "a_boxLibraryProjectVersion"};
  auto mangled = [](const std::string& name) {
    return "_ZN2KR12BoxConstants" + std::to_string(name.size()) + name + "E";
  };
  Dl_info info;
  ASSERT_NE(dladdr(static_cast<const void*>(&a_boxBeacon), &info), 0);
  void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr) << info.dli_fname;
  for (const char* name : names)
    EXPECT_NE(dlsym(library, mangled(name).c_str()), nullptr) << name;
  EXPECT_EQ(dlsym(library, mangled("a_boxBeacon").c_str()), static_cast<const void*>(&a_boxBeacon));
  dlclose(library);
}

}  // namespace
