#pragma once
// The fields of a film's file header and of one image header as JSON, name
// by name, from the library's own list of the fields: what `info` prints and
// what the viewer's header panel shows.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/film/HeaderFields.h"
#include "thermokit/platform/Utf8.h"

namespace thermokit::cli {

using Json = nlohmann::ordered_json;

// A 32-bit float as the double of its shortest decimal form, so that JSON
// shows 3.7 and not 3.700000047683716 (the float is the same number either way).
inline double Float32(float value) {
    if (!std::isfinite(value)) return value;
    char text[32];
    for (int digits = 1; digits <= 9; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(value));
        if (std::strtof(text, nullptr) == value) break;
    }
    return std::strtod(text, nullptr);
}

// Every number of j that is a float widened to double, at the float's own precision.
inline void TidyFloats(Json& j) {
    if (j.is_structured()) {
        for (auto& item : j) TidyFloats(item);
    } else if (j.is_number_float()) {
        const double value = j.get<double>();
        const float f = static_cast<float>(value);
        if (static_cast<double>(f) == value) j = Float32(f);
    }
}

// Builds the JSON of a film header from the library's list of its fields.
class JsonFields : public HeaderFieldVisitor {
public:
    Json root = Json::object();

    void Signed(const char* name, int64_t value) override { Put(name, value); }
    void Unsigned(const char* name, uint64_t value) override { Put(name, value); }
    // Floats of the header come widened to double: those are shown at their own precision.
    void Real(const char* name, double value) override {
        const float f = static_cast<float>(value);
        Put(name, static_cast<double>(f) == value ? Float32(f) : value);
    }
    // 8-bit text fields as UTF-8.
    void Text(const char* name, const std::string& value) override { Put(name, Latin1ToUtf8(value)); }
    void Null(const char* name) override { Put(name, nullptr); }
    void BeginRecord(const char* name) override { Open(name, Json::object()); }
    void BeginList(const char* name) override { Open(name, Json::array()); }
    void End() override { m_open.pop_back(); }

private:
    Json& Top() { return m_open.empty() ? root : *m_open.back(); }
    void Put(const char* name, Json value) {
        Json& top = Top();
        if (top.is_array()) top.push_back(std::move(value));
        else top[name] = std::move(value);
    }
    void Open(const char* name, Json empty) {
        Json& top = Top();
        if (top.is_array()) {
            top.push_back(std::move(empty));
            m_open.push_back(&top.back());
        } else {
            top[name] = std::move(empty);
            m_open.push_back(&top[name]);
        }
    }
    std::vector<Json*> m_open;
};

inline Json FileHeader(CPtrOver& p) {
    JsonFields fields;
    VisitFileHeader(p, fields);
    return fields.root;
}

inline Json ImageHeader(CPtrOver& p, double readTime) {
    JsonFields fields;
    VisitImageHeader(p, readTime, fields);
    return fields.root;
}

}  // namespace thermokit::cli
