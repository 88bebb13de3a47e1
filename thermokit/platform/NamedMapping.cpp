#include "thermokit/platform/NamedMapping.h"

namespace thermokit {

bool NamedMapping::Create(const char* name, size_t size, const std::function<void(void*)>& init) {
    Close();
    if (!name || !*name || size == 0) return false;
    const auto r = m_segment.Open(name, NamedKind::Mapping, size, init);
    if (r == NamedSegment::Failed) return false;
    m_bExisted = r == NamedSegment::Opened;
    return true;
}

void NamedMapping::Close() {
    m_segment.Close();
    m_bExisted = false;
}

}  // namespace thermokit
