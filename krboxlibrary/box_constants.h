#ifndef KRBOXLIBRARY_BOX_CONSTANTS_H
#define KRBOXLIBRARY_BOX_CONSTANTS_H

#include <krboxlibrary/krboxlibrary_export.h>

namespace KR {

/// The vocabulary of box documents: element names, project types and versions, and box
/// file versions. Every constant is an exported global, so all modules share one object;
/// compare names with exact, case-sensitive byte comparison.
namespace BoxConstants {

/// Box file version assumed when a box file's root has no readable "bxd_version".
KRBOXLIBRARY_EXPORT inline constexpr int a_defaultBxdVersion = 0;
/// Last version of the verbose box file format.
KRBOXLIBRARY_EXPORT inline constexpr int a_lastVerboseBxdVersion = 1;
/// Version of the box files this library reads and writes.
KRBOXLIBRARY_EXPORT inline constexpr int a_currentBxdVersion = 3;

/// "MetaDatas": container of a box's metadata elements (not the same as a_metaDataBeacon).
KRBOXLIBRARY_EXPORT extern const char* const a_metaDatasBeacon;
/// "Timeline": a box with such a direct child may be a behavior.
KRBOXLIBRARY_EXPORT extern const char* const a_timelineBeacon;
/// "BehaviorLayer": a layer of a timeline.
KRBOXLIBRARY_EXPORT extern const char* const a_behaviorLayerBeacon;
/// "MotionLayer": a motion layer of a timeline.
KRBOXLIBRARY_EXPORT extern const char* const a_motionLayerBeacon;
/// "BehaviorKeyframe": a keyframe of a behavior layer.
KRBOXLIBRARY_EXPORT extern const char* const a_behaviorKeyframeBeacon;
/// "MotionKeyframe": a keyframe of a motion layer.
KRBOXLIBRARY_EXPORT extern const char* const a_motionKeyframeBeacon;
/// "Diagram": a diagram of boxes and links.
KRBOXLIBRARY_EXPORT extern const char* const a_diagramBeacon;
/// "Box": the box element.
KRBOXLIBRARY_EXPORT extern const char* const a_boxBeacon;
/// "Link": a link between two boxes of a diagram.
KRBOXLIBRARY_EXPORT extern const char* const a_linkBeacon;
/// "Input": an input of a box.
KRBOXLIBRARY_EXPORT extern const char* const a_inputBeacon;
/// "Output": an output of a box.
KRBOXLIBRARY_EXPORT extern const char* const a_outputBeacon;
/// "Parameter": a parameter of a box.
KRBOXLIBRARY_EXPORT extern const char* const a_parameterBeacon;
/// "Resource": a resource a box uses.
KRBOXLIBRARY_EXPORT extern const char* const a_resourceBeacon;
/// "MetaData": one metadata element of a box.
KRBOXLIBRARY_EXPORT extern const char* const a_metaDataBeacon;
/// "ActuatorTree": the tree of actuators of a motion.
KRBOXLIBRARY_EXPORT extern const char* const a_actuatorTreeBeacon;
/// "ActuatorList": the list of actuators of a motion.
KRBOXLIBRARY_EXPORT extern const char* const a_actuatorListBeacon;
/// "Waveforms": the waveforms of a box.
KRBOXLIBRARY_EXPORT extern const char* const a_waveformListBeacon;
/// "VantorelProject": root element of a box document in project form.
KRBOXLIBRARY_EXPORT extern const char* const a_projectTag;
/// Schema location URI of box documents: the "xmlns" of a project-form root.
KRBOXLIBRARY_EXPORT extern const char* const a_projectXsd;
/// "VantorelBox": root element of a box file in box form.
KRBOXLIBRARY_EXPORT extern const char* const a_boxBxdBeacon;
/// "VantorelProject": project type of an exported or stored behavior.
KRBOXLIBRARY_EXPORT extern const char* const a_behaviorProjectType;
/// "2.0": project version of a behavior.
KRBOXLIBRARY_EXPORT extern const char* const a_behaviorProjectVersion;
/// "VantorelBoxLibrary": project type of a box library.
KRBOXLIBRARY_EXPORT extern const char* const a_boxLibraryProjectType;
/// "3.0": project version of a box library.
KRBOXLIBRARY_EXPORT extern const char* const a_boxLibraryProjectVersion;

}  // namespace BoxConstants
}  // namespace KR

#endif
