#ifndef KRBOXLIBRARY_SRC_TOOLTIP_TAGS_H
#define KRBOXLIBRARY_SRC_TOOLTIP_TAGS_H

#include <string>
#include <vector>

namespace KR {

// The tags of a tooltip: the semicolon-separated, trimmed, non-empty items on the line after
// the first "tags:" line end. Carriage returns are ignored, so CR LF tooltips read the same.
std::vector<std::string> tooltipTags(std::string tooltip);

}  // namespace KR

#endif
