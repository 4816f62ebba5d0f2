#include <Tools/wfs/Failure.h>

#include <Base/Conversion.h>

#include <cstdio>

namespace Wfs {

std::string ToUTF8(std::string const& text) {
    return WBase::WideCharToUTF8(WBase::UTF8ToWideChar(text.c_str(), true).c_str(), false).c_str();
}

void Report(std::string const& text) {
    // One call, so that reports of several processes do not mix. Where it fails there is nobody left to tell.
    std::string const line = "wfs: " + text + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Report(std::string const& path, std::string_view text) {
    std::string const name = '\'' + ToUTF8(path) + '\'';
    bool const isNamed = text.find(name) != std::string_view::npos;
    Report((isNamed ? "" : name + ": ") + std::string(text));
}

} // namespace Wfs
