// Writes krbox's manual page and bash completion from its command table, so that neither
// can tell of commands or arguments the tool does not have.
// Usage: krbox-docs man|bash OUT

#include "commands.h"

#include <krboxlibrary/krboxlibrary_version.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// One word of a synopsis such as "LIBRARY OUT [--format zip|dir]": an argument, or an
// option with the value it takes.
struct Word {
  std::string name;   // "OUT", "--format"
  std::string value;  // an option's value, "zip|dir"; empty for an argument or a flag
  bool repeats = false;
};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (!part.empty())
      parts.push_back(part);
  }
  return parts;
}

std::vector<Word> parseSynopsis(const char* arguments) {
  std::vector<Word> words;
  bool inOption = false;
  for (std::string token : split(arguments, ' ')) {
    const bool opens = token.front() == '[';
    const bool closes = token.back() == ']';
    token = token.substr(opens ? 1 : 0, token.size() - opens - closes);
    if (inOption) {
      words.back().value = token;
    } else {
      Word word;
      word.repeats = token.size() > 3 && token.compare(token.size() - 3, 3, "...") == 0;
      word.name = token.substr(0, token.size() - (word.repeats ? 3 : 0));
      words.push_back(word);
    }
    inOption = opens && !closes && token.rfind("--", 0) == 0;
  }
  return words;
}

bool isOption(const Word& word) {
  return word.name.rfind("--", 0) == 0;
}

// How the completion offers a value for an argument of this name.
std::string completionKind(const std::string& name) {
  static const char* const kFiles[] = {"PATH", "LIBRARY", "BOXFILE", "RESOURCE", "OUT",
                                       "DEST", "BASE",    "OURS",    "THEIRS"};
  if (name == "NODE" || name == "FOLDER")
    return "node";
  for (const char* file : kFiles) {
    if (name == file)
      return "file";
  }
  // Lower case words separated by "|" are the values themselves.
  if (name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string::npos)
    return "";
  std::string words = "words " + name;
  std::replace(words.begin(), words.end(), '|', ' ');
  return words;
}

// Text as groff reads it literally: escapes, hyphens that are minus signs, characters past
// ASCII by their code point, and no control character at the start of a line.
std::string roff(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else if (c < 0x80) {
      if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n'))
        out += "\\&";
      out += static_cast<char>(c);
    } else {
      const int extra = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : 1;
      unsigned long code = c & (0x3f >> extra);
      for (int k = 0; k < extra && i + 1 < text.size(); ++k)
        code = (code << 6) | (static_cast<unsigned char>(text[++i]) & 0x3f);
      char buffer[16];
      std::snprintf(buffer, sizeof buffer, "\\[u%04lX]", code);
      out += buffer;
    }
  }
  return out;
}

// A synopsis in the fonts of a manual: options and literal words bold, the names of
// arguments italic, brackets and bars roman.
std::string roffSynopsis(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t end = text.find_first_of(" []|.", i);
    if (end == i) {
      out += text[i] == '.' ? "." : roff(std::string(1, text[i]));
      ++i;
      continue;
    }
    const std::string word = text.substr(i, end - i);
    const bool variable = word.find_first_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    out += (variable ? "\\fI" : "\\fB") + roff(word) + "\\fR";
    i = end == std::string::npos ? text.size() : end;
  }
  return out;
}

// The lines of a command's details as (term, meaning) pairs; a line that starts blank goes
// on with the meaning above it.
std::vector<std::pair<std::string, std::string>> detailLines(const char* details) {
  const std::vector<std::string> lines = split(details, '\n');
  std::size_t column = 0;
  for (const std::string& line : lines) {
    const std::size_t gap = line.find("  ");
    if (line[0] != ' ' && gap != std::string::npos) {
      column = line.find_first_not_of(' ', gap);
      break;
    }
  }
  std::vector<std::pair<std::string, std::string>> items;
  for (const std::string& line : lines) {
    std::string term = line.substr(0, column);
    term.erase(term.find_last_not_of(' ') + 1);
    const std::string meaning = line.substr(std::min(column, line.size()));
    if (term.empty() && !items.empty())
      items.back().second += ' ' + meaning;
    else
      items.emplace_back(term, meaning);
  }
  return items;
}

void writeMan(std::ostream& out) {
  out << ".TH KRBOX 1 \"\" \"krboxlibrary " << KRBOXLIBRARY_VERSION_STRING
      << "\" \"User Commands\"\n"
         // Names and paths are not words to break at a hyphen.
         ".nh\n"
         ".SH NAME\nkrbox \\- read and edit box libraries\n"
         ".SH SYNOPSIS\n.B krbox\n";
  for (const krbox::Option& option : krbox::globalOptions())
    out << ".RB [ " << roff(option.name) << " ]\n";
  out << ".I COMMAND\n.RI [ ARGUMENTS ]\n.br\n.B krbox help\n.I COMMAND\n.br\n"
         ".B krbox \\-\\-version\n"
         ".SH DESCRIPTION\n"
         ".B krbox\n"
         "prints, searches and edits box libraries: trees of folders and boxes, kept in a\n"
         "directory or in a zip archive (a tar archive is read as well).\n"
         "A command that works on a library takes its path first, and works on either kind\n"
         "alike; an edit changes the library in place, and waits while another program\n"
         "changes it.\n"
         ".PP\n"
         "A node, box or folder, is named by its path: the names from the top of the library\n"
         "down to it, joined by \"/\"; \"\" is the top itself.\n"
         ".SH COMMANDS\n";
  for (const krbox::Command& command : krbox::commands()) {
    out << ".TP\n\\fBkrbox\\fR " << roffSynopsis(krbox::synopsis(command)) << '\n'
        << roff(command.summary) << ".\n.RS\n";
    const auto items = detailLines(command.details);
    std::size_t width = 0;
    for (const auto& item : items)
      width = std::max(width, item.first.size() + 2);
    for (const auto& [term, meaning] : items)
      out << ".TP " << width << "n\n" << roffSynopsis(term) << '\n' << roff(meaning) << '\n';
    out << ".PP\nExample:\n.RS\n.nf\n" << roff(command.example) << "\n.fi\n.RE\n.RE\n";
  }
  out << ".SH OPTIONS\nThese may stand anywhere on the line before a\n.BR \\-\\- ,\n"
         "which ends them: every argument after it is taken as it stands.\n";
  for (const krbox::Option& option : krbox::globalOptions())
    out << ".TP 12n\n.B " << roff(option.name) << '\n' << roff(option.summary) << ".\n";
  out << ".TP 12n\n.BR \\-\\-help \", \" \\-h\n"
         "print the commands, or with a command its arguments and an example, and exit.\n"
         ".TP\n.B \\-\\-version\nprint the version and exit.\n"
         ".SH \"EXIT STATUS\"\n"
         ".TP\n"
      << krbox::ExitSuccess
      << "\nThe command did what it was asked.\n"
         ".TP\n"
      << krbox::ExitFailure
      << "\nThe command failed, and said why in one line on standard error; or check found\n"
         "a problem, or export a behavior it could not write.\n"
         ".TP\n"
      << krbox::ExitUsage
      << "\nThe command line names no command, or its arguments do not fit the command.\n"
         ".SH ENVIRONMENT\n"
         ".TP\n.B KRBOX_LOCK_WAIT_MS\n"
         "How long an edit waits for another program changing the same library, in\n"
         "milliseconds, before it gives up; 10000 when unset.\n"
         ".TP\n.B KRBOX_READ_THREADS\n"
         "How many threads read a library directory's files beside the main one; 0 reads on\n"
         "the main thread alone. One per core when unset, at most 64.\n"
         ".TP\n.B KRBOX_PROGRESS_DELAY_MS\n"
         "How long an operation runs, in milliseconds, before a progress line is shown on a\n"
         "terminal; 500 when unset.\n"
         ".SH \"SEE ALSO\"\n.BR git (1)\n";
}

// The completion script. _krbox_command() is the table's part: for each command the kinds
// of its arguments, whether the last repeats, and its options with the kind of their value.
void writeBash(std::ostream& out) {
  out << "# bash completion for krbox, made by krbox-docs from krbox's command table.\n"
         "\n"
         "# Sets kinds (file, node or '' for each argument), repeats (1 when the last one may\n"
         "# be given again) and options (pairs of an option and the kind of its value) for the\n"
         "# command $1; fails when there is no such command.\n"
         "_krbox_command() {\n"
         "  case $1 in\n";
  std::string names;
  for (const krbox::Command& command : krbox::commands()) {
    names += std::string(names.empty() ? "" : " ") + command.name;
    std::string kinds, options;
    bool repeats = false;
    for (const Word& word : parseSynopsis(command.arguments)) {
      if (isOption(word)) {
        // A value none can guess is still taken: "none", unlike the flag's "".
        const std::string kind = word.value.empty() ? "" : completionKind(word.value);
        options +=
            " " + word.name + " '" + (word.value.empty() || !kind.empty() ? kind : "none") + "'";
        continue;
      }
      kinds += std::string(kinds.empty() ? "" : " ") + "'" + completionKind(word.name) + "'";
      repeats = word.repeats;
    }
    out << "    " << command.name << ") kinds=(" << kinds << ") repeats=" << repeats << " options=("
        << (options.empty() ? "" : options.substr(1)) << ") ;;\n";
  }
  out << "    *) return 1 ;;\n  esac\n}\n\n_krbox_commands='" << names << "'\n_krbox_options='";
  for (const krbox::Option& option : krbox::globalOptions())
    out << (&option == &krbox::globalOptions().front() ? "" : " ") << option.name;
  out << "'\n"
      << R"BASH(
# Reads the word $1 as the shell will, as far as it is typed: sets text to what it says and
# quote to the quote left open, if any.
_krbox_dequote() {
  local word=$1 c i
  text= quote=
  for ((i = 0; i < ${#word}; i++)); do
    c=${word:i:1}
    if [[ $quote == "'" ]]; then
      [[ $c == "'" ]] && quote= || text+=$c
    elif [[ $c == '\' ]]; then
      c=${word:(++i):1}
      [[ $quote == '"' && $c != [\"\\\$\`] ]] && text+='\'
      text+=$c
    elif [[ $c == [\"\'] && ( -z $quote || $c == "$quote" ) ]]; then
      [[ -n $quote ]] && quote= || quote=$c
    else
      text+=$c
    fi
  done
}

# Prints $2 quoted to follow the open quote $1 (none, ' or ").
_krbox_quote() {
  local s=$2 c q="'" escaped="'\''"
  case $1 in
    "'") printf '%s' "${s//"$q"/"$escaped"}" ;;
    '"')
      for c in '\' '"' '$' '`'; do s=${s//"$c"/"\\$c"}; done
      printf '%s' "$s"
      ;;
    *) [[ -n $s ]] && printf '%q' "$s" ;;
  esac
}

# The node paths of the library $2, read with the krbox $1, that go on from $3 to the end
# of the next name; a folder comes both as itself and with its "/".
_krbox_nodes() {
  local tool=$1 library=$2 typed=$3 path cut rest paths=()
  local -A known=() offered=()
  [[ $tool == '~/'* ]] && tool=$HOME/${tool:2}
  [[ $library == '~/'* ]] && library=$HOME/${library:2}
  mapfile -t paths < <("$tool" --quiet find "$library" "" 2>/dev/null)
  for path in "${paths[@]}"; do [[ -n $path ]] && known[$path]=1; done
  for path in "${paths[@]}"; do
    [[ -n $path && $path == "$typed"* ]] || continue
    # A name may hold "/" itself: a path is cut only where a folder ends.
    cut=$path rest=${path:${#typed}}
    while [[ $rest == */* ]]; do
      rest=${rest#*/}
      if [[ -n ${known[${path%"/$rest"}]-} ]]; then
        cut=${path%"$rest"}
        break
      fi
    done
    offered[$cut]=1
  done
  ((${#offered[@]} == 0)) || printf '%s\n' "${!offered[@]}"
}

_krbox() {
  local line=${COMP_LINE:0:COMP_POINT} words=() pos=0 i j word blank
  # Joins again what COMP_WORDBREAKS split at ":" or "=" with no blank between.
  for ((i = 0; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]} blank=0
    while [[ ${line:pos:1} == [$' \t\n'] ]]; do ((pos++, blank = 1)); done
    if ((i > 0 && !blank)) && [[ $word =~ ^[:=]+$ || ${COMP_WORDS[i - 1]} =~ ^[:=]+$ ]]; then
      words[${#words[@]} - 1]+=$word
    else
      words+=("$word")
    fi
    ((pos += ${#word}))
  done
  # Only what is left of the cursor counts; head is what bash will not replace.
  local over=$((pos > ${#line} ? pos - ${#line} : 0))
  local cur=${words[${#words[@]} - 1]} last=${COMP_WORDS[COMP_CWORD]}
  cur=${cur:0:${#cur} - over} last=${last:0:${#last} - over}
  [[ $last =~ ^[:=]+$ ]] && last=
  local head=${cur:0:${#cur} - ${#last}}

  local command= args=() kinds=() repeats=0 options=() ended=0 value= option help=0
  for ((i = 1; i < ${#words[@]} - 1; i++)); do
    word=${words[i]} option=0
    if [[ -n $value ]]; then
      value=
    elif ((!ended)) && [[ $word == -- ]]; then
      ended=1
    elif ((!ended)) && [[ " $_krbox_options " == *" $word "* ]]; then
      :
    elif [[ -z $command ]]; then
      command=$word
      [[ " help --help -h " == *" $command "* ]] && help=1
      ((help)) || _krbox_command "$command" || return 0
    else
      for ((j = 0; j < ${#options[@]}; j += 2)); do
        [[ $word == "${options[j]}" ]] && option=1 value=${options[j + 1]}
      done
      ((option)) || args+=("$word")
    fi
  done

  local text quote kind=
  _krbox_dequote "$cur"
  if [[ -n $value ]]; then
    kind=$value
  elif ((!ended)) && [[ $text == -* ]]; then
    kind="words $_krbox_options"
    [[ -z $command ]] && kind+=" --version --help"
    for ((j = 0; j < ${#options[@]}; j += 2)); do kind+=" ${options[j]}"; done
  elif [[ -z $command ]]; then
    kind="words $_krbox_commands help"
  elif ((help)); then
    ((${#args[@]})) || kind="words $_krbox_commands"
  elif ((${#args[@]} < ${#kinds[@]})); then
    kind=${kinds[${#args[@]}]}
  elif ((repeats)); then
    kind=${kinds[${#kinds[@]} - 1]}
  fi

  COMPREPLY=()
  case $kind in
    words\ *)
      mapfile -t COMPREPLY < <(compgen -W "${kind#words }" -- "$text")
      ;;
    file)
      compopt -o filenames 2>/dev/null
      local base=${head:+$(_krbox_dequote "$head"; printf '%s' "$text")}
      mapfile -t COMPREPLY < <(compgen -f -- "$text")
      for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=${COMPREPLY[i]#"$base"}; done
      ;;
    node)
      local typed=$text open=$quote raw=$cur tool library match reply
      # A backslash typed last escapes nothing yet.
      [[ $raw == *\\ ]] && _krbox_dequote "${raw%\\}" && [[ $text == "$typed" ]] && raw=${raw%\\}
      _krbox_dequote "${words[0]}"; tool=$text
      _krbox_dequote "${args[0]-}"; library=$text
      while IFS= read -r match; do
        if [[ $cur == [\"\']* ]]; then
          reply=${cur:0:1}$(_krbox_quote "${cur:0:1}" "$match")
        else
          reply=$raw$(_krbox_quote "$open" "${match:${#typed}}")
        fi
        [[ $match == */ ]] && compopt -o nospace 2>/dev/null
        [[ $reply == "$head"* ]] && COMPREPLY+=("${reply:${#head}}")
      done < <(_krbox_nodes "$tool" "$library" "$typed")
      ;;
  esac
  return 0
}

complete -F _krbox krbox
)BASH";
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc == 3 ? argv[1] : "";
  if (what != "man" && what != "bash") {
    std::cerr << "usage: krbox-docs man|bash OUT" << std::endl;
    return krbox::ExitUsage;
  }
  std::ofstream out(argv[2], std::ios::binary);
  if (what == "man")
    writeMan(out);
  else
    writeBash(out);
  out.close();
  if (!out) {
    std::cerr << "krbox-docs: cannot write " << argv[2] << std::endl;
    return krbox::ExitFailure;
  }
  return krbox::ExitSuccess;
}
