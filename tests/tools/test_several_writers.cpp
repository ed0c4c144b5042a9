// Several writers of one library at once, each in its own process.
#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>
#include <zu/project/source_lock.h>

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <memory>
#include <sstream>
#include <tuple>

namespace {

const char* const kBoxA = "Motions/Postures/Crouch";
const char* const kBoxB = "Sensing/Touch/Hands/Tactile Hand";

std::unique_ptr<QProcess> start(const QStringList& arguments) {
  auto process = std::make_unique<QProcess>();
  process->start(KRBOX_TOOL, arguments);
  return process;
}

int finish(QProcess& process) {
  process.waitForFinished(-1);
  return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

// The box at path in library; null when there is none.
KR::BoxData* box(const KR::BoxLibrary& library, const std::string& path) {
  const KR::BoxLibraryNode* node = library.boxRoot();
  std::istringstream names(path);
  for (std::string name; node && std::getline(names, name, '/');)
    node = node->child(name);
  return node ? node->boxData().get() : nullptr;
}

// The tooltip of a box as it is on disk.
QString tooltip(const QString& library, const char* path) {
  return box(KR::BoxLibrary(library, true), path)->tooltip();
}

}  // namespace

TEST(SeveralWriters, NoAcknowledgedEditIsLost) {
  QTemporaryDir temporary;
  const QString dir = temporary.filePath("lib"), zip = temporary.filePath("lib.lbf");
  std::filesystem::copy(EXAMPLES_DIR "/Robot Basics", dir.toStdString(),
                        std::filesystem::copy_options::recursive);
  std::filesystem::copy(EXAMPLES_DIR "/Robot Basics.lbf", zip.toStdString());

  for (int run = 0; run < 20; ++run) {
    for (const QString& library : {dir, zip}) {
      const QString a = "a" + QString::number(run), b = "b" + QString::number(run);
      std::unique_ptr<QProcess> writers[] = {
          start({"set-tooltip", library, kBoxA, a}), start({"set-tooltip", library, kBoxB, b}),
          start({"mkdir", library, "Sounds/" + a}), start({"mkdir", library, "Sounds/" + b})};
      for (const auto& writer : writers)
        ASSERT_EQ(finish(*writer), 0) << writer->readAllStandardError().constData();
      EXPECT_EQ(tooltip(library, kBoxA) + tooltip(library, kBoxB), a + b);
      const QByteArray listing =
          KR::BoxLibrary(library, true).projectModel()->readFile("Sounds/lbfinfo");
      EXPECT_TRUE(listing.contains(a.toUtf8()) && listing.contains(b.toUtf8())) << run;
    }
  }

  // A library held open while krbox edits it: only a change to the archive or to a file
  // the program itself changes keeps the program's save from being written.
  for (const auto& [path, outside, conflict] :
       {std::tuple(dir, kBoxB, false), std::tuple(dir, kBoxA, true),
        std::tuple(zip, kBoxB, true)}) {
    const QString mine = QString("held %1 %2").arg(outside).arg(conflict);
    KR::BoxLibrary library(path, false);
    ASSERT_EQ(finish(*start({"set-tooltip", path, outside, "outside"})), 0);
    EXPECT_TRUE(library.projectModel()->sourceChanged());
    box(library, kBoxA)->setTooltip(mine);
    if (conflict)
      EXPECT_THROW(library.save(), zu::project::Conflict) << mine.toStdString();
    else
      library.save();
    EXPECT_EQ(tooltip(path, outside), "outside");
    EXPECT_EQ(tooltip(path, kBoxA) == mine, !conflict) << mine.toStdString();
  }

  // A writer that keeps the lock past krbox's patience is named.
  const zu::project::SourceLock lock(dir, 0);
  qputenv("KRBOX_LOCK_WAIT_MS", "200");
  const std::unique_ptr<QProcess> late = start({"mkdir", dir, "Late"});
  EXPECT_EQ(finish(*late), 1);
  EXPECT_TRUE(late->readAllStandardError().contains("process " + QByteArray::number(::getpid())));
}
