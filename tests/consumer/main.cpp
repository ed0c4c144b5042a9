// A program outside the project, built against an installed krboxlibrary.
#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/krboxlibrary_version.h>
#include <krserial/xml_document.h>
#include <zu/log.h>
#include <zu/project/project_model.h>

#include <cstring>
#include <iostream>

static_assert(KRBOXLIBRARY_VERSION >= KRBOXLIBRARY_VERSION_CHECK(0, 1, 0) &&
                  KRBOXLIBRARY_VERSION < KRBOXLIBRARY_VERSION_CHECK(1, 0, 0),
              "the installed version header");

int main() {
  KR::BoxLibrary library;
  int changes = 0;
  QObject::connect(&library, &KR::BoxLibrary::dataChanged,
                   [&changes](KR::BoxLibraryNode*) { ++changes; });
  library.boxRoot()->appendChild("Folder", true)->setName("Renamed");
  // A box made from a description; the edit of its data is written and announced.
  KR::RootBoxDescription description;
  description.name = "Wave";
  description.box.reset(new KR::XmlElement(KR::BoxConstants::a_boxBeacon));
  KR::BoxLibraryNode* box = library.boxRoot()->appendChild(description);
  box->boxData()->setTooltip(QStringLiteral("Waves."));
  const KR::XmlElement::Ptr saved = box->loadBox();
  KR::BoxLibraryNode* copy = box->clone();
  const bool cloned = copy->isBox() && copy->project() != library.projectModel();
  delete copy;
  zu::project::ProjectModel* model = library.projectModel();
  KR::XmlDocument::Ptr document = KR::XmlDocument::loadFromXmlString(
      model->readFile("Renamed/lbfinfo").toStdString(), nullptr, nullptr);
  const bool ok = cloned && document && document->root()->name() == "Folder" && changes == 2 &&
                  saved && saved->attribute("tooltip", "") == "Waves." &&
                  model->getMetadata("Type") == KR::BoxConstants::a_boxLibraryProjectType &&
                  KR::BoxConstants::a_currentBxdVersion == 3 &&
                  std::strcmp(KR::BoxConstants::a_boxBeacon, "Box") == 0;
  zu::log::log(zu::log::LogLevel_Info, "consumer", ok ? "ok" : "failed", "", "main", 0);
  std::cout << (ok ? "consumer ok" : "consumer failed") << std::endl;
  return ok ? 0 : 1;
}
