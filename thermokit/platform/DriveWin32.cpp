// Drive properties on Windows: the drive type of the volume (GetDriveTypeW)
// and the read-only attribute of the file.
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/Drive.h"

#include <vector>

namespace thermokit {

DriveInfo DriveOf(const std::string& path) {
    DriveInfo info;
    if (path.empty()) return info;
    std::wstring name = win32::FileName(path);
    DWORD attributes = GetFileAttributesW(name.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        // A file not made yet: the folder it would go to.
        const size_t slash = name.find_last_of(L"\\/");
        name = slash == std::wstring::npos ? std::wstring(L".") : name.substr(0, slash + 1);
        attributes = GetFileAttributesW(name.c_str());
    }
    std::vector<wchar_t> volume(name.size() + MAX_PATH + 1);
    if (GetVolumePathNameW(name.c_str(), volume.data(), static_cast<DWORD>(volume.size()))) {
        const UINT type = GetDriveTypeW(volume.data());
        info.cdrom = type == DRIVE_CDROM;
        info.network = type == DRIVE_REMOTE;
        DWORD flags = 0;
        if (GetVolumeInformationW(volume.data(), nullptr, 0, nullptr, nullptr, &flags, nullptr, 0) &&
            (flags & FILE_READ_ONLY_VOLUME))
            info.readOnly = true;
    }
    if (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY) &&
        (attributes & FILE_ATTRIBUTE_READONLY))
        info.readOnly = true;
    if (attributes == INVALID_FILE_ATTRIBUTES) info.readOnly = true;  // nowhere to write
    return info;
}

}  // namespace thermokit
