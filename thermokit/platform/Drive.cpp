#include "thermokit/platform/Drive.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace thermokit {

namespace {

// The folder a file lies in (for the drive properties of a file not yet made).
std::string ExistingPathFor(const std::string& name) {
    struct stat st {};
    if (!name.empty() && ::stat(name.c_str(), &st) == 0) return name;
    const size_t slash = name.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return name.substr(0, slash);
}

bool IsNetworkType(unsigned long type) {
    switch (type) {
        case 0x6969UL:      // NFS
        case 0x517BUL:      // SMB
        case 0xFF534D42UL:  // CIFS
        case 0xFE534D42UL:  // SMB2
        case 0x01021997UL:  // 9P
        case 0x00C36400UL:  // Ceph
        case 0x5346414FUL:  // AFS
        case 0x73757245UL:  // Coda
        case 0x564CUL:      // NCP
            return true;
        default:
            return false;
    }
}

}  // namespace

DriveInfo DriveOf(const std::string& path) {
    DriveInfo info;
    const std::string existing = ExistingPathFor(path);
    struct statfs fs {};
    if (::statfs(existing.c_str(), &fs) == 0) {
        const unsigned long type = static_cast<unsigned long>(static_cast<uint32_t>(fs.f_type));
        info.cdrom = type == 0x9660UL || type == 0x15013346UL;
        info.network = IsNetworkType(type);
    }
    struct statvfs vfs {};
    info.readOnly = (::statvfs(existing.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY)) ||
                    ::access(existing.c_str(), W_OK) != 0;
    return info;
}

}  // namespace thermokit
