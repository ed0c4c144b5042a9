#include <QDir>
#include <QFile>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Runs a harness once on every file of the given directories (or on the given files), in
// name order: the corpora as regression tests, in builds without libFuzzer.
int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    const QString arg = QFile::decodeName(argv[i]);
    QStringList files{arg};
    if (QFileInfo(arg).isDir()) {
      files.clear();
      for (const QString& name : QDir(arg).entryList(QDir::Files | QDir::Hidden, QDir::Name))
        files << arg + "/" + name;
    }
    for (const QString& path : files) {
      QFile file(path);
      if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return 1;
      }
      const QByteArray input = file.readAll();
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()),
                             static_cast<size_t>(input.size()));
      ++runs;
    }
  }
  std::printf("%d inputs replayed\n", runs);
  return runs > 0 ? 0 : 1;
}
