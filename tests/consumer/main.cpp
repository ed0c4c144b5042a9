// A program outside the project, built against an installed krboxlibrary.
#include <krboxlibrary/box_constants.h>
#include <krserial/xml_document.h>
#include <zu/log.h>
#include <zu/project/project_model.h>

#include <cstring>
#include <iostream>

int main() {
  zu::project::ProjectModel model;
  model.writeFile("Folder/lbfinfo", "<Folder expanded=\"yes\"/>");
  model.setMetadata("Type", KR::BoxConstants::a_boxLibraryProjectType);
  KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(
      model.readFile("Folder/lbfinfo").toStdString(), nullptr, nullptr);
  const bool ok = document && document->root()->name() == "Folder" &&
                  model.getMetadata("Type") == "VantorelBoxLibrary" &&
                  KR::BoxConstants::a_currentBxdVersion == 3 &&
                  std::strcmp(KR::BoxConstants::a_boxBeacon, "Box") == 0;
  zu::log::log(zu::log::LogLevel_Info, "consumer", ok ? "ok" : "failed", "", "main", 0);
  std::cout << (ok ? "consumer ok" : "consumer failed") << std::endl;
  return ok ? 0 : 1;
}
