// Writes the manual page and the bash completion of `wfs`, made of what its help is made of. Runs while the project is
// built.

#include <Defines/Version.h>
#include <Tools/wfs/CommandLine.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

// What both are made of

std::vector<CLI::App const*> VerbsOf(CLI::App const& verb) {
    return verb.get_subcommands([](CLI::App const*) { return true; });
}

std::vector<CLI::Option const*> ArgumentsOf(CLI::App const& verb) {
    return verb.get_options([](CLI::Option const* option) { return option->get_positional(); });
}

std::vector<CLI::Option const*> OptionsOf(CLI::App const& verb) {
    return verb.get_options([](CLI::Option const* option) { return option->nonpositional(); });
}

/// "-h" and "--help".
std::vector<std::string> NamesOf(CLI::Option const& option) {
    std::vector<std::string> names;
    for (std::string const& name : option.get_snames()) {
        names.push_back('-' + name);
    }
    for (std::string const& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

/// "MS" or "posix|windows"; empty for an option without a value.
std::string ValueOf(CLI::Option const& option) {
    std::string const& text = option.get_option_text();
    return text == " " ? "" : text; // of a flag, which else would have a text of CLI11's
}

bool IsRepeated(CLI::Option const& argument) {
    return argument.get_expected_max() > 1;
}

std::vector<std::string> SplitLines(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string ToUpper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return text;
}

std::string Join(std::vector<std::string> const& words) {
    std::string text;
    for (std::string const& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// The manual page, in the language of man(7)

class ManualPage {
public:
    ManualPage(CLI::App const& program, std::string const& date) {
        std::ostringstream version;
        version << WFILESYSTEM_VERSION_MAJOR << '.' << WFILESYSTEM_VERSION_MINOR << '.' << WFILESYSTEM_VERSION_PATCH;
        page_ << ".TH WFS 1 " << date << " \"WFileSystem " << version.str() << "\" \"User Commands\"\n"
              << ".SH NAME\nwfs \\- read, write and lock files by the rules of the WFileSystem library\n"
              << ".SH SYNOPSIS\n";
        WriteSynopsis(program);
        page_ << ".SH DESCRIPTION\n";
        std::vector<std::string> const paragraphs = Paragraphs(program.get_footer());
        WriteParagraph(program.get_description());
        for (std::string const& paragraph : paragraphs) {
            if (LabelOf(paragraph).empty()) {
                page_ << ".PP\n";
                WriteParagraph(paragraph);
            }
        }
        page_ << ".SH OPTIONS\n";
        WriteOptions(program);
        page_ << ".SH VERBS\n";
        WriteVerbs(program);
        for (std::string const& paragraph : paragraphs) {
            if (std::string const label = LabelOf(paragraph); !label.empty()) {
                page_ << ".SH " << Quoted(ToUpper(label)) << '\n';
                WriteParagraph(paragraph.substr(label.size() + 1));
            }
        }
        page_ << ".SH SEE ALSO\n.BR fcntl (2),\n.BR mkfifo (3)\n";
    }

    std::string GetText() const { return page_.str(); }

private:
    /// So that all characters come out as they are, and none begins a request. \- is a hyphen that can be copied.
    static std::string Escape(std::string_view text) {
        std::string escaped;
        for (char const character : text) {
            switch (character) {
            case '\\':
                escaped += "\\e";
                break;
            case '-':
                escaped += "\\-";
                break;
            case '\'':
                escaped += "\\(aq";
                break;
            case '`':
                escaped += "\\(ga";
                break;
            case '^':
                escaped += "\\(ha";
                break;
            case '~':
                escaped += "\\(ti";
                break;
            case '"':
                escaped += "\\(dq";
                break;
            default:
                escaped += character;
            }
        }
        return escaped.substr(0, 1) == "." ? "\\&" + escaped : escaped;
    }

    static std::string Quoted(std::string_view text) { return '"' + Escape(text) + '"'; }

    static std::string Bold(std::string_view text) { return "\\fB" + Escape(text) + "\\fR"; }

    static std::string Italic(std::string_view text) { return "\\fI" + Escape(text) + "\\fR"; }

    static std::vector<std::string> Paragraphs(std::string const& text) {
        std::vector<std::string> paragraphs;
        for (std::string const& line : SplitLines(text)) {
            if (line.empty() || paragraphs.empty()) {
                paragraphs.emplace_back();
            }
            paragraphs.back() += line.empty() ? "" : line + '\n';
        }
        return paragraphs;
    }

    /// "Exit status" of "Exit status: 0 success"; empty where the paragraph has no label.
    static std::string LabelOf(std::string const& paragraph) {
        constexpr std::size_t LONGEST = 12;
        std::size_t const end = paragraph.find(':');
        return end <= LONGEST ? paragraph.substr(0, end) : "";
    }

    void WriteSynopsis(CLI::App const& verb) {
        for (CLI::App const* const part : VerbsOf(verb)) {
            if (VerbsOf(*part).empty()) {
                std::string const usage = Wfs::GetUsage(*part);
                std::string const name = Wfs::GetFullName(*part);
                page_ << Bold(name) << Escape(usage.substr(name.size())) << "\n.br\n";
            } else {
                WriteSynopsis(*part);
            }
        }
        if (verb.get_parent() == nullptr) {
            page_ << Bold("wfs --help") << "\n.br\n" << Bold("wfs --version") << '\n';
        }
    }

    /// Text, and the lines that stay as they are.
    void WriteParagraph(std::string const& paragraph) {
        bool isVerbatim = false;
        for (std::string const& line : SplitLines(paragraph)) {
            if (isVerbatim != (line.substr(0, 2) == "  ")) {
                isVerbatim = !isVerbatim;
                page_ << (isVerbatim ? ".PP\n.RS 4\n.nf\n" : ".fi\n.RE\n.PP\n");
            }
            std::size_t const begin = line.find_first_not_of(' ');
            if (begin != std::string::npos) {
                page_ << Escape(std::string_view(line).substr(begin)) << '\n';
            }
        }
        if (isVerbatim) {
            page_ << ".fi\n.RE\n";
        }
    }

    void WriteNotes(std::string const& notes) {
        for (std::string const& paragraph : Paragraphs(notes)) {
            std::string const label = LabelOf(paragraph);
            page_ << ".PP\n";
            if (label.empty()) {
                WriteParagraph(paragraph);
            } else {
                page_ << Bold(label + ':') << '\n';
                WriteParagraph(paragraph.substr(label.size() + 1));
            }
        }
    }

    void WriteOptions(CLI::App const& verb) {
        for (CLI::Option const* const argument : ArgumentsOf(verb)) {
            page_ << ".TP\n"
                  << Italic(argument->get_name(true)) << (IsRepeated(*argument) ? "...\n" : "\n")
                  << Escape(argument->get_description()) << '\n';
        }
        for (CLI::Option const* const option : OptionsOf(verb)) {
            if (option == verb.get_help_ptr() && verb.get_parent() != nullptr) {
                continue; // told about once, with the program's own
            }
            page_ << ".TP\n";
            std::vector<std::string> const names = NamesOf(*option);
            for (std::string const& name : names) {
                page_ << (name == names.front() ? "" : ", ") << Bold(name);
            }
            std::string const value = ValueOf(*option);
            page_ << (value.empty() ? "" : ' ' + Italic(value)) << '\n' << Escape(option->get_description()) << '\n';
        }
    }

    void WriteVerbs(CLI::App const& verb) {
        for (CLI::App const* const part : VerbsOf(verb)) {
            page_ << ".SS " << Quoted(Wfs::GetUsage(*part)) << '\n' << Escape(part->get_description()) << ".\n";
            WriteOptions(*part);
            WriteNotes(part->get_footer());
            WriteVerbs(*part);
        }
    }

    std::ostringstream page_;
};

// The completion

constexpr char const COMPLETION_HEAD[] =
    R"bash(# bash completion for wfs                                  -*- shell-script -*-

# _wfs_describe VERB: sets the verbs of a verb, its options, those of them that have a value, and its arguments.
_wfs_describe() {
    verbs='' options='' valued='' arguments=''
    case $1 in
)bash";

constexpr char const COMPLETION_MIDDLE[] = R"bash(    esac
}

# _wfs_choices VERB OPTION: prints the values that the option may have; nothing where they have no names.
_wfs_choices() {
    case "$1 $2" in
)bash";

constexpr char const COMPLETION_TAIL[] = R"bash(    esac
}

# _wfs_reply ACTION...: replies with what compgen finds. A reply of none is final, and not followed by file names.
_wfs_reply() {
    mapfile -t COMPREPLY < <(compgen "$@" -- "$current")
    compopt +o default 2>/dev/null
    return 0
}

_wfs() {
    local current=${COMP_WORDS[COMP_CWORD]} verb=wfs option='' argument=0 isHelp='' isBehindDashes=''
    local verbs options valued arguments
    COMPREPLY=()
    _wfs_describe "$verb"

    local index word
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ $option ]]; then
            # In --wait=5 the equals sign is a word of its own.
            [[ $word == = ]] || option=''
        elif [[ ! $isBehindDashes && $word == -- ]]; then
            isBehindDashes=1
        elif [[ ! $isBehindDashes && $word == -?* ]]; then
            [[ " $valued " != *" $word "* ]] || option=$word
        elif [[ $verb == wfs && $word == help && ! $isHelp ]]; then
            isHelp=1
        elif [[ " $verbs " == *" $word "* ]]; then
            verb="$verb $word"
            _wfs_describe "$verb"
        else
            argument=$((argument + 1))
        fi
    done

    if [[ $option ]]; then
        [[ $current != = ]] || current=''
        _wfs_reply -W "$(_wfs_choices "$verb" "$option")"
        return
    fi
    if [[ ! $isHelp && ! $isBehindDashes && $current == -* ]]; then
        _wfs_reply -W "$options"
        return
    fi
    if [[ $isHelp || $verbs ]]; then
        _wfs_reply -W "$verbs"
        return
    fi

    # The last argument may be one that is repeated.
    local -a names
    read -ra names <<<"$arguments"
    local name='' last=''
    ((${#names[@]} == 0)) || last=${names[-1]}
    if ((argument < ${#names[@]})); then
        name=${names[argument]}
    elif [[ $last == COMMAND... ]]; then
        name=PATH # an argument of the command may be one
    elif [[ $last == *... ]]; then
        name=$last
    fi
    case $name in
        '') _wfs_reply -W '' ;;
        COMMAND...)
            if [[ $isBehindDashes ]]; then
                _wfs_reply -c
            else
                _wfs_reply -W '--'
            fi
            ;;
        DIRECTORY...)
            compopt -o filenames 2>/dev/null
            _wfs_reply -d
            ;;
        *)
            # Where this finds nothing, because there are quotes in the word, bash looks for file names itself.
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
    esac
}

complete -o default -F _wfs wfs
)bash";

class Completion {
public:
    explicit Completion(CLI::App const& program) {
        script_ << COMPLETION_HEAD;
        Describe(program);
        script_ << COMPLETION_MIDDLE;
        TellChoices(program);
        script_ << COMPLETION_TAIL;
    }

    std::string GetText() const { return script_.str(); }

private:
    void Describe(CLI::App const& verb) {
        std::vector<std::string> verbs;
        std::vector<std::string> options;
        std::vector<std::string> valued;
        std::vector<std::string> arguments;
        for (CLI::App const* const part : VerbsOf(verb)) {
            verbs.push_back(part->get_name());
        }
        for (CLI::Option const* const option : OptionsOf(verb)) {
            for (std::string const& name : NamesOf(*option)) {
                options.push_back(name);
                if (!ValueOf(*option).empty()) {
                    valued.push_back(name);
                }
            }
        }
        for (CLI::Option const* const argument : ArgumentsOf(verb)) {
            arguments.push_back(argument->get_name(true) + (IsRepeated(*argument) ? "..." : ""));
        }
        script_ << "        '" << Wfs::GetFullName(verb) << "')\n";
        Set("verbs", verbs);
        Set("options", options);
        Set("valued", valued);
        Set("arguments", arguments);
        script_ << "            ;;\n";
        for (CLI::App const* const part : VerbsOf(verb)) {
            Describe(*part);
        }
    }

    void Set(char const* variable, std::vector<std::string> const& words) {
        if (!words.empty()) {
            script_ << "            " << variable << "='" << Join(words) << "'\n";
        }
    }

    void TellChoices(CLI::App const& verb) {
        for (CLI::Option const* const option : OptionsOf(verb)) {
            std::string choices = ValueOf(*option);
            if (choices.find('|') == std::string::npos) {
                continue;
            }
            std::replace(choices.begin(), choices.end(), '|', ' ');
            for (std::string const& name : NamesOf(*option)) {
                script_ << "        '" << Wfs::GetFullName(verb) << ' ' << name << "') echo '" << choices << "' ;;\n";
            }
        }
        for (CLI::App const* const part : VerbsOf(verb)) {
            TellChoices(*part);
        }
    }

    std::ostringstream script_;
};

void Write(std::string const& path, std::string const& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error(path + " can't be written");
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 4) {
            throw std::runtime_error("to be called with a manual page, its date, and a completion");
        }
        Wfs::CommandLine const commandLine;
        Write(argv[1], ManualPage(commandLine.GetProgram(), argv[2]).GetText());
        Write(argv[3], Completion(commandLine.GetProgram()).GetText());
    } catch (std::exception const& failure) {
        std::cerr << "wfsDescribe: " << failure.what() << '\n';
        return Wfs::FAILURE;
    }
    return Wfs::SUCCESS;
}
