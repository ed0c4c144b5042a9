#include "commands.h"

#include <QCoreApplication>

#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

enum ExitStatus { ExitSuccess = 0, ExitFailure = 1, ExitUsage = 2 };

std::string synopsis(const krbox::Command& command) {
  std::string text = command.name;
  if (*command.arguments)
    text += std::string(" ") + command.arguments;
  return text;
}

void printUsage(std::ostream& out) {
  std::size_t width = 0;
  for (const krbox::Command& command : krbox::commands())
    width = std::max(width, synopsis(command).size());
  out << "usage: krbox COMMAND [ARGUMENTS]\n\ncommands:\n";
  for (const krbox::Command& command : krbox::commands()) {
    const std::string text = synopsis(command);
    out << "  " << text << std::string(width - text.size() + 2, ' ') << command.summary << '\n';
  }
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
  const krbox::Arguments arguments(argv + 1, argv + argc);
  QCoreApplication app(argc, argv);

  if (arguments.empty()) {
    printUsage(std::cerr);
    return ExitUsage;
  }
  if (isHelp(arguments[0])) {
    printUsage(std::cout);
    return ExitSuccess;
  }
  const auto& table = krbox::commands();
  const auto command = std::find_if(
      table.begin(), table.end(), [&](const krbox::Command& c) { return arguments[0] == c.name; });
  if (command == table.end()) {
    printError("unknown command \"" + arguments[0] + "\"; see krbox --help");
    return ExitUsage;
  }

  const krbox::Arguments rest(arguments.begin() + 1, arguments.end());
  if (rest.size() == 1 && (rest[0] == "--help" || rest[0] == "-h")) {
    std::cout << "usage: krbox " << synopsis(*command) << '\n';
    return ExitSuccess;
  }
  if (rest.size() < command->minArguments || rest.size() > command->maxArguments) {
    std::cerr << "usage: krbox " << synopsis(*command) << std::endl;
    return ExitUsage;
  }

  try {
    const int status = command->run(rest, std::cout);
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
