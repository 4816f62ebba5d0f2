#include <FileSystem/Directory.h>

#include <Base/Conversion.h>
#include <FileSystem/File.h>
#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <PDCHeader/PDCstat.h>

#include <climits>
#include <memory>
#include <string>
#include <unistd.h>

namespace WFileSystem {
namespace {

constexpr char DELETE_FAILURE[] = "Failed to delete directory '%1'.";

} // namespace

void Directory::Create(wchar_t const* path, bool createParents) {
    if (createParents) {
        std::wstring const parent(Path::Combine(path, L".."));
        // Without the bound the climb from a working directory that can't be searched would not end.
        if (parent != path && parent.size() < PATH_MAX && !Path::IsDirectory(parent.c_str())) {
            Create(parent.c_str(), true);
        }
    }
    constexpr mode_t MODE = 0777; // not the module's, which is for files
    WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
    if (::mkdir(narrowPath.c_str(), MODE) != 0) {
        throw MakeErrnoMessage("Failed to create directory '%1'.") << path;
    }
}

bool Directory::DeleteEmpty(wchar_t const* path, WBase::Message* report) {
    try {
        WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
        if (::rmdir(narrowPath.c_str()) == 0) {
            return true;
        }
        if (report != nullptr) {
            report->PrependBy(MakeErrnoMessage(DELETE_FAILURE) << path);
        }
    } catch (WBase::Message const& failure) {
        ReportCaught(report, failure, DELETE_FAILURE, path);
    }
    return false;
}

bool Directory::DeleteRecursively(wchar_t const* path, WBase::Message* report) {
    try {
        WBase::ReturnWString const pattern = Path::Combine(path, L"*");
        std::unique_ptr<WDataType::StringCollection> const names = Path::GetFileNamesWithPattern(pattern.c_str());
        for (unsigned long index = 0; index < names->GetCount(); ++index) {
            wchar_t const* const entry = names->GetAt(index);
            // What can't be deleted shows in the report, and in the failure of the directory below.
            if (Path::IsDirectory(entry)) {
                DeleteRecursively(entry, report);
            } else {
                File::Delete(entry, report);
            }
        }
        return DeleteEmpty(path, report);
    } catch (WBase::Message const& failure) {
        ReportCaught(report, failure, DELETE_FAILURE, path);
    }
    return false;
}

} // namespace WFileSystem
