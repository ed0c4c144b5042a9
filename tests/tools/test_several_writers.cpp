// Several writers of one library at once, each in its own process.
#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>
#include <zu/project/source_lock.h>

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

const char* const kBoxA = "Motions/Postures/Crouch";
const char* const kBoxB = "Sensing/Touch/Hands/Tactile Hand";

// Runs krbox in the background, its stderr into errors; the process id.
pid_t start(std::vector<std::string> arguments, const std::string& errors = "/dev/null") {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(KRBOX_TOOL)};
    for (std::string& argument : arguments)
      argv.push_back(argument.data());
    argv.push_back(nullptr);
    ::execv(KRBOX_TOOL, argv.data());
    ::_exit(127);
  }
  return pid;
}

int finish(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

KR::BoxLibraryNode* node(const KR::BoxLibrary& library, const std::string& path) {
  KR::BoxLibraryNode* found = library.boxRoot();
  std::istringstream names(path);
  for (std::string name; found && std::getline(names, name, '/');)
    found = found->child(name);
  return found;
}

QString tooltip(const std::string& library, const std::string& box) {
  const KR::BoxLibrary read(QString::fromStdString(library), true);
  const KR::BoxLibraryNode* found = node(read, box);
  return found && found->boxData() ? found->boxData()->tooltip() : QString();
}

}  // namespace

TEST(SeveralWriters, NoAcknowledgedEditIsLost) {
  QTemporaryDir temporary;
  const std::filesystem::path examples(EXAMPLES_DIR);
  const std::string dir = temporary.filePath("lib").toStdString();
  const std::string zip = temporary.filePath("lib.lbf").toStdString();
  std::filesystem::copy(examples / "Robot Basics", dir, std::filesystem::copy_options::recursive);
  std::filesystem::copy(examples / "Robot Basics.lbf", zip);

  for (int run = 0; run < 20; ++run) {
    for (const std::string& library : {dir, zip}) {
      const std::string a = "a" + std::to_string(run), b = "b" + std::to_string(run);
      const pid_t writers[] = {
          start({"set-tooltip", library, kBoxA, a}), start({"set-tooltip", library, kBoxB, b}),
          start({"mkdir", library, "Sounds/" + a}), start({"mkdir", library, "Sounds/" + b})};
      for (const pid_t writer : writers)
        ASSERT_EQ(finish(writer), 0) << library;
      EXPECT_EQ(tooltip(library, kBoxA), QString::fromStdString(a)) << library;
      EXPECT_EQ(tooltip(library, kBoxB), QString::fromStdString(b)) << library;
      const KR::BoxLibrary read(QString::fromStdString(library), true);
      const QByteArray listing = read.projectModel()->readFile("Sounds/lbfinfo");
      EXPECT_TRUE(listing.contains(a.c_str()) && listing.contains(b.c_str())) << library << run;
    }
  }

  // A library held open while krbox edits it: only a change to the archive or to a file
  // the program itself changes keeps the program's save from being written.
  const struct {
    std::string library;
    const char* outside;
    bool conflict;
  } held[] = {{dir, kBoxB, false}, {dir, kBoxA, true}, {zip, kBoxB, true}};
  for (const auto& c : held) {
    const QString mine = "held " + QString::number(&c - held);
    KR::BoxLibrary library(QString::fromStdString(c.library), false);
    ASSERT_EQ(finish(start({"set-tooltip", c.library, c.outside, "outside"})), 0);
    EXPECT_TRUE(library.projectModel()->sourceChanged());
    node(library, kBoxA)->boxData()->setTooltip(mine);
    if (c.conflict)
      EXPECT_THROW(library.save(), zu::project::Conflict) << c.library << c.outside;
    else
      library.save();
    EXPECT_EQ(tooltip(c.library, c.outside), "outside");
    EXPECT_EQ(tooltip(c.library, kBoxA) == mine, !c.conflict) << c.library << c.outside;
  }

  // A writer that keeps the lock past krbox's patience is named.
  const zu::project::SourceLock lock(QString::fromStdString(dir), 0);
  const std::string errors = temporary.filePath("errors").toStdString();
  EXPECT_EQ(finish(start({"mkdir", dir, "Late"}, errors)), 1);
  std::ifstream text(errors);
  const std::string line((std::istreambuf_iterator<char>(text)), std::istreambuf_iterator<char>());
  EXPECT_NE(line.find("process " + std::to_string(::getpid())), std::string::npos) << line;
}
