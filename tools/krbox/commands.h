#ifndef KRBOX_TOOL_COMMANDS_H
#define KRBOX_TOOL_COMMANDS_H

#include <krboxlibrary/box_library.h>

#include <QJsonObject>
#include <QString>

#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace krbox {

/// A command's arguments, as raw bytes from the command line (names are UTF-8).
using Arguments = std::vector<std::string>;

/// Where a command prints its result: lines of text, or with --json one JSON document.
class Output {
public:
  Output(std::ostream& stream, bool json) : m_stream(stream), m_json(json) {}

  /// Whether the result goes out as JSON.
  bool json() const { return m_json; }
  /// The stream for text.
  std::ostream& text() { return m_stream; }
  /// Prints document on one line, in UTF-8.
  void print(const QJsonObject& document);
  /// Prints the path of the node or file a command made, moved or removed: a line of text, or
  /// {"path": path}.
  void printPath(const std::string& path);

private:
  std::ostream& m_stream;
  bool m_json;
};

/// One subcommand: "krbox <name> <arguments>".
struct Command {
  const char* name;
  const char* arguments;  ///< the argument synopsis shown in the usage, e.g. "PATH"
  const char* summary;    ///< one line for the usage
  const char* details;    ///< for "krbox help": one "NAME  meaning" line per argument
  const char* example;    ///< for "krbox help": one command line using it
  std::size_t minArguments;
  std::size_t maxArguments;
  /// Runs the command and returns the exit status; failures are thrown as std::exception.
  int (*run)(const Arguments& arguments, Output& out);
};

/// An option every command takes, anywhere on the line before a "--".
struct Option {
  const char* name;
  const char* summary;
};

/// How krbox exits: a failure is a command that could not do what it was asked, a usage
/// error a command line that asks nothing it knows.
enum ExitStatus { ExitSuccess = 0, ExitFailure = 1, ExitUsage = 2 };

/// Arguments that do not fit the command. An empty message stands for the command's usage
/// line.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Every command, in the order the usage lists them.
const std::vector<Command>& commands();
/// The options every command takes, in the order the usage lists them.
const std::vector<Option>& globalOptions();
/// The command's name and argument synopsis, as its usage line shows them.
std::string synopsis(const Command& command);

/// The absolute, clean form of a path given on the command line.
QString localPath(const std::string& argument);

/// Opens the library at path (a directory or an archive). Throws std::runtime_error with the
/// library's own message when it cannot be opened.
std::unique_ptr<KR::BoxLibrary> openLibrary(const std::string& path, bool readOnly);

/// The node that path, display names joined by "/", names below the library's top; "" is the
/// top itself. Throws std::runtime_error when there is none.
KR::BoxLibraryNode* findNode(const KR::BoxLibrary& library, const std::string& path);
/// findNode() for a node that must be a folder (or the top).
KR::BoxLibraryNode* findFolder(const KR::BoxLibrary& library, const std::string& path);
/// findNode() for a node that must be a box.
KR::BoxLibraryNode* findBox(const KR::BoxLibrary& library, const std::string& path);
/// The path findNode() takes to reach node: the display names from below the top, joined
/// by "/".
std::string displayPath(const KR::BoxLibraryNode& node);

int runTree(const Arguments& arguments, Output& out);
int runShow(const Arguments& arguments, Output& out);
int runFind(const Arguments& arguments, Output& out);
int runMkdir(const Arguments& arguments, Output& out);
int runAdd(const Arguments& arguments, Output& out);
int runRename(const Arguments& arguments, Output& out);
int runMove(const Arguments& arguments, Output& out);
int runRemove(const Arguments& arguments, Output& out);
int runSetTooltip(const Arguments& arguments, Output& out);
int runNew(const Arguments& arguments, Output& out);
int runPack(const Arguments& arguments, Output& out);
int runExport(const Arguments& arguments, Output& out);
int runCheck(const Arguments& arguments, Output& out);
int runMergeListing(const Arguments& arguments, Output& out);
int runGitSetup(const Arguments& arguments, Output& out);

}  // namespace krbox

#endif
