#include "library_generator.h"

#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/behavior_project.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>

#include <pugixml.hpp>

#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace krbench {

namespace {

namespace fs = std::filesystem;
using namespace KR::BoxConstants;

// std::mt19937 is specified to the bit, so the same seed writes the same library anywhere.
class Random {
public:
  explicit Random(std::uint32_t seed) : m_engine(seed) {}
  int below(int n) { return static_cast<int>(m_engine() % static_cast<std::uint32_t>(n)); }
  template <size_t N>
  const char* pick(const char* const (&words)[N]) {
    return words[below(static_cast<int>(N))];
  }
  std::uint32_t next() { return m_engine(); }

private:
  std::mt19937 m_engine;
};

const char* const kVerbs[] = {"Walk",   "Turn",  "Look",  "Wave",  "Say",  "Listen",
                              "Sit",    "Stand", "Dance", "Point", "Grab", "Track",
                              "Detect", "Blink", "Nod",   "Follow"};
const char* const kObjects[] = {"Arm",    "Head", "Hand", "Face",  "Sound",   "Light",
                                "Target", "Ball", "Door", "Voice", "Posture", "Step"};
const char* const kQualifiers[] = {"Fast", "Slowly", "Left",   "Right",  "Up",
                                   "Down", "Twice",  "Softly", "Around", "Forward"};
const char* const kCategories[] = {"Motions",  "Sensing",  "Sounds", "Vision", "Dialog",
                                   "Postures", "Gestures", "Tools",  "Logic",  "Network"};
const char* const kTags[] = {"motion", "arm",  "head",     "sound", "speech",  "vision",
                             "touch",  "walk", "greeting", "led",   "posture", "dance"};
const char* const kServices[] = {"MotionService", "SpeechService", "AudioService",
                                 "LedService",    "MemoryService", "VisionService"};

// Names carry, in turn, every kind of character that must be escaped in a file name.
std::string decorate(const std::string& a, const std::string& b, int number) {
  const std::string n = std::to_string(number);
  switch (number % 8) {
    case 0: return a + ": " + b + " " + n;
    case 1: return a + " " + b + "/Back " + n;
    case 2: return a + " " + b + "? " + n;
    case 3: return n + "% " + a + " " + b;
    case 4: return " " + a + " " + b + " " + n;
    case 5: return a + " " + b + " " + n + ".";
    case 6: return a + " \"" + b + "\" * " + n + " <caf\xc3\xa9>";
    default: return a + " " + b + " " + n;
  }
}

std::string boxName(Random& random, int number) {
  return decorate(random.pick(kVerbs), random.pick(kObjects), number);
}

std::string folderName(Random& random, int number) {
  return decorate(random.pick(kCategories), random.pick(kQualifiers), number);
}

std::string tooltip(Random& random) {
  std::string text = std::string(random.pick(kVerbs)) + "s the " + random.pick(kObjects) + " " +
                     random.pick(kQualifiers) + " & reports when it is done (" +
                     std::to_string(random.below(100)) + "% of the time <quickly>).";
  text += "\ntags:\n ";
  text += random.pick(kTags);
  text += "; ";
  text += random.pick(kTags);
  return text;
}

void addSignal(pugi::xml_node box, const char* element, const char* name, int type, int nature,
               int inner, int id, const char* tip) {
  pugi::xml_node signal = box.append_child(element);
  signal.append_attribute("name") = name;
  signal.append_attribute("type") = type;
  signal.append_attribute("type_size") = 1;
  signal.append_attribute("nature") = nature;
  signal.append_attribute("inner") = inner;
  signal.append_attribute("tooltip") = tip;
  signal.append_attribute("id") = id;
}

void addBitmaps(pugi::xml_node box, Random& random, int count) {
  pugi::xml_node bitmaps = box.append_child("Bitmaps");
  for (int i = 0; i < count; ++i) {
    const std::string path = std::string("media/images/box/") + random.pick(kTags) + "/" +
                             random.pick(kObjects) + ".png";
    bitmaps.append_child("bitmap").text() = path.c_str();
  }
}

std::string scriptLines(Random& random, size_t bytes) {
  std::ostringstream script;
  script << "class MyClass(GeneratedClass):\n    def __init__(self):\n"
            "        GeneratedClass.__init__(self)\n\n    def onInput_onStart(self):\n";
  script << "        service = self.session().service(\"" << random.pick(kServices) << "\")\n";
  while (static_cast<size_t>(script.tellp()) < bytes) {
    switch (random.below(4)) {
      case 0:
        script << "        service.move" << random.pick(kObjects) << "([\"" << random.pick(kTags)
               << "_joint\"], [" << random.below(90) << ".0], " << random.below(5) + 1 << ".0)\n";
        break;
      case 1:
        script << "        if self.getParameter(\"" << random.pick(kQualifiers) << "\") > "
               << random.below(10) << ":\n            self.log(\"" << random.pick(kVerbs) << " "
               << random.pick(kObjects) << " & go on\")\n";
        break;
      case 2:
        script << "        for _ in range(" << random.below(6) + 1 << "):\n            service."
               << random.pick(kVerbs) << "(" << random.below(1000) << ")\n";
        break;
      default:
        script << "        self.on" << random.pick(kVerbs) << "ed()  # <" << random.pick(kTags)
               << ">\n";
    }
  }
  script << "        self.onStopped()\n";
  return script.str();
}

void addInnerBox(pugi::xml_node diagram, Random& random, int id, size_t scriptBytes) {
  pugi::xml_node box = diagram.append_child(a_boxBeacon);
  box.append_attribute("name") =
      (std::string(random.pick(kVerbs)) + " " + random.pick(kObjects)).c_str();
  box.append_attribute("id") = id;
  box.append_attribute("localization") = 8;
  box.append_attribute("tooltip") = "";
  box.append_attribute("x") = 100 + 160 * (id % 4);
  box.append_attribute("y") = 70 + 90 * (id / 4);
  addBitmaps(box, random, 1);
  pugi::xml_node script = box.append_child("Script");
  script.append_attribute("language") = 4;
  script.append_child("content")
      .append_child(pugi::node_cdata)
      .set_value(scriptLines(random, scriptBytes).c_str());
  addSignal(box, a_inputBeacon, "onStart", 1, 2, 0, 1, "");
  addSignal(box, a_outputBeacon, "onStopped", 1, 1, 0, 2, "");
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
};

// Scripts make up most of a real box file; their length sets the file near its target size.
std::string boxDocument(Random& random, bool behavior, size_t scriptBytes) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
  pugi::xml_node root = document.append_child(behavior ? a_projectTag : a_boxBxdBeacon);
  if (behavior)
    root.append_attribute("xmlns") = a_projectXsd;
  root.append_attribute("bxd_version") = a_currentBxdVersion;

  pugi::xml_node box = root.append_child(a_boxBeacon);
  box.append_attribute("name") = "root";
  box.append_attribute("id") = -1;
  box.append_attribute("tooltip") = tooltip(random).c_str();
  box.append_attribute("x") = 0;
  box.append_attribute("y") = 0;
  box.append_attribute("bitmap_expanded") = random.below(2) ? "true" : "false";
  box.append_attribute("plugin") = "";
  box.append_attribute("localization") = 8;
  box.append_attribute("format_version") = 5;
  addBitmaps(box, random, 1 + random.below(2));

  int id = 1;
  if (behavior)
    addSignal(box, a_inputBeacon, "onLoad", 1, 0, 1, id++, "Signal sent when diagram is loaded.");
  addSignal(box, a_inputBeacon, "onStart", 1, 2, 0, id++, "Starts the box.");
  addSignal(box, a_inputBeacon, "onStop", 1, 3, 0, id++, "Stops the box.");
  if (!behavior)
    addSignal(box, a_inputBeacon, "target", 0, 1, 0, id++, "What to act on.");
  addSignal(box, a_outputBeacon, "onStopped", 1, 1, 0, id++, "Sent when the box is done.");
  if (!behavior)
    addSignal(box, a_outputBeacon, "result", 0, 1, 0, id++, "What was found.");
  for (int i = 0, count = 2 + random.below(2); i < count; ++i) {
    pugi::xml_node parameter = box.append_child(a_parameterBeacon);
    parameter.append_attribute("name") = random.pick(kQualifiers);
    parameter.append_attribute("inherits_from_parent") = 0;
    parameter.append_attribute("content_type") = 1;
    parameter.append_attribute("value") = random.below(10);
    parameter.append_attribute("default_value") = 3;
    parameter.append_attribute("min") = 0;
    parameter.append_attribute("max") = 10;
    parameter.append_attribute("tooltip") = "How much of it, <0..10>.";
    parameter.append_attribute("id") = id++;
  }

  pugi::xml_node timeline = box.append_child(a_timelineBeacon);
  timeline.append_attribute("enable") = 0;
  timeline.append_attribute("fps") = 25;
  timeline.append_attribute("start_frame") = 1;
  timeline.append_attribute("end_frame") = -1;
  timeline.append_attribute("size") = 300;
  const int layers = 1 + random.below(2);
  const int innerBoxes = 2;
  const size_t perScript = scriptBytes / static_cast<size_t>(layers * innerBoxes);
  for (int layer = 1; layer <= layers; ++layer) {
    pugi::xml_node behaviorLayer = timeline.append_child(a_behaviorLayerBeacon);
    behaviorLayer.append_attribute("name") = ("behavior_layer" + std::to_string(layer)).c_str();
    pugi::xml_node keyframe = behaviorLayer.append_child(a_behaviorKeyframeBeacon);
    keyframe.append_attribute("name") = "keyframe1";
    keyframe.append_attribute("index") = 1;
    pugi::xml_node diagram = keyframe.append_child(a_diagramBeacon);
    for (int inner = 0; inner < innerBoxes; ++inner)
      addInnerBox(diagram, random, id + inner, perScript);
    for (int inner = 0; inner <= innerBoxes; ++inner) {
      pugi::xml_node link = diagram.append_child(a_linkBeacon);
      link.append_attribute("inputowner") = inner < innerBoxes ? id + inner : 0;
      link.append_attribute("indexofinput") = inner < innerBoxes ? 1 : 4;
      link.append_attribute("outputowner") = inner == 0 ? 0 : id + inner - 1;
      link.append_attribute("indexofoutput") = 2;
    }
  }

  StringWriter writer;
  document.save(writer, "    ", pugi::format_default, pugi::encoding_utf8);
  return writer.text;
}

class Writer {
public:
  explicit Writer(GeneratedLibrary& stats) : m_stats(stats) {}

  void file(const fs::path& path, const std::string& content) {
    FILE* out = std::fopen(path.c_str(), "wb");
    const bool written =
        out && std::fwrite(content.data(), 1, content.size(), out) == content.size();
    if (!out || std::fclose(out) != 0 || !written)
      throw std::runtime_error("could not write " + path.string());
    m_stats.bytes += content.size();
  }

  void directory(const fs::path& path) {
    if (!fs::create_directory(path))
      throw std::runtime_error(path.string() + " already exists");
  }

private:
  GeneratedLibrary& m_stats;
};

std::string listing(const std::vector<std::string>& names, bool expanded) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  pugi::xml_node folder = document.append_child("Folder");
  folder.append_attribute("expanded") = expanded ? "yes" : "no";
  for (const std::string& name : names)
    folder.append_child("Node").append_attribute("name") = name.c_str();
  StringWriter writer;
  document.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
  return writer.text;
}

std::string resourceContent(Random& random, size_t size) {
  // Sampled sound-like data: a slowly drifting wave with noise, compressible a little.
  std::string data(size, '\0');
  int value = 128;
  for (size_t i = 0; i < size; ++i) {
    value += random.below(9) - 4;
    value = value < 0 ? 0 : value > 255 ? 255 : value;
    data[i] = static_cast<char>(value);
  }
  return data;
}

class Generator {
public:
  Generator(const LibraryShape& shape, GeneratedLibrary& stats)
      : m_shape(shape), m_stats(stats), m_write(stats), m_random(shape.seed) {}

  void folder(const fs::path& dir, int depth, int firstBox, int boxCount) {
    std::vector<std::string> names;
    if (depth == m_shape.depth) {
      for (int i = 0; i < boxCount; ++i) {
        names.push_back(boxName(m_random, i));
        box(dir / KR::BoxLibraryNode::escapeFileName(names.back()), names.back(), firstBox + i);
      }
    } else {
      const int fanOut = m_shape.fanOut;
      for (int i = 0, first = firstBox; i < fanOut; ++i) {
        const int count = boxCount / fanOut + (i < boxCount % fanOut ? 1 : 0);
        names.push_back(folderName(m_random, i));
        const fs::path child = dir / KR::BoxLibraryNode::escapeFileName(names.back());
        m_write.directory(child);
        ++m_stats.folders;
        folder(child, depth + 1, first, count);
        first += count;
      }
    }
    // Listed in the user's order, which is not the order of the names on disk.
    for (size_t i = names.size(); i > 1; --i)
      std::swap(names[i - 1], names[static_cast<size_t>(m_random.below(static_cast<int>(i)))]);
    m_write.file(dir / "lbfinfo", listing(names, m_random.below(3) == 0));
  }

private:
  void box(const fs::path& dir, const std::string& name, int index) {
    m_write.directory(dir);
    ++m_stats.boxes;
    const bool behavior = index % 10 == 3;
    m_write.file(dir / (behavior ? "behavior.bxd" : "box.bxd"),
                 generateBoxFile(m_shape.seed, index, behavior));
    if (behavior) {
      ++m_stats.behaviors;
      m_write.file(dir / ".metadata",
                   zu::project::serializeMetadata(
                       {{"Type", a_behaviorProjectType}, {"Version", a_behaviorProjectVersion}}));
      zu::project::BehaviorProject project(zu::project::Project(dir.string()));
      project.setName(name);
      project.addTag(m_random.pick(kTags));
    }
    if (index % 10 == 7) {
      const int files = 1 + m_random.below(2);
      for (int i = 0; i < files; ++i) {
        const size_t size = 10000 + static_cast<size_t>(m_random.below(30000));
        m_write.file(dir / (i == 0 ? "sound.wav" : "picture.png"), resourceContent(m_random, size));
        ++m_stats.resourceFiles;
      }
    }
  }

  const LibraryShape& m_shape;
  GeneratedLibrary& m_stats;
  Writer m_write;
  Random m_random;
};

}  // namespace

std::string generateBoxFile(std::uint32_t seed, int index, bool behavior) {
  // Each box has its own stream, so a box's content does not depend on the folder tree.
  Random random(seed ^ (static_cast<std::uint32_t>(index) * 2654435761u));
  // About 8 KB: the scripts fill what the interface and the diagram leave of the target.
  const size_t target = 7000 + static_cast<size_t>(random.below(2000));
  return boxDocument(random, behavior, target - 4600);
}

GeneratedLibrary generateLibrary(const std::string& directory, const LibraryShape& shape) {
  if (shape.boxes < 0 || shape.fanOut < 1 || shape.depth < 0)
    throw std::invalid_argument("a library needs a positive fan-out and no negative counts");
  GeneratedLibrary stats;
  const fs::path root(directory);
  Writer write(stats);
  write.directory(root);
  write.file(root / ".metadata",
             zu::project::serializeMetadata(
                 {{"Type", a_boxLibraryProjectType}, {"Version", a_boxLibraryProjectVersion}}));
  Generator(shape, stats).folder(root, 0, 0, shape.boxes);
  return stats;
}

}  // namespace krbench
