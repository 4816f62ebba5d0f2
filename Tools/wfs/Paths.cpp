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

void AddPaths(CLI::App& verb, std::vector<std::string>& paths) {
    auto const unshield = [](std::string const& argument) { return std::string(argument.c_str()); };
    verb.add_option("PATH", paths, "The files")->required()->option_text("...")->transform(unshield);
}

ExitStatus ForEachPath(std::vector<std::string> const& paths, std::function<void(wchar_t const* path)> const& work) {
    ExitStatus result = SUCCESS;
    for (std::string const& path : paths) {
        ExitStatus status = SUCCESS;
        try {
            work(WBase::UTF8ToWideChar(path.c_str(), false).c_str());
        } catch (Failure const& failure) {
            Report(path, failure.what());
            status = failure.GetStatus();
        } catch (WBase::Message const& message) {
            Report(path, message.what());
            status = FAILURE;
        }
        if (status == FAILURE || result == SUCCESS) {
            result = status;
        }
    }
    return result;
}

} // namespace Wfs
