#include "tooltip_tags.h"

#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/trim.hpp>

namespace KR {

std::vector<std::string> tooltipTags(std::string tooltip) {
  static const std::string marker = "tags:\n";
  std::vector<std::string> tags;
  boost::erase_all(tooltip, "\r");
  const size_t found = tooltip.find(marker);
  if (found == std::string::npos)
    return tags;
  const size_t begin = found + marker.size();
  const std::string line = tooltip.substr(begin, tooltip.find('\n', begin) - begin);
  size_t start = 0;
  while (true) {
    const size_t end = line.find(';', start);
    std::string tag = line.substr(start, end == std::string::npos ? end : end - start);
    boost::trim(tag);
    if (!tag.empty())
      tags.push_back(tag);
    if (end == std::string::npos)
      return tags;
    start = end + 1;
  }
}

}  // namespace KR
