// Completion for the shells, made from the command line's own description of itself.
#include <functional>
#include <iostream>
#include <sstream>

#include "clients/ctl/commands/Commands.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

/// A command and the words that may follow it.
struct CommandWords {
  std::vector<std::string> path;  // the words that lead to it
  std::string description;
  std::vector<std::string> words;  // options, commands below, and the fixed words of its arguments
  bool takesFiles = false;
};

std::string joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

// A checked argument lists its allowed words in the name of its type: "TEXT:{on,off}".
void appendChoices(const std::string& typeName, std::vector<std::string>& words) {
  const std::size_t open = typeName.find('{'), close = typeName.find('}');
  if (open == std::string::npos || close == std::string::npos) {
    return;
  }
  std::istringstream choices(typeName.substr(open + 1, close - open - 1));
  for (std::string word; std::getline(choices, word, ',');) {
    words.push_back(word);
  }
}

void collect(const CLI::App& app, const std::vector<std::string>& path, std::vector<CommandWords>& commands) {
  CommandWords entry;
  entry.path = path;
  entry.description = app.get_description();
  std::vector<const CLI::App*> below;
  const std::function<void(const CLI::App&)> addOptionsOf = [&](const CLI::App& group) {
    for (const CLI::Option* option : group.get_options()) {
      for (const std::string& name : option->get_lnames()) {
        entry.words.push_back("--" + name);
      }
      if (option->get_positional()) {
        appendChoices(option->get_type_name(), entry.words);
        const std::string name = option->get_name(true);
        entry.takesFiles = entry.takesFiles || name == "PATH" || name == "FILE" || name == "LOCATION";
      }
    }
    for (const CLI::App* sub : group.get_subcommands({})) {
      if (sub->get_name().empty()) {
        addOptionsOf(*sub);  // options that exclude each other are in a nameless group
      } else {
        below.push_back(sub);
        entry.words.push_back(sub->get_name());
      }
    }
  };
  addOptionsOf(app);
  commands.push_back(entry);
  for (const CLI::App* sub : below) {
    std::vector<std::string> longer = path;
    longer.push_back(sub->get_name());
    collect(*sub, longer, commands);
  }
}

// The words before the cursor that name commands select the entry; all other words are ignored.
std::string bashScript(const std::vector<CommandWords>& commands) {
  std::string cases, known;
  for (const CommandWords& command : commands) {
    const std::string key = joined(command.path, " ");
    known += command.path.empty() ? "" : "      \"" + key + "\") command=$longer ;;\n";
    cases += "    \"" + key + "\") words=\"" + joined(command.words, " ") +
             "\"; files=" + (command.takesFiles ? "1" : "0") + " ;;\n";
  }
  return "# bash completion for keldanectl\n"
         "_keldanectl() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} command= longer word words= files=0\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    longer=\"${command:+$command }$word\"\n"
         "    case $longer in\n" +
         known +
         "    esac\n"
         "  done\n"
         "  case $command in\n" +
         cases +
         "  esac\n"
         "  [[ $files == 1 || ${COMP_WORDS[COMP_CWORD-1]} == --bundle ]] && compopt -o default 2>/dev/null\n"
         "  [[ $files == 1 && $cur != -* ]] || mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
         "}\n"
         "complete -F _keldanectl keldanectl\n";
}

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return result + "'";
}

std::string zshScript(const std::vector<CommandWords>& commands) {
  std::string cases, known;
  for (const CommandWords& command : commands) {
    const std::string key = joined(command.path, " ");
    known += command.path.empty() ? "" : "      (" + shellQuoted(key) + ") command=$longer ;;\n";
    cases += "    (" + shellQuoted(key) + ") candidates=(" + joined(command.words, " ") +
             "); files=" + (command.takesFiles ? "1" : "0") + " ;;\n";
  }
  return "#compdef keldanectl\n"
         "_keldanectl() {\n"
         "  local command= longer word files=0\n"
         "  local -a candidates\n"
         "  for word in ${words[2,CURRENT-1]}; do\n"
         "    longer=\"${command:+$command }$word\"\n"
         "    case $longer in\n" +
         known +
         "    esac\n"
         "  done\n"
         "  case $command in\n" +
         cases +
         "  esac\n"
         "  if (( files )) && [[ ${words[CURRENT]} != -* ]]; then _files; else compadd -- $candidates; fi\n"
         "}\n"
         "_keldanectl \"$@\"\n";
}

std::string fishScript(const std::vector<CommandWords>& commands) {
  std::ostringstream text;
  text << "# fish completion for keldanectl\ncomplete -c keldanectl -f\n";
  const auto descriptionOf = [&](const std::vector<std::string>& path) {
    for (const CommandWords& command : commands) {
      if (command.path == path) {
        return command.description;
      }
    }
    return std::string();
  };
  for (const CommandWords& command : commands) {
    std::string condition = command.path.empty() ? "__fish_use_subcommand" : "";
    for (const std::string& word : command.path) {
      condition += condition.empty() ? "" : "; and ";
      condition.append("__fish_seen_subcommand_from ").append(word);
    }
    const std::string line = "complete -c keldanectl -n " + shellQuoted(condition);
    for (const std::string& word : command.words) {
      std::vector<std::string> longer = command.path;
      longer.push_back(word);
      const std::string description = descriptionOf(longer);
      text << line << (word.starts_with("--") ? " -l " + word.substr(2) : " -a " + word)
           << (description.empty() ? "" : " -d " + shellQuoted(description)) << '\n';
    }
    text << (command.takesFiles ? line + " -F\n" : "");
  }
  return text.str();
}

}  // namespace

void addCompletionCommand(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("completion", tr("Print what a shell needs to complete this program"));
  auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, tr("bash, zsh or fish"))
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish"}));
  command->callback([&app, shell] {
    std::vector<CommandWords> commands;
    collect(app, {}, commands);
    std::cout << (*shell == "bash" ? bashScript : *shell == "zsh" ? zshScript : fishScript)(commands);
  });
}

}  // namespace keldane
