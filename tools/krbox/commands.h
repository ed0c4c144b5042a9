#ifndef KRBOX_TOOL_COMMANDS_H
#define KRBOX_TOOL_COMMANDS_H

#include <krboxlibrary/box_library.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace krbox {

/// A command's arguments, as raw bytes from the command line (names are UTF-8).
using Arguments = std::vector<std::string>;

/// One subcommand: "krbox <name> <arguments>".
struct Command {
  const char* name;
  const char* arguments;  ///< the argument synopsis shown in the usage, e.g. "PATH"
  const char* summary;    ///< one line for the usage
  std::size_t minArguments;
  std::size_t maxArguments;
  /// Runs the command and returns the exit status; failures are thrown as std::exception.
  int (*run)(const Arguments& arguments, std::ostream& out);
};

/// Every command, in the order the usage lists them.
const std::vector<Command>& commands();

/// Opens the library at path (a directory or an archive). Throws std::runtime_error with the
/// library's own message when it cannot be opened.
std::unique_ptr<KR::BoxLibrary> openLibrary(const std::string& path, bool readOnly);

/// The node that path, display names joined by "/", names below the library's top; "" is the
/// top itself. Throws std::runtime_error when there is none.
KR::BoxLibraryNode* findNode(const KR::BoxLibrary& library, const std::string& path);

int runTree(const Arguments& arguments, std::ostream& out);
int runShow(const Arguments& arguments, std::ostream& out);

}  // namespace krbox

#endif
