// krbox-panel LIBRARY [--screenshot FILE]: a library panel over krbox::krboxmodels.

#include "panel_window.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QScreen>
#include <QTimer>
#include <QTreeView>

#include <cstdio>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("krbox-panel"));
  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Browse and edit a box library."));
  parser.addHelpOption();
  parser.addPositionalArgument(QStringLiteral("LIBRARY"),
                               QStringLiteral("a library: a directory or an archive"));
  const QCommandLineOption screenshot(
      QStringLiteral("screenshot"),
      QStringLiteral("show the library, save a picture of the window to FILE and quit"),
      QStringLiteral("FILE"));
  parser.addOption(screenshot);
  parser.process(app);
  if (parser.positionalArguments().size() != 1)
    parser.showHelp(2);

  PanelWindow window(parser.positionalArguments().first());
  window.resize(860, 520);
  window.show();
  if (!parser.isSet(screenshot))
    return QApplication::exec();

  // A picture for the README: the tree as stored, with a box's details.
  window.select({QStringLiteral("Motions"), QStringLiteral("Postures"), QStringLiteral("Crouch")});
  int status = 1;
  QTimer::singleShot(0, &window, [&] {
    const int rows = window.visibleRows();
    const bool saved = window.grab().save(parser.value(screenshot));
    if (rows > 0 && saved) {
      std::printf("panel: %d rows shown, %s written\n", rows,
                  parser.value(screenshot).toLocal8Bit().constData());
      status = 0;
    } else {
      std::fprintf(stderr, "panel: %d rows shown, screenshot %s\n", rows,
                   saved ? "written" : "not written");
    }
    QApplication::quit();
  });
  QApplication::exec();
  return status;
}
