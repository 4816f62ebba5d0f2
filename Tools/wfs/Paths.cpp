#include <Tools/wfs/Paths.h>

#include <Base/Conversion.h>
#include <Base/Message.h>

#include <cstring>

namespace Wfs {

std::string Shield(std::string argument) {
    if (!argument.empty() && std::strchr("[{%", argument.front()) != nullptr) {
        argument.push_back('\0');
    }
    return argument;
}

std::string Unshield(std::string const& argument) {
    return argument.substr(0, argument.find('\0'));
}

void AddPaths(CLI::App& verb, std::vector<std::string>& paths, char const* name, char const* description) {
    verb.add_option(name, paths, description)->required()->option_text("...")->transform(Unshield);
}

void AddPath(CLI::App& verb, char const* name, std::string& path, char const* description) {
    verb.add_option(name, path, description)->required()->option_text(" ")->transform(Unshield);
}

namespace {

WBase::ReturnWString Convert(std::string const& path) {
    return WBase::UTF8ToWideChar(path.c_str(), false);
}

/// Does work and reports its failure.
/// \param path what the report names, unless it names the other path
ExitStatus Try(std::string const& path, std::string const& otherPath, std::function<void()> const& work) {
    auto const report = [&](std::string const& text) {
        bool const isOtherNamed = !otherPath.empty() && text.find('\'' + otherPath + '\'') != std::string::npos;
        isOtherNamed ? Report(text) : Report(path, text);
    };
    try {
        work();
        return SUCCESS;
    } catch (Failure const& failure) {
        report(failure.what());
        return failure.GetStatus();
    } catch (WBase::Message const& message) {
        report(message.what());
        return FAILURE;
    }
}

} // namespace

ExitStatus ForEachPath(std::vector<std::string> const& paths, std::function<void(wchar_t const* path)> const& work) {
    ExitStatus result = SUCCESS;
    for (std::string const& path : paths) {
        ExitStatus const status = Try(path, "", [&] { work(Convert(path).c_str()); });
        if (status == FAILURE || result == SUCCESS) {
            result = status;
        }
    }
    return result;
}

ExitStatus ForTwoPaths(
    std::string const& from, std::string const& to,
    std::function<void(wchar_t const* from, wchar_t const* to)> const& work) {
    ExitStatus const status = Try(from, "", [&] { Convert(from); });
    return status != SUCCESS ? status : Try(to, from, [&] { work(Convert(from).c_str(), Convert(to).c_str()); });
}

} // namespace Wfs
