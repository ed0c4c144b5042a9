#include "commands.h"
#include "progress_line.h"

#include <krboxlibrary/krboxlibrary_version.h>
#include <zu/log.h>

#include <QCoreApplication>

#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using krbox::ExitFailure;
using krbox::ExitSuccess;
using krbox::ExitUsage;
using krbox::synopsis;

void printOptions(std::ostream& out) {
  std::size_t width = 0;
  for (const krbox::Option& option : krbox::globalOptions())
    width = std::max(width, std::strlen(option.name));
  for (const krbox::Option& option : krbox::globalOptions())
    out << "  " << option.name << std::string(width - std::strlen(option.name) + 2, ' ')
        << option.summary << '\n';
}

void printUsage(std::ostream& out) {
  std::size_t width = 0;
  for (const krbox::Command& command : krbox::commands())
    width = std::max(width, synopsis(command).size());
  out << "usage: krbox [--json] [--quiet] COMMAND [ARGUMENTS]\n"
         "       krbox help COMMAND\n"
         "       krbox --version\n\ncommands:\n";
  for (const krbox::Command& command : krbox::commands()) {
    const std::string text = synopsis(command);
    out << "  " << text << std::string(width - text.size() + 2, ' ') << command.summary << '\n';
  }
  out << "\noptions, anywhere on the line before a \"--\":\n";
  printOptions(out);
}

void printHelp(const krbox::Command& command, std::ostream& out) {
  out << "usage: krbox " << synopsis(command) << "\n\n" << command.summary << "\n\narguments:\n";
  for (const char* line = command.details; *line;) {
    const char* end = std::strchr(line, '\n');
    out << "  " << std::string(line, end) << '\n';
    line = end + 1;
  }
  out << "options:\n";
  printOptions(out);
  out << "example:\n  " << command.example << '\n';
}

const krbox::Command* findCommand(const std::string& name) {
  const auto& table = krbox::commands();
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const krbox::Command& c) { return name == c.name; });
  return found == table.end() ? nullptr : &*found;
}

// Scripts read the first line of stderr; a message with line breaks (an XML parser's
// context, say) must not spill over.
void printError(const std::string& message) {
  std::string line = message;
  std::replace(line.begin(), line.end(), '\n', ' ');
  std::replace(line.begin(), line.end(), '\r', ' ');
  std::cerr << "krbox: " << line << std::endl;
}

bool isHelp(const std::string& argument) {
  return argument == "--help" || argument == "-h" || argument == "help";
}

}  // namespace

int main(int argc, char** argv) {
  // Copied before Qt sees them: the arguments are passed on as the bytes that were typed.
  krbox::Arguments arguments;
  bool json = false;
  bool quiet = false;
  // After "--" every argument is taken as it stands: a tooltip may well read "--json".
  bool options = true;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (options && argument == "--")
      options = false;
    else if (options && argument == "--json")
      json = true;
    else if (options && argument == "--quiet")
      quiet = true;
    else
      arguments.push_back(argument);
  }
  QCoreApplication app(argc, argv);
  // Every failure reaches the user as the command's one error line, from the result that
  // reports it; the library's log would only say it again.
  zu::log::setDefaultHandlerEnabled(false);

  if (arguments.empty()) {
    printUsage(std::cerr);
    return ExitUsage;
  }
  if (arguments == krbox::Arguments{"--version"}) {
    std::cout << "krbox " << KRBOXLIBRARY_VERSION_STRING << '\n';
    return ExitSuccess;
  }
  if (isHelp(arguments[0]) && arguments.size() == 1) {
    printUsage(std::cout);
    return ExitSuccess;
  }
  const bool help = isHelp(arguments[0]);
  if (help && arguments.size() > 2) {
    std::cerr << "usage: krbox help COMMAND" << std::endl;
    return ExitUsage;
  }
  const std::string& name = arguments[help ? 1 : 0];
  const krbox::Command* command = findCommand(name);
  if (!command) {
    printError("unknown command \"" + name + "\"; see krbox --help");
    return ExitUsage;
  }

  const krbox::Arguments rest(arguments.begin() + 1, arguments.end());
  if (help || (rest.size() == 1 && (rest[0] == "--help" || rest[0] == "-h"))) {
    printHelp(*command, std::cout);
    return ExitSuccess;
  }
  if (rest.size() < command->minArguments || rest.size() > command->maxArguments) {
    std::cerr << "usage: krbox " << synopsis(*command) << std::endl;
    return ExitUsage;
  }

  krbox::ProgressLine::enable(!quiet && ::isatty(STDERR_FILENO));
  krbox::Output out(std::cout, json);
  try {
    const int status = command->run(rest, out);
    std::cout.flush();
    if (!std::cout)
      throw std::runtime_error("cannot write the output");
    return status;
  } catch (const krbox::UsageError& e) {
    if (*e.what())
      printError(e.what());
    else
      std::cerr << "usage: krbox " << synopsis(*command) << std::endl;
    return ExitUsage;
  } catch (const std::exception& e) {
    printError(e.what());
    return ExitFailure;
  }
}
