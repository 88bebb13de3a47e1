#pragma once
// The fields of a film's file header and of one image header as JSON, name
// by name, from the library's own list of the fields: what `info` prints and
// what the viewer's header panel shows.
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/film/HeaderFields.h"

namespace thermokit::cli {

using Json = nlohmann::ordered_json;

// Builds the JSON of a film header from the library's list of its fields.
class JsonFields : public HeaderFieldVisitor {
public:
    Json root = Json::object();

    void Signed(const char* name, int64_t value) override { Put(name, value); }
    void Unsigned(const char* name, uint64_t value) override { Put(name, value); }
    void Real(const char* name, double value) override { Put(name, value); }
    void Text(const char* name, const std::string& value) override { Put(name, value); }
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
