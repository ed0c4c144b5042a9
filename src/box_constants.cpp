#include <krboxlibrary/box_constants.h>

namespace KR {
namespace BoxConstants {

// The version integers are inline variables; taking their addresses here makes this
// library emit, and so export, the one definition other modules bind to.
[[maybe_unused]] __attribute__((used)) static const int* const kExportedVersions[] = {
    &a_defaultBxdVersion, &a_lastVerboseBxdVersion, &a_currentBxdVersion};

const char* const a_metaDatasBeacon = "MetaDatas";
const char* const a_timelineBeacon = "Timeline";
const char* const a_behaviorLayerBeacon = "BehaviorLayer";
const char* const a_motionLayerBeacon = "MotionLayer";
const char* const a_behaviorKeyframeBeacon = "BehaviorKeyframe";
const char* const a_motionKeyframeBeacon = "MotionKeyframe";
const char* const a_diagramBeacon = "Diagram";
const char* const a_boxBeacon = "Box";
const char* const a_linkBeacon = "Link";
const char* const a_inputBeacon = "Input";
const char* const a_outputBeacon = "Output";
const char* const a_parameterBeacon = "Parameter";
const char* const a_resourceBeacon = "Resource";
const char* const a_metaDataBeacon = "MetaData";
const char* const a_actuatorTreeBeacon = "ActuatorTree";
const char* const a_actuatorListBeacon = "ActuatorList";
const char* const a_waveformListBeacon = "Waveforms";
const char* const a_projectTag = "VantorelProject";
const char* const a_projectXsd = "http://www.vantorel-robotics.com/schema/vantorel/box-project.xsd";
const char* const a_boxBxdBeacon = "VantorelBox";
const char* const a_behaviorProjectType = "VantorelProject";
const char* const a_behaviorProjectVersion = "2.0";
const char* const a_boxLibraryProjectType = "VantorelBoxLibrary";
const char* const a_boxLibraryProjectVersion = "3.0";

}  // namespace BoxConstants
}  // namespace KR
