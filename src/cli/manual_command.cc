// klipora manual --format man|bash|zsh (not listed in --help): the manual
// page and the shell completions, written from the command's own tree of
// subcommands and options, so that they cannot drift from it. The package
// build runs it.
#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <sstream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"

namespace klipora::cli {
namespace {

bool Listed(const CLI::App* app) { return !app->get_group().empty(); }

std::vector<const CLI::App*> Children(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* a) { return Listed(a); });
}

std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([&app](const CLI::Option* o) {
    return !o->get_group().empty() && o != app.get_help_ptr();
  });
}

// Text for roff: backslashes, dashes and a leading dot or quote escaped.
std::string Roff(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
  return out;
}

std::string OptionSynopsis(const CLI::Option& o) {
  if (o.get_positional() && !o.nonpositional()) {
    std::string name = "\\fI" + Roff(o.get_name(true)) + "\\fR";
    if (o.get_expected_max() > 1) name += "...";
    return o.get_required() ? name : "[" + name + "]";
  }
  std::string names;
  for (const auto& s : o.get_snames()) names += (names.empty() ? "" : ", ") + Roff("-" + s);
  for (const auto& l : o.get_lnames()) names += (names.empty() ? "" : ", ") + Roff("--" + l);
  names = "\\fB" + names + "\\fR";
  if (o.get_expected_max() != 0) {
    std::string type = o.get_type_name();
    names += " \\fI" + Roff(type.empty() ? "VALUE" : type) + "\\fR";
  }
  return names;
}

void ManCommand(const CLI::App& app, const std::string& path, std::ostream& out) {
  std::string synopsis = "\\fB" + Roff(path) + "\\fR";
  for (const auto* o : Options(app)) {
    if (o->get_positional() && !o->nonpositional()) synopsis += " " + OptionSynopsis(*o);
  }
  auto children = Children(app);
  if (!children.empty()) synopsis += " \\fICOMMAND\\fR";
  out << ".TP\n" << synopsis << "\n" << Roff(app.get_description()) << "\n";
  bool any = false;
  for (const auto* o : Options(app)) {
    if (o->get_positional() && !o->nonpositional()) continue;
    if (!any) out << ".RS\n";
    any = true;
    out << ".TP\n" << OptionSynopsis(*o) << "\n" << Roff(o->get_description()) << "\n";
  }
  if (any) out << ".RE\n";
  for (const auto* child : children) ManCommand(*child, path + " " + child->get_name(), out);
}

void Man(const CLI::App& root, std::ostream& out) {
  out << ".\\\" Written by `klipora manual --format man`; do not edit.\n"
      << ".TH KLIPORA 1 \"\" \"klipora " KLIPORA_VERSION "\" \"User Commands\"\n"
      << ".SH NAME\nklipora \\- a screenshot library for Linux desktops\n"
      << ".SH SYNOPSIS\n\\fBklipora\\fR [\\fB\\-\\-home\\fR \\fIDIR\\fR] \\fICOMMAND\\fR "
         "[\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]\n"
      << ".br\n\\fBklipora \\-\\-version\\fR | \\fB\\-\\-help\\fR\n"
      << ".SH DESCRIPTION\n"
      << "Klipora watches the folders that screenshot tools save into, takes each new image "
         "into a library of its own, reads the text in it, files it into a category, and keeps "
         "tags, saved searches, a trash and non\\-destructive markup. \\fBklipora run\\fR is the "
         "daemon; while it runs, the other commands ask it, else they work on the library "
         "directly.\n"
      << ".SH OPTIONS\n";
  for (const auto* o : Options(root)) {
    out << ".TP\n" << OptionSynopsis(*o) << "\n" << Roff(o->get_description()) << "\n";
  }
  out << ".SH COMMANDS\n";
  for (const auto* child : Children(root)) ManCommand(*child, "klipora " + child->get_name(), out);
  out << ".SH ENVIRONMENT\n"
      << ".TP\n.B KLIPORA_HOME\nThe library's support folder, unless \\fB\\-\\-home\\fR is given.\n"
      << ".TP\n.B XDG_DATA_HOME\nThe support folder is \\fI$XDG_DATA_HOME/Klipora\\fR when "
         "\\fBKLIPORA_HOME\\fR is not set (default \\fI~/.local/share/Klipora\\fR).\n"
      << ".TP\n.B XDG_RUNTIME_DIR\nWhere the daemon's control socket lies.\n"
      << ".SH FILES\n"
      << ".TP\n.I Klipora.store\nThe library's records (SQLite), in the support folder.\n"
      << ".TP\n.I Library/\nCopies of the screenshots, thumbnails and the log "
         "(\\fIDiagnostics/klipora.log\\fR).\n"
      << ".TP\n.I ~/.config/systemd/user/klipora.service\nThe user unit that "
         "\\fBklipora service enable\\fR writes.\n"
      << ".TP\n.I ~/.config/autostart/klipora.desktop\nThe autostart entry it writes beside it.\n"
      << ".SH EXIT STATUS\n"
      << "0 success, 1 the operation failed for some input, 2 usage error, 3 the library store "
         "could not be opened.\n";
}

// Every command path ("" for the top level) with its subcommands and options.
struct Node {
  std::vector<std::pair<std::string, std::string>> children;  // name, description
  std::vector<std::pair<std::string, std::string>> options;
};

void Collect(const CLI::App& app, const std::string& path, std::map<std::string, Node>& nodes) {
  Node& node = nodes[path];
  for (const auto* o : Options(app)) {
    for (const auto& l : o->get_lnames()) node.options.push_back({"--" + l, o->get_description()});
    for (const auto& s : o->get_snames()) node.options.push_back({"-" + s, o->get_description()});
  }
  node.options.push_back({"--help", "Print this help message and exit"});
  for (const auto* child : Children(app)) {
    node.children.push_back({child->get_name(), child->get_description()});
    Collect(*child, path.empty() ? child->get_name() : path + " " + child->get_name(), nodes);
  }
}

std::string Words(const Node& node) {
  std::string out;
  for (const auto& [name, d] : node.children) out += (out.empty() ? "" : " ") + name;
  for (const auto& [name, d] : node.options) out += (out.empty() ? "" : " ") + name;
  return out;
}

void Bash(const std::map<std::string, Node>& nodes, std::ostream& out) {
  out << "# bash completion for klipora; written by `klipora manual --format bash`.\n"
      << "_klipora() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]} path= word i\n"
      << "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
      << "    word=${COMP_WORDS[i]}\n"
      << "    case \"${path:+$path }$word\" in\n";
  for (const auto& [path, node] : nodes) {
    if (!path.empty()) out << "      '" << path << "') path=\"${path:+$path }$word\" ;;\n";
  }
  out << "    esac\n  done\n  local words\n  case \"$path\" in\n";
  for (const auto& [path, node] : nodes) {
    out << "    '" << path << "') words='" << Words(node) << "' ;;\n";
  }
  out << "  esac\n"
      << "  COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
      << "  if [[ $cur != -* ]]; then COMPREPLY+=($(compgen -f -- \"$cur\")); fi\n"
      << "}\n"
      << "complete -o filenames -F _klipora klipora\n";
}

std::string ZshItem(const std::string& name, const std::string& description) {
  std::string text = name + ":" + description;
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

void Zsh(const std::map<std::string, Node>& nodes, std::ostream& out) {
  out << "#compdef klipora\n"
      << "# zsh completion for klipora; written by `klipora manual --format zsh`.\n"
      << "_klipora() {\n"
      << "  local path_= word i\n"
      << "  local -a commands options\n"
      << "  for ((i = 2; i < CURRENT; i++)); do\n"
      << "    word=${words[i]}\n"
      << "    case \"${path_:+$path_ }$word\" in\n";
  for (const auto& [path, node] : nodes) {
    if (!path.empty()) out << "      '" << path << "') path_=\"${path_:+$path_ }$word\" ;;\n";
  }
  out << "    esac\n  done\n  case \"$path_\" in\n";
  for (const auto& [path, node] : nodes) {
    out << "    '" << path << "')\n      commands=(";
    for (const auto& [name, d] : node.children) out << " " << ZshItem(name, d);
    out << " )\n      options=(";
    for (const auto& [name, d] : node.options) out << " " << ZshItem(name, d);
    out << " ) ;;\n";
  }
  out << "  esac\n"
      << "  if [[ $PREFIX == -* ]]; then\n"
      << "    _describe -t options 'option' options\n"
      << "  elif (( ${#commands} )); then\n"
      << "    _describe -t commands 'klipora command' commands\n"
      << "  else\n"
      << "    _files\n"
      << "  fi\n"
      << "}\n"
      << "_klipora \"$@\"\n";
}

}  // namespace

KLIPORA_COMMAND(manual) {
  auto* cmd = app.add_subcommand("manual", "")->group("");
  auto format = std::make_shared<std::string>("man");
  cmd->add_option("--format", *format, "man, bash or zsh")
      ->check(CLI::IsMember({"man", "bash", "zsh"}));
  CLI::App* root = &app;
  cmd->callback([&session, root, format] {
    if (*format == "man") {
      Man(*root, std::cout);
    } else {
      std::map<std::string, Node> nodes;
      Collect(*root, "", nodes);
      if (*format == "bash") Bash(nodes, std::cout);
      if (*format == "zsh") Zsh(nodes, std::cout);
    }
    session.exitCode = kExitOk;
  });
}

}  // namespace klipora::cli
