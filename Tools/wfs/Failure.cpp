#include <Tools/wfs/Failure.h>

#include <Base/Conversion.h>
#include <Tools/wfs/Terminal.h>

#include <cstdio>
#include <utility>

namespace Wfs {
namespace {

constexpr std::string_view NAME = "wfs:";

std::string Colour(std::string text) {
    std::string const coloured = "\033[1;31m" + std::string(NAME) + "\033[0m";
    for (std::size_t begin = 0; begin < text.size(); begin = text.find('\n', begin) + 1) {
        if (text.compare(begin, NAME.size(), NAME) == 0) {
            text.replace(begin, NAME.size(), coloured);
        }
    }
    return text;
}

} // namespace

std::string ToUTF8(std::string const& text) {
    return WBase::WideCharToUTF8(WBase::UTF8ToWideChar(text.c_str(), true).c_str(), false).c_str();
}

void Report(std::string const& text) {
    // One call, so that reports of several processes do not mix. Where it fails there is nobody left to tell.
    std::string line = std::string(NAME) + ' ' + text + '\n';
    if (CanShowColours()) {
        line = Colour(std::move(line));
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Report(std::string const& path, std::string_view text) {
    std::string const name = '\'' + ToUTF8(path) + '\'';
    bool const isNamed = text.find(name) != std::string_view::npos;
    Report((isNamed ? "" : name + ": ") + std::string(text));
}

} // namespace Wfs
