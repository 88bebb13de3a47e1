#include "thermokit/platform/RegionFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "thermokit/platform/File.h"
#include "thermokit/platform/Utf8Path.h"

namespace thermokit {

namespace {

constexpr long long kMaxFileBytes = 16ll << 20;
constexpr size_t kMaxLineChars = 65536;
constexpr long kMaxCoordinate = 65536;
constexpr size_t kMaxCorners = 4096;

const char* const kExpected =
    ": expected \"rect X Y W H\", \"ellipse X Y W H\" or \"polygon X1 Y1 X2 Y2 X3 Y3 ...\"";

// The union of many regions, formed pairwise (as a binary counter adds): each
// shape takes part in a logarithmic number of combinations, and no
// combination is made with a region much larger than the other one, so a file
// of many small shapes costs no more than the shapes themselves.
class Union {
public:
    void Add(CRgn shape) {
        m_parts.push_back(Part{std::move(shape), 1});
        while (m_parts.size() >= 2 && m_parts[m_parts.size() - 2].weight <= m_parts.back().weight) Merge();
    }
    bool Empty() const { return m_parts.empty(); }
    CRgn Take() {
        while (m_parts.size() >= 2) Merge();
        return m_parts.empty() ? CRgn() : std::move(m_parts.back().region);
    }

private:
    struct Part {
        CRgn region;
        size_t weight;
    };
    void Merge() {
        Part b = std::move(m_parts.back());
        m_parts.pop_back();
        Part& a = m_parts.back();
        CRgn both;
        both.CombineRgn(&a.region, &b.region, RGN_OR);
        a.region = std::move(both);
        a.weight += b.weight;
    }
    std::vector<Part> m_parts;
};

}  // namespace

bool ReadRegionFile(const std::string& path, const CRect& clip, CRgn& region, std::string& why) {
    const File::Status st = File::StatusOf(path);
    if (st.err != 0) {
        why = std::string("cannot be opened (") + std::strerror(st.err) + ")";
        return false;
    }
    if (!st.regular || st.size > kMaxFileBytes) {
        why = "not a region file (a text file of at most 16 MiB expected)";
        return false;
    }
    std::ifstream in(PathFromUtf8(path), std::ios::binary);
    if (!in) {
        why = std::string("cannot be opened (") + std::strerror(errno) + ")";
        return false;
    }
    Union all;
    std::string line;
    std::vector<long> v;
    std::vector<CPoint> corners;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() > kMaxLineChars) {
            why = "line " + std::to_string(number) + " is too long";
            return false;
        }
        std::istringstream words(line);
        std::string kind;
        if (!(words >> kind) || kind[0] == '#') continue;
        v.clear();
        std::string w;
        bool ok = true;
        while (ok && words >> w) {
            char* end = nullptr;
            errno = 0;
            const long n = std::strtol(w.c_str(), &end, 10);
            ok = *end == '\0' && errno == 0 && n >= -kMaxCoordinate && n <= kMaxCoordinate;
            v.push_back(n);
        }
        CRgn shape;
        if (ok && (kind == "rect" || kind == "ellipse") && v.size() == 4 && v[2] > 0 && v[3] > 0) {
            const int32_t l = static_cast<int32_t>(v[0]), t = static_cast<int32_t>(v[1]);
            const int32_t r = static_cast<int32_t>(v[0] + v[2]), b = static_cast<int32_t>(v[1] + v[3]);
            if (kind == "rect") shape.CreateRectRgn(l, t, r, b, &clip);
            else shape.CreateEllipticRgn(l, t, r, b, &clip);
        } else if (ok && kind == "polygon" && v.size() >= 6 && v.size() % 2 == 0 && v.size() <= 2 * kMaxCorners) {
            corners.clear();
            for (size_t i = 0; i < v.size(); i += 2)
                corners.emplace_back(static_cast<int32_t>(v[i]), static_cast<int32_t>(v[i + 1]));
            shape.CreatePolygonRgn(corners.data(), static_cast<int>(corners.size()), ALTERNATE, &clip);
        } else {
            why = "line " + std::to_string(number) + kExpected;
            return false;
        }
        all.Add(std::move(shape));
    }
    if (in.bad()) {
        why = std::string("cannot be read (") + std::strerror(errno) + ")";
        return false;
    }
    if (all.Empty()) {
        why = "no shape (rect, ellipse or polygon lines expected)";
        return false;
    }
    region = all.Take();
    return true;
}

}  // namespace thermokit
