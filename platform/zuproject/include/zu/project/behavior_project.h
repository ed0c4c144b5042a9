#ifndef ZU_PROJECT_BEHAVIOR_PROJECT_H
#define ZU_PROJECT_BEHAVIOR_PROJECT_H

#include <zu/project/project.h>
#include <zu/project/zuproject_export.h>

#include <string>
#include <vector>

namespace zu {
namespace project {

/// A project seen as a behavior: a name and tags, stored in its ".metadata" file as
/// "Name" and "Tag" elements and written at once.
class ZUPROJECT_EXPORT BehaviorProject {
public:
  /// The behavior of this project.
  explicit BehaviorProject(const Project& project);

  /// Sets the behavior's name.
  void setName(const std::string& name);
  /// The behavior's name; "" when unset.
  std::string name() const;
  /// Adds a tag at the end; a tag already present is not added twice.
  void addTag(const std::string& tag);
  /// The tags, in the order they were added.
  std::vector<std::string> tags() const;

private:
  Project m_project;
};

}  // namespace project
}  // namespace zu

#endif
