// krbox-generate: writes a synthetic box library, the same one for the same arguments.

#include "library_generator.h"

#include <zu/project/project_model.h>

#include <iostream>
#include <stdexcept>
#include <string>

namespace {

const char kUsage[] =
    "usage: krbox-generate DIR [--boxes N] [--fan-out N] [--depth N] [--flat] [--seed N]\n"
    "                      [--zip FILE]\n"
    "Writes a box library of N boxes (1000 by default) into DIR, which must not exist;\n"
    "--zip also writes it as a zip archive. --flat puts every box in one folder.\n";

int number(const std::string& text) {
  size_t used = 0;
  const long value = std::stol(text, &used);
  if (used != text.size() || value < 0 || value > 100000000)
    throw std::invalid_argument("not a count: " + text);
  return static_cast<int>(value);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc < 2 || argv[1][0] == '-')
      throw std::invalid_argument("DIR is missing");
    const std::string directory = argv[1];
    krbench::LibraryShape shape;
    std::string zip;
    for (int i = 2; i < argc; ++i) {
      const std::string flag = argv[i];
      if (flag == "--flat") {
        shape.fanOut = shape.depth = 1;
        continue;
      }
      if (i + 1 >= argc)
        throw std::invalid_argument("unknown or incomplete option " + flag);
      const std::string value = argv[++i];
      if (flag == "--boxes")
        shape.boxes = number(value);
      else if (flag == "--fan-out")
        shape.fanOut = number(value);
      else if (flag == "--depth")
        shape.depth = number(value);
      else if (flag == "--seed")
        shape.seed = static_cast<std::uint32_t>(std::stoul(value));
      else if (flag == "--zip")
        zip = value;
      else
        throw std::invalid_argument("unknown option " + flag);
    }
    const krbench::GeneratedLibrary generated = krbench::generateLibrary(directory, shape);
    if (!zip.empty()) {
      zu::project::ProjectModel model;
      model.load(QString::fromStdString(directory), zu::project::ArchiveFormat_Directory);
      model.save(QString::fromStdString(zip), zu::project::ArchiveFormat_Zip, false);
    }
    std::cout << generated.boxes << " boxes, " << generated.folders << " folders, "
              << generated.behaviors << " behaviors, " << generated.resourceFiles
              << " resource files, " << generated.bytes << " bytes\n";
    return 0;
  } catch (const std::invalid_argument& error) {
    std::cerr << "krbox-generate: " << error.what() << "\n" << kUsage;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "krbox-generate: " << error.what() << std::endl;
    return 1;
  }
}
