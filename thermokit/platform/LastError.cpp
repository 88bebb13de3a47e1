#include "thermokit/platform/LastError.h"

#include <cstring>
#include <utility>

#include "thermokit/platform/File.h"

namespace thermokit {

void LastError::ClearLastError() {
    m_strLastError.clear();
    m_eLastError = ErrorKind::None;
    m_nLastErrno = 0;
}

int LastError::SetLastError(ErrorKind kind, std::string what) {
    m_strLastError = std::move(what);
    m_eLastError = kind;
    m_nLastErrno = 0;
    return 0;
}

int LastError::SetLastError(std::string what, int err) {
    m_strLastError = std::move(what) + " (" + std::strerror(err) + ")";
    m_eLastError = ErrorKind::System;
    m_nLastErrno = err;
    return 0;
}

int LastError::SetLastError(std::string what, const File& file) {
    m_strLastError = std::move(what) + " (" + file.GetLastErrorText() + ")";
    m_eLastError = ErrorKind::System;
    m_nLastErrno = file.GetLastError();
    return 0;
}

int LastError::SetReadError(const File& file, std::string shortText) {
    if (file.GetLastError() != 0) return SetLastError("cannot be read", file);
    return SetLastError(ErrorKind::Format, std::move(shortText));
}

}  // namespace thermokit
