#include "thermokit/calibration/CResponseFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "thermokit/platform/File.h"

namespace thermokit {

namespace {
// Tokens are read into buffers of this size (one for the terminator).
constexpr int kTokenSize = 50;
}  // namespace

CResponseFile::CResponseFile(const char* fileName) {
    if (fileName) m_strFileName = fileName;
    if (!m_strFileName.empty()) ReadFile();
}

CResponseFile::~CResponseFile() = default;

int CResponseFile::Add(double lambda, double transmission) {
    if (!m_aData.empty() && !(lambda > m_aData.back().m_dLambda)) return 0;
    m_aData.push_back({lambda, transmission});
    return 1;
}

int CResponseFile::Remove(double /*lambda*/) { return 1; }

int CResponseFile::GetTransmission(double lambda, double& transmission, int extrapolate) const {
    const size_t n = m_aData.size();
    size_t i = 0;
    for (; i < n; ++i) {
        if (lambda == m_aData[i].m_dLambda) {
            transmission = m_aData[i].m_dTransmission;
            return 1;
        }
        if (lambda < m_aData[i].m_dLambda) break;
    }
    size_t i0, i1;
    if (i > 0 && i < n) {
        i0 = i - 1;
        i1 = i;
    } else {
        if (!extrapolate) return 0;
        if (i == 0) {
            i0 = 0;
            i1 = 1;
        } else {
            i0 = n - 2;  // wraps when n < 2: .at() below throws
            i1 = n - 1;
        }
    }
    const ResponseData& a = m_aData.at(i0);
    const ResponseData& b = m_aData.at(i1);
    if (b.m_dLambda == a.m_dLambda) {
        transmission = a.m_dTransmission;
    } else {
        transmission = (b.m_dTransmission - a.m_dTransmission) / (b.m_dLambda - a.m_dLambda) *
                           (lambda - a.m_dLambda) +
                       a.m_dTransmission;
    }
    return 1;
}

int CResponseFile::Save(const char* fileName) {
    if (fileName && *fileName) m_strFileName = fileName;
    return WriteFile();
}

int CResponseFile::ReadFile() {
    ClearLastError();
    m_aData.clear();
    FILE* f = File::OpenStream(m_strFileName, "r");
    if (!f) return SetLastError("cannot be opened", errno);
    char a[kTokenSize] = {};
    char b[kTokenSize] = {};
    // Only the first token is compared: "RSP extra words" passes, "rsp" does not.
    if (std::fscanf(f, "%49s\n", a) != 1 || std::strcmp(a, "RSP") != 0) {
        std::fclose(f);
        return SetLastError(ErrorKind::Format, "not a spectral response file (first line \"RSP\" expected)");
    }
    // Column header: two tokens whose text is not checked.
    if (std::fscanf(f, "%49s\t%49s\n", a, b) == 2) {
        while (std::fscanf(f, "%49s\t%49s\n", a, b) == 2) {
            Add(std::atof(a), std::atof(b));  // wavelengths that do not increase are dropped
        }
    }
    std::fclose(f);
    return 1;
}

int CResponseFile::WriteFile() {
    FILE* f = File::OpenStream(m_strFileName, "w+b");  // bytes as written, "\n" on every system
    if (!f) return SetLastError("cannot be created", errno);
    std::fprintf(f, "%s\n", "RSP");
    std::fprintf(f, "Lambda\tTransmission\n");
    for (const ResponseData& r : m_aData) std::fprintf(f, "%lf\t%lf\n", r.m_dLambda, r.m_dTransmission);
    const bool ok = std::ferror(f) == 0;
    if (std::fclose(f) == 0 && ok) return 1;
    return SetLastError("cannot be written", errno ? errno : EIO);
}

}  // namespace thermokit
