#pragma once
// Properties of the drive (file system) a file lies on: for a file that does
// not exist yet, of the folder it would go to.
#include <string>

namespace thermokit {

struct DriveInfo {
    bool cdrom = false;     // an optical disc (ISO 9660 or UDF)
    bool network = false;   // a network share (NFS, SMB/CIFS, 9P, Ceph, AFS, Coda, NCP)
    bool readOnly = false;  // not writable by this process, or mounted read-only
};

// All false when the drive cannot be examined.
DriveInfo DriveOf(const std::string& path);

}  // namespace thermokit
